#pragma once

#include "Platform/macOS/CFRef.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// The text of a CFString as UTF-8; none for null and for an object of another type.
std::optional<std::string> text(CFTypeRef object);

/// The texts of an array; none for null and when one element is no string.
std::optional<std::vector<std::string>> textList(CFArrayRef array);

/// A CFString; null when the text is not UTF-8.
CFRef<CFStringRef> makeCFString(std::string_view utf8);

} // namespace tarn
