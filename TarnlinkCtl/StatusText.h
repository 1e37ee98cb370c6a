#pragma once

#include "TarnXPC/Records.h"

#include <string>

namespace tarn::statusText {

/// The whole report for a person at a terminal, as of `now`; several lines, in the time zone of the process.
/// What the daemon sent cannot disturb the terminal.
std::string describe(const StatusReport &report, Date now);

/// Such as "14:05", with the day before it when that is not today's.
std::string localTime(Date date, Date now);
/// A text of several lines without what would disturb a terminal; ends with a line feed unless empty.
std::string printableLines(std::string_view text);

} // namespace tarn::statusText
