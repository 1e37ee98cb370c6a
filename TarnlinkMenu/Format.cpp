#include "TarnlinkMenu/Format.h"

#include "TarnCore/Text.h"

#include <cstddef>

namespace tarn {

std::string format(std::string_view text, const std::vector<std::string> &arguments) {
    std::string result;
    std::size_t next = 0;
    while (!text.empty()) {
        const auto mark = text.find('%');
        result += text.substr(0, mark);
        if (mark == std::string_view::npos)
            break;
        text.remove_prefix(mark);
        auto rest = text.substr(1);
        if (rest.starts_with('%')) {
            result += '%';
            text = rest.substr(1);
            continue;
        }
        std::size_t index = next;
        const auto digits = rest.find_first_not_of("0123456789");
        if (digits != 0 && digits != std::string_view::npos && rest[digits] == '$') {
            // 0, and what does not parse, is no argument's number.
            index = static_cast<std::size_t>(text::parseInteger(rest.substr(0, digits)).value_or(0)) - 1;
            rest.remove_prefix(digits + 1);
        }
        std::size_t length = 0;
        for (const std::string_view conversion : {"@", "d", "lld"})
            if (rest.starts_with(conversion))
                length = conversion.size();
        if (length == 0 || index >= arguments.size()) {
            result += '%';
            text.remove_prefix(1);
            continue;
        }
        result += arguments[index];
        next = index + 1;
        text = rest.substr(length);
    }
    return result;
}

} // namespace tarn
