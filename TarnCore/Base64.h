#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Bytes as text: RFC 4648, section 4.
namespace tarn::base64 {

std::string encode(std::string_view bytes);

/// Strict: none for blanks, line breaks, missing or wrong padding, and bits in the last character that belong
/// to no byte. So each sequence of bytes has one text.
std::optional<std::string> decode(std::string_view text);

} // namespace tarn::base64
