#pragma once

#include "TarnSystem/HostSurvey.h"
#include "TarnSystem/ProcessLauncher.h"

namespace tarn {

/// Asks launchd, by launchctl(1). The rest is the same on every Mac.
class MacHostSurvey final : public HostSurvey {
public:
    explicit MacHostSurvey(ProcessLauncher &processes) : processes_(processes) {}

    System system() const override { return System::macOS; }
    bool hasBus() override { return true; }
    bool isRegistered() override;
    /// launchd holds the name for the daemon, also while it does not run.
    std::optional<bool> isPublished() override { return std::nullopt; }
    std::optional<bool> isManaged(const std::string &) override { return true; }
    /// Packets are not filtered by their way back.
    bool isReversePathStrict(const std::string &) override { return false; }
    std::optional<bool> hasAuthenticationAgent() override { return std::nullopt; }

private:
    ProcessLauncher &processes_;
};

} // namespace tarn
