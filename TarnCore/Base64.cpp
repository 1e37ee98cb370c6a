#include "TarnCore/Base64.h"

#include <cstdint>

namespace tarn::base64 {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

std::string encode(std::string_view bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto group = bytes.substr(i, 3);
        std::uint32_t bits = 0;
        for (std::size_t j = 0; j < 3; ++j)
            bits = bits << 8 | (j < group.size() ? static_cast<unsigned char>(group[j]) : 0u);
        for (std::size_t j = 0; j < 4; ++j)
            text += j <= group.size() ? alphabet[bits >> (18 - 6 * j) & 63] : '=';
    }
    return text;
}

std::optional<std::string> decode(std::string_view text) {
    std::string bytes;
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < text.size() && text[i] != '='; ++i) {
        const auto value = alphabet.find(text[i]);
        if (value == std::string_view::npos)
            return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        // A byte is whole at the second, third and fourth digit of a group.
        if (i % 4 > 0)
            bytes += static_cast<char>(bits >> (6 - 2 * (i % 4)) & 255);
    }
    // What decodes to these bytes but is written in another way is not their text.
    if (encode(bytes) != text)
        return std::nullopt;
    return bytes;
}

} // namespace tarn::base64
