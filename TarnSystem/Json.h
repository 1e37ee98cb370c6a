#pragma once

#include "TarnCore/Value.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

/// JSON documents (RFC 8259) as trees of plain data.
namespace tarn::json {

/// Where and why a text is not JSON.
struct SyntaxError {
    /// Both count from 1; the column counts bytes.
    std::size_t line = 1;
    std::size_t column = 1;
    std::string message;
};

/// Reads one document. Comments of the forms // and /* */ are skipped. A number without
/// fraction and exponent that fits 64 bits signed is an integer, every other one a double.
/// Errors beyond RFC 8259: nesting deeper than 64 levels, a key that stands twice in an object,
/// a number too large for a double.
std::variant<Value, SyntaxError> parse(std::string_view text);

/// Writes a document; `indent` spaces a level, on one line when it is negative. Text that is
/// not UTF-8 is written with U+FFFD in place of each byte that is broken. No dictionary may have a key
/// twice.
std::string serialize(const Value &value, int indent = -1);

} // namespace tarn::json
