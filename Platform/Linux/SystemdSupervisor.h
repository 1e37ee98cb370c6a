#pragma once

#include "TarnSystem/Supervisor.h"

namespace tarn {

/// systemd, where it started this process as a service of Type=notify (sd_notify(3)).
class SystemdSupervisor final : public Supervisor {
public:
    void ready() override;
    void stopping() override;
    /// Half of the unit's WatchdogSec=, as sd_watchdog_enabled(3) advises.
    std::optional<MainActor::Duration> watchdogInterval() override;
    void alive() override;
};

} // namespace tarn
