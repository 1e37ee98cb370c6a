#include "TarnSystem/URL.h"

#include <algorithm>

namespace tarn {
namespace {

bool isAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isHexDigit(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Unreserved and reserved characters, RFC 3986, sections 2.2 and 2.3. Brackets belong to a
// numeric host alone.
bool isAddressCharacter(char c) {
    return isAlpha(c) || isDigit(c) ||
           std::string_view("-._~:/?#@!$&'()*+,;=").find(c) != std::string_view::npos;
}

bool hasOnlyAddressCharacters(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            if (i + 2 >= text.size() || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2]))
                return false;
        } else if (!isAddressCharacter(text[i])) {
            return false;
        }
    }
    return true;
}

bool isBracketedAddress(std::string_view host) {
    return host.size() > 4 && host.starts_with('[') && host.ends_with(']') &&
           std::ranges::all_of(host.substr(1, host.size() - 2),
                               [](char c) { return isHexDigit(c) || c == ':' || c == '.'; });
}

} // namespace

std::optional<URL> URL::parse(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || !isAlpha(text.front()))
        return std::nullopt;
    const auto scheme = text.substr(0, colon);
    if (!std::ranges::all_of(
            scheme, [](char c) { return isAlpha(c) || isDigit(c) || c == '+' || c == '-' || c == '.'; }))
        return std::nullopt;

    URL url;
    url.text_ = text;
    url.schemeLength_ = colon;
    auto rest = text.substr(colon + 1);
    std::string_view host;
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        const auto authority = rest.substr(0, rest.find_first_of("/?#"));
        rest.remove_prefix(authority.size());
        const auto at = authority.rfind('@');
        const auto user = at == std::string_view::npos ? std::string_view() : authority.substr(0, at);
        const auto hostAndPort = at == std::string_view::npos ? authority : authority.substr(at + 1);
        const auto bracket = hostAndPort.rfind(']');
        const auto portColon = hostAndPort.find(':', bracket == std::string_view::npos ? 0 : bracket);
        host = hostAndPort.substr(0, portColon);
        const auto port =
            portColon == std::string_view::npos ? std::string_view() : hostAndPort.substr(portColon + 1);
        if (!std::ranges::all_of(port, isDigit) || !hasOnlyAddressCharacters(user) ||
            user.find('@') != std::string_view::npos)
            return std::nullopt;
        if (host.starts_with('[') ? !isBracketedAddress(host) : !hasOnlyAddressCharacters(host))
            return std::nullopt;
        url.hostStart_ = static_cast<std::size_t>(host.data() - text.data());
        url.hostLength_ = host.size();
    }
    const bool namesHost = scheme == "https" || scheme == "http";
    if (!hasOnlyAddressCharacters(rest) || (namesHost && host.empty()))
        return std::nullopt;
    return url;
}

} // namespace tarn
