#include "TarnCore/Text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>
#include <system_error>

namespace tarn::text {
namespace {

std::optional<std::int64_t> parse(std::string_view text, int base) {
    // from_chars takes a minus sign but no plus sign.
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-'))
            return std::nullopt;
    }
    std::int64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number, base);
    if (error != std::errc() || stopped != end)
        return std::nullopt;
    return number;
}

/// d.ddd times ten to the power of the exponent.
struct Decimal {
    std::string digits;
    int exponent;

    /// The digits with a point after the first `whole` of them, unless nothing follows.
    std::string withPoint(int whole) const {
        const auto position = static_cast<std::size_t>(whole);
        if (digits.size() <= position)
            return digits;
        return digits.substr(0, position) + "." + digits.substr(position);
    }

    double value() const {
        std::istringstream in(withPoint(1) + "e" + std::to_string(exponent));
        in.imbue(std::locale::classic());
        double number = 0;
        // What is too large is read as the largest number.
        if (!(in >> number) && number > 1)
            return std::numeric_limits<double>::infinity();
        return number;
    }
};

// Streams with the classic locale, because an application may set one with a decimal comma,
// and because floating-point to_chars needs a newer macOS than the oldest supported one.
Decimal rounded(double magnitude, int precision) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << std::scientific << std::setprecision(precision) << magnitude;
    const std::string text = out.str();
    const auto mark = text.find('e');
    Decimal decimal{text.substr(0, mark), static_cast<int>(parse(text.substr(mark + 1), 10).value_or(0))};
    std::erase(decimal.digits, '.');
    return decimal;
}

Decimal shortestDecimal(double number) {
    const double magnitude = std::fabs(number);
    for (int precision = 0; precision < std::numeric_limits<double>::max_digits10 - 1; ++precision) {
        Decimal decimal = rounded(magnitude, precision);
        if (decimal.value() == magnitude)
            return decimal;
        // Above a power of two the numbers lie twice as far apart as below: there the nearest
        // digits may miss it while the next ones do not.
        if (decimal.digits.back() != '9' && ++decimal.digits.back() && decimal.value() == magnitude)
            return decimal;
    }
    return rounded(magnitude, std::numeric_limits<double>::max_digits10 - 1);
}

constexpr std::string_view replacement = "\uFFFD";

struct Character {
    char32_t code;
    std::size_t size;
};

/// The character at the front of a text that is not empty; none when there is no whole one.
std::optional<Character> firstCharacter(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const char32_t first = byte(0);
    if (first < 0x80)
        return Character{first, 1};
    const std::size_t size = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (first < 0xC2 || first > 0xF4 || text.size() < size)
        return std::nullopt;
    char32_t code = first & (0x7Fu >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return std::nullopt;
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    const bool isOverlong = (size == 3 && code < 0x800) || (size == 4 && code < 0x10000);
    if (isOverlong || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF)
        return std::nullopt;
    return Character{code, size};
}

// Unicode, categories Cc, Zl and Zp, and the property Bidi_Control.
bool disturbsLine(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x61C || code == 0x200E ||
           code == 0x200F || (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

} // namespace

std::optional<std::int64_t> parseInteger(std::string_view text) {
    return parse(text, 10);
}

std::optional<std::int64_t> parseHexadecimal(std::string_view text) {
    return parse(text, 16);
}

std::string fromDouble(double number) {
    if (std::isnan(number))
        return "nan";
    if (std::isinf(number))
        return number < 0 ? "-inf" : "inf";
    const Decimal decimal = shortestDecimal(number);
    const auto count = static_cast<int>(decimal.digits.size());
    std::string text = std::signbit(number) ? "-" : "";
    if (number != 0 && (decimal.exponent < -4 || decimal.exponent >= 16)) {
        const auto magnitude = std::to_string(std::abs(decimal.exponent));
        return text + decimal.withPoint(1) + (decimal.exponent < 0 ? "e-" : "e+") +
               (magnitude.size() < 2 ? "0" : "") + magnitude;
    }
    if (decimal.exponent < 0)
        return text + "0." + std::string(static_cast<std::size_t>(-decimal.exponent - 1), '0') +
               decimal.digits;
    const int whole = decimal.exponent + 1;
    if (count > whole)
        return text + decimal.withPoint(whole);
    return text + decimal.digits + std::string(static_cast<std::size_t>(whole - count), '0') + ".0";
}

std::optional<std::string_view> nextPiece(std::string_view &rest, char separator) {
    while (rest.starts_with(separator))
        rest.remove_prefix(1);
    if (rest.empty())
        return std::nullopt;
    const auto piece = rest.substr(0, rest.find(separator));
    rest.remove_prefix(piece.size());
    return piece;
}

bool isUTF8(std::string_view text) {
    while (!text.empty()) {
        const auto character = firstCharacter(text);
        if (!character)
            return false;
        text.remove_prefix(character->size);
    }
    return true;
}

std::string withValidUTF8(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        const auto character = firstCharacter(bytes);
        const auto size = character ? character->size : 1;
        text += character ? bytes.substr(0, size) : replacement;
        bytes.remove_prefix(size);
    }
    return text;
}

std::string printable(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string result;
    while (!text.empty()) {
        const auto character = firstCharacter(text);
        const auto size = character ? character->size : 1;
        if (!character) {
            result += replacement;
        } else if (disturbsLine(character->code)) {
            result += "\\u";
            for (int shift = 12; shift >= 0; shift -= 4)
                result += digits[character->code >> shift & 0xF];
        } else {
            result += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    return result;
}

} // namespace tarn::text
