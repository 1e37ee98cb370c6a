#pragma once

#include "TarnXPC/Records.h"
#include "TarnlinkDaemon/Guard.h"
#include "TarnlinkDaemon/History.h"

#include <cstddef>
#include <string>

namespace tarn {

/// How many decisions of the history the diagnostics text tells, the last ones.
inline constexpr std::size_t diagnosedEntries = 200;

/// What the daemon knows, for a person who looks for a fault: English, in the form of DiagnosticsText,
/// with the version and the settings on the first two lines.
std::string diagnostics(const Guard &guard, const History &history, const StatusReport &report);

} // namespace tarn
