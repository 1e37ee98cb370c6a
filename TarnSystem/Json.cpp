#include "TarnSystem/Json.h"

#include "TarnCore/Text.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

namespace tarn::json {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t deepestNesting = 64;
// The parser quotes what it has read, however long that is.
constexpr std::size_t longestMessage = 160;

SyntaxError errorAt(std::string_view document, std::size_t offset, std::string message) {
    if (message.size() > longestMessage)
        message = text::withValidUTF8(message.substr(0, longestMessage)) + " [...]";
    const auto before = document.substr(0, std::min(offset, document.size()));
    const auto lineStart = before.rfind('\n') + 1; // npos + 1 is 0
    return {static_cast<std::size_t>(std::ranges::count(before, '\n')) + 1, before.size() - lineStart + 1,
            std::move(message)};
}

/// Reads through the text and tells how far the parser has come.
class Cursor {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char *;
    using reference = const char &;

    Cursor(const char *at, const char **furthest) : at_(at), furthest_(furthest) {}

    reference operator*() const { return *at_; }
    Cursor &operator++() {
        *furthest_ = ++at_;
        return *this;
    }
    bool operator==(const Cursor &other) const { return at_ == other.at_; }

private:
    const char *at_;
    const char **furthest_;
};

/// Builds the tree while the text is read, so that depth is bounded before memory is spent.
class Builder : public nlohmann::json_sax<Json> {
public:
    Value root;
    /// Why building stopped.
    std::string problem;

    bool null() override { return put(Value()); }
    bool boolean(bool value) override { return put(value); }
    bool number_integer(std::int64_t value) override { return put(value); }
    bool number_unsigned(std::uint64_t value) override {
        if (std::in_range<std::int64_t>(value))
            return put(static_cast<std::int64_t>(value));
        return put(static_cast<double>(value));
    }
    bool number_float(double value, const std::string &) override { return put(value); }
    bool string(std::string &value) override { return put(std::move(value)); }
    bool binary(Json::binary_t &) override { return false; }
    bool key(std::string &value) override {
        open_.back().key = std::move(value);
        return true;
    }
    bool start_object(std::size_t) override { return open(false); }
    bool start_array(std::size_t) override { return open(true); }
    bool end_array() override {
        Value finished = std::move(open_.back().array);
        open_.pop_back();
        return put(std::move(finished));
    }
    bool end_object() override {
        auto entries = std::move(open_.back().dictionary);
        open_.pop_back();
        std::vector<std::string_view> keys;
        keys.reserve(entries.size());
        for (const auto &[key, value] : entries)
            keys.push_back(key);
        std::ranges::sort(keys);
        if (const auto twice = std::ranges::adjacent_find(keys); twice != keys.end())
            return fail("the key \"" + std::string(*twice) + "\" stands twice");
        return put(std::move(entries));
    }
    bool parse_error(std::size_t, const std::string &, const nlohmann::json::exception &error) override {
        // The library says "[id] parse error at line 1, column 2: what"; the place is told apart here.
        std::string_view message = error.what();
        for (const std::string_view end : {"] ", ": "})
            if (const auto found = message.find(end); found != std::string_view::npos)
                message.remove_prefix(found + end.size());
        return fail(std::string(message));
    }

private:
    struct Container {
        bool isArray;
        Value::Array array;
        Value::Dictionary dictionary;
        std::string key;
    };

    bool put(Value value) {
        if (open_.empty())
            root = std::move(value);
        else if (open_.back().isArray)
            open_.back().array.push_back(std::move(value));
        else
            open_.back().dictionary.emplace_back(std::move(open_.back().key), std::move(value));
        return true;
    }

    bool open(bool isArray) {
        if (open_.size() == deepestNesting)
            return fail("nested too deeply");
        open_.push_back({isArray, {}, {}, {}});
        return true;
    }

    bool fail(std::string why) {
        problem = std::move(why);
        return false;
    }

    std::vector<Container> open_;
};

/// Appends documents to a text. Answers to clients are made here, which is why no tree of the library's
/// comes in between.
class Printer {
public:
    Printer(std::string &out, int indent) : out_(out), indent_(indent) {}

    void print(const Value &value) {
        if (const bool *flag = value.boolean())
            out_ += *flag ? "true" : "false";
        else if (const auto *integer = value.integer())
            out_ += std::to_string(*integer);
        else if (const double *real = value.real())
            out_ += Json(*real).dump();
        else if (const auto *string = value.string())
            print(std::string_view(*string));
        else if (const auto *array = value.array())
            print('[', *array, ']', [&](const Value &element) { print(element); });
        else if (const auto *dictionary = value.dictionary())
            print('{', *dictionary, '}', [&](const Value::Entry &entry) {
                print(std::string_view(entry.first));
                out_ += indent_ < 0 ? ":" : ": ";
                print(entry.second);
            });
        else
            out_ += "null";
    }

private:
    template <class List, class Each> void print(char open, const List &list, char close, const Each &each) {
        out_ += open;
        ++level_;
        bool isFirst = true;
        for (const auto &element : list) {
            if (!std::exchange(isFirst, false))
                out_ += ',';
            breakLine();
            each(element);
        }
        --level_;
        if (!list.empty())
            breakLine();
        out_ += close;
    }

    void print(std::string_view text) {
        std::string mended;
        if (std::ranges::any_of(text, [](char byte) { return (byte & 0x80) != 0; }) && !text::isUTF8(text))
            text = mended = text::withValidUTF8(text);
        out_ += '"';
        while (!text.empty()) {
            const auto plain =
                static_cast<std::size_t>(std::ranges::find_if(text, mustBeEscaped) - text.begin());
            out_ += text.substr(0, plain);
            text.remove_prefix(plain);
            if (text.empty())
                break;
            escape(text.front());
            text.remove_prefix(1);
        }
        out_ += '"';
    }

    static bool mustBeEscaped(char byte) {
        return static_cast<unsigned char>(byte) < 0x20 || byte == '"' || byte == '\\';
    }

    void escape(char byte) {
        constexpr std::string_view bytes = "\"\\\b\f\n\r\t";
        constexpr std::string_view letters = "\"\\bfnrt";
        constexpr std::string_view digits = "0123456789abcdef";
        out_ += '\\';
        if (const auto found = bytes.find(byte); found != bytes.npos)
            out_ += letters[found];
        else
            out_.append("u00").append({digits[byte >> 4 & 0xF], digits[byte & 0xF]});
    }

    void breakLine() {
        if (indent_ >= 0)
            out_.append("\n").append(static_cast<std::size_t>(indent_) * level_, ' ');
    }

    std::string &out_;
    const int indent_;
    std::size_t level_ = 0;
};

} // namespace

std::variant<Value, SyntaxError> parse(std::string_view text) {
    const char *furthest = text.data();
    Builder builder;
    const bool isParsed =
        Json::sax_parse(Cursor(text.data(), &furthest), Cursor(text.data() + text.size(), &furthest),
                        &builder, Json::input_format_t::json, true, true);
    // The parser takes a zero byte for the end.
    if (const auto zero = text.find('\0'); isParsed && zero != std::string_view::npos)
        return errorAt(text, zero, "a zero byte");
    if (isParsed)
        return std::move(builder.root);
    // The parser has read the byte that it objects to.
    const auto read = static_cast<std::size_t>(furthest - text.data());
    return errorAt(text, read > 0 ? read - 1 : 0, std::move(builder.problem));
}

std::string serialize(const Value &value, int indent) {
    std::string text;
    Printer(text, indent).print(value);
    return text;
}

} // namespace tarn::json
