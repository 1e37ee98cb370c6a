#pragma once

#include "Platform/Linux/LinuxProcessLauncher.h"
#include "TarnSystem/RecentLog.h"

namespace tarn {

/// From the journal, by journalctl(1): what our units wrote, what the system says of them, and what this
/// user's menu application wrote. Who may not read the system's journal gets what journalctl says of that.
///
/// Ownership: the launcher must outlive this.
class JournalLog final : public RecentLog {
public:
    explicit JournalLog(LinuxProcessLauncher &processes) : processes_(processes) {}
    std::string read(const std::string &subsystem) override;

private:
    LinuxProcessLauncher &processes_;
};

} // namespace tarn
