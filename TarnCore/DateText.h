#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// A moment on the wall clock, UTC.
using Date = std::chrono::sys_time<std::chrono::nanoseconds>;

/// Dates as text: ISO 8601 in the form of RFC 3339, whole seconds.
namespace dates {

/// Such as "2026-01-02T03:04:05Z"; what is less than a second is cut off.
std::string text(Date date);

/// Reads "2026-01-02T03:04:05" followed by "Z" or an offset such as "+01:00". None for anything else, a
/// fraction of a second and a day that does not exist included, and for years before 1678 and after 2261,
/// which a Date cannot hold.
std::optional<Date> parse(std::string_view text);

} // namespace dates
} // namespace tarn
