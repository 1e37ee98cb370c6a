#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Conversions between text and numbers with one fixed meaning everywhere.
namespace tarn::text {

/// A decimal number: an optional sign, then digits only, within 64 bits signed.
/// Anything else, blanks and overflow included, is no number.
std::optional<std::int64_t> parseInteger(std::string_view text);

/// The same for hexadecimal digits of either case; a prefix such as "0x" is not accepted.
std::optional<std::int64_t> parseHexadecimal(std::string_view text);

/// The shortest digits that read back as the same number, always with a point or an
/// exponent: 2.0, 0.3. Plain notation from 0.0001 up to below 10^16, otherwise such as 1e-05.
std::string fromDouble(double number);

/// Takes the next non-empty piece off the front of `rest`; none when only separators remain.
std::optional<std::string_view> nextPiece(std::string_view &rest, char separator);

/// Whether all of it is UTF-8 (RFC 3629): no overlong form, no surrogate, nothing above U+10FFFF.
bool isUTF8(std::string_view text);

/// The same text if it is UTF-8, else with U+FFFD in place of every byte that belongs to no
/// whole character.
std::string withValidUTF8(std::string_view bytes);

/// The text as it may stand within one line at a terminal: controls, line separators and marks that
/// turn the writing direction become such as "\u000a", each byte that is no UTF-8 becomes U+FFFD.
std::string printable(std::string_view text);

} // namespace tarn::text
