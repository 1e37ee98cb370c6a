#pragma once

#include "TarnCore/Value.h"

#include <string>
#include <string_view>

namespace tarn {

/// A record with a checksum over its JSON form, as the contents of a file. A bit that has turned in a
/// text often leaves a text; what the journal says must be what was written. It keeps out decay, not
/// people: who may write the file may also compute the sum.
std::string seal(const Value &record);

/// The record again. Throws DecodingError when the text is no sealed record or was changed.
Value unseal(std::string_view text);

} // namespace tarn
