#include "Platform/Linux/JournalLog.h"

#include <stdexcept>
#include <unistd.h>

namespace tarn {

std::string JournalLog::read(const std::string &) {
    // systemd.journal-fields(7); "+" is an or.
    const auto result = processes_.runMerged(
        "/usr/bin/journalctl",
        {"--no-pager", "--output=short-iso-precise", "--since=-15min", "_SYSTEMD_UNIT=tarnlink.service",
         "_SYSTEMD_UNIT=tarnlink-updater.service", "+", "_PID=1", "UNIT=tarnlink.service",
         "UNIT=tarnlink-updater.service", "+", "_COMM=TarnlinkMenu", "_UID=" + std::to_string(getuid())});
    if (result.launchError)
        throw std::runtime_error(*result.launchError);
    return result.standardOutput;
}

} // namespace tarn
