#pragma once

#include <string>

namespace tarn {

/// What our programs wrote into the system's log lately.
///
/// Thread: any; a call blocks for as long as the system's log command takes.
class RecentLog {
public:
    virtual ~RecentLog() = default;
    /// The lines of the last quarter of an hour: standard output and standard error of the system's log
    /// command, in the order written, byte for byte. `subsystem` is the identifier under which they were
    /// written; a system whose log knows programs instead looks for ours.
    /// Throws std::runtime_error with the system's words when the command cannot be started.
    virtual std::string read(const std::string &subsystem) = 0;
};

} // namespace tarn
