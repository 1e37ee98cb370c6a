#pragma once

#include "TarnCore/Status.h"
#include "TarnCore/Text.h"
#include "TarnCore/Value.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/NetworkPreferences.h"
#include "TarnSystem/SystemClock.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

/// Records as trees of plain data. A record tells once, in its fields(), what it consists of, for writing
/// and for reading. Every entry is always written, null where something is absent, and nothing else is
/// read: an entry that is missing, unknown or of another type throws DecodingError, which names it.
///
/// Integers beyond 2^63 are written as the negative number with the same bits, and doubles that JSON does
/// not have as the words "inf", "-inf" and "nan".
namespace tarn::coding {

/// A record as fields() takes it: constant while it is written.
template <class Record, class Type>
concept Is = std::same_as<std::remove_const_t<Record>, Type>;

template <class Type>
concept CodesItself = requires(const Type &object, const Value &value) {
    { object.encoded() } -> std::same_as<Value>;
    { Type::decode(value) } -> std::same_as<Type>;
};

/// The words for an enumeration: specialised as an array of pairs.
template <class Enum> inline constexpr bool words = false;

template <class Type> inline constexpr bool isOptional = false;
template <class Type> inline constexpr bool isOptional<std::optional<Type>> = true;
template <class Type> inline constexpr bool isList = false;
template <class Type> inline constexpr bool isList<std::vector<Type>> = true;

template <class Type> Value encode(const Type &object);
template <class Type> Type decode(const Value &value);

/// Gathers the entries of a record.
class Writer {
public:
    template <class Type> void operator()(const char *key, const Type &field) {
        entries_.emplace_back(key, encode(field));
    }
    Value take() { return std::move(entries_); }

private:
    Value::Dictionary entries_;
};

template <class Type> const Type &expected(const Type *content, const char *what) {
    if (!content)
        throw DecodingError(DecodingError::Kind::typeMismatch, std::string("expected ") + what);
    return *content;
}

/// Takes the entries of a record apart.
class Reader {
public:
    explicit Reader(const Value &record)
        : record_(record), entries_(expected(record.dictionary(), "a dictionary")) {}

    template <class Type> void operator()(const char *key, Type &field) {
        const Value *entry = record_.find(key);
        if (!entry)
            throw DecodingError(DecodingError::Kind::keyNotFound, std::string(key) + ": missing");
        taken_.emplace_back(key);
        try {
            field = decode<Type>(*entry);
        } catch (const DecodingError &error) {
            throw DecodingError(error.kind(), std::string(key) + ": " + error.description());
        }
    }
    void end() const {
        for (const auto &[key, value] : entries_)
            if (std::ranges::find(taken_, key) == taken_.end())
                throw DecodingError(DecodingError::Kind::dataCorrupted, text::printable(key) + ": unknown");
    }

private:
    const Value &record_;
    const Value::Dictionary &entries_;
    std::vector<std::string_view> taken_;
};

/// For types that code themselves by their fields.
template <class Record> Value encodeFields(const Record &record) {
    Writer writer;
    fields(writer, record);
    return writer.take();
}

template <class Record> Record decodeFields(const Value &value) {
    Reader reader(value);
    Record record;
    fields(reader, record);
    reader.end();
    return record;
}

template <class Type> Value encode(const Type &object) {
    if constexpr (std::same_as<Type, std::uint64_t>) {
        return static_cast<std::int64_t>(object);
    } else if constexpr (std::same_as<Type, double>) {
        return std::isfinite(object) ? Value(object) : Value(text::fromDouble(object));
    } else if constexpr (std::same_as<Type, std::chrono::nanoseconds>) {
        return std::int64_t{object.count()};
    } else if constexpr (std::constructible_from<Value, const Type &> && !std::is_enum_v<Type>) {
        return Value(object);
    } else if constexpr (CodesItself<Type>) {
        return object.encoded();
    } else if constexpr (isOptional<Type>) {
        return object ? encode(*object) : Value();
    } else if constexpr (isList<Type>) {
        Value::Array list;
        for (const auto &element : object)
            list.push_back(encode(element));
        return list;
    } else if constexpr (std::is_enum_v<Type>) {
        return std::string(
            std::ranges::find(words<Type>, object, [](auto &word) { return word.first; })->second);
    } else {
        return encodeFields(object);
    }
}

inline double decodeDouble(const Value &value) {
    if (value.real())
        return *value.real();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const auto &word = expected(value.string(), "a number with a fraction");
    for (const double number : {infinity, -infinity, std::numeric_limits<double>::quiet_NaN()})
        if (word == text::fromDouble(number))
            return number;
    throw DecodingError(DecodingError::Kind::dataCorrupted, "not a number: " + text::printable(word));
}

template <class Type> Type decode(const Value &value) {
    if constexpr (std::same_as<Type, Value>) {
        return value;
    } else if constexpr (std::same_as<Type, bool>) {
        return expected(value.boolean(), "true or false");
    } else if constexpr (std::same_as<Type, std::int64_t>) {
        return expected(value.integer(), "an integer");
    } else if constexpr (std::same_as<Type, std::uint64_t>) {
        return static_cast<std::uint64_t>(decode<std::int64_t>(value));
    } else if constexpr (std::same_as<Type, double>) {
        return decodeDouble(value);
    } else if constexpr (std::same_as<Type, std::chrono::nanoseconds>) {
        return std::chrono::nanoseconds(decode<std::int64_t>(value));
    } else if constexpr (std::same_as<Type, std::string>) {
        return expected(value.string(), "a string");
    } else if constexpr (CodesItself<Type>) {
        return Type::decode(value);
    } else if constexpr (isOptional<Type>) {
        return value.isNull() ? Type() : Type(decode<typename Type::value_type>(value));
    } else if constexpr (isList<Type>) {
        Type list;
        for (const auto &element : expected(value.array(), "a list"))
            list.push_back(decode<typename Type::value_type>(element));
        return list;
    } else if constexpr (std::is_enum_v<Type>) {
        const auto &text = expected(value.string(), "a word");
        for (const auto &[meaning, word] : words<Type>)
            if (word == text)
                return meaning;
        throw DecodingError(DecodingError::Kind::dataCorrupted, "unknown word " + text::printable(text));
    } else {
        return decodeFields<Type>(value);
    }
}

// What more than one record consists of.

template <>
inline const std::array words<WiFiOffMode> = {std::pair(WiFiOffMode::address, rawValue(WiFiOffMode::address)),
                                              std::pair(WiFiOffMode::service, rawValue(WiFiOffMode::service)),
                                              std::pair(WiFiOffMode::radio, rawValue(WiFiOffMode::radio))};

template <class Archive> void fields(Archive &archive, Is<ProtocolConfiguration> auto &configuration) {
    archive("enabled", configuration.enabled);
    archive("entries", configuration.entries);
}

template <class Archive> void fields(Archive &archive, Is<Moment> auto &moment) {
    archive("sinceBoot", moment.sinceBoot);
    archive("sinceEpoch", moment.sinceEpoch);
}

} // namespace tarn::coding
