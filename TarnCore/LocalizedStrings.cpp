#include "TarnCore/LocalizedStrings.h"

#include <algorithm>

namespace tarn {
namespace {

class Scanner {
public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    bool atEnd() const { return rest_.empty(); }

    /// Skips blanks and comments; false where a comment does not end.
    bool skipSpace() {
        for (;;) {
            rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
            if (rest_.starts_with("//")) {
                rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size()));
            } else if (rest_.starts_with("/*")) {
                const auto end = rest_.find("*/", 2);
                if (end == std::string_view::npos)
                    return false;
                rest_.remove_prefix(end + 2);
            } else {
                return true;
            }
        }
    }

    bool take(char wanted) {
        if (!skipSpace() || !rest_.starts_with(wanted))
            return false;
        rest_.remove_prefix(1);
        return true;
    }

    std::optional<std::string> quoted() {
        if (!take('"'))
            return std::nullopt;
        std::string text;
        while (!rest_.empty()) {
            char next = rest_.front();
            rest_.remove_prefix(1);
            if (next == '"')
                return text;
            if (next == '\\') {
                if (rest_.empty())
                    return std::nullopt;
                next = rest_.front();
                rest_.remove_prefix(1);
                if (next == 'n')
                    next = '\n';
                else if (next == 't')
                    next = '\t';
            }
            text += next;
        }
        return std::nullopt;
    }

private:
    std::string_view rest_;
};

} // namespace

std::optional<StringTable> StringTable::parse(std::string_view text) {
    StringTable table;
    Scanner scanner(text);
    for (;;) {
        if (!scanner.skipSpace())
            return std::nullopt;
        if (scanner.atEnd())
            return table;
        const auto key = scanner.quoted();
        if (!key || !scanner.take('='))
            return std::nullopt;
        auto value = scanner.quoted();
        if (!value || !scanner.take(';'))
            return std::nullopt;
        table.entries_.insert_or_assign(*key, *std::move(value));
    }
}

std::string StringTable::localized(std::string_view key) const {
    const auto found = entries_.find(key);
    return found == entries_.end() ? std::string(key) : found->second;
}

} // namespace tarn
