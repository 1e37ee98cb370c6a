#pragma once

#include "TarnSystem/Supervisor.h"

namespace tarn {

/// launchd(8) watches the process itself: it wants to hear nothing and expects nothing at intervals.
class LaunchdSupervisor final : public Supervisor {
public:
    void ready() override {}
    void stopping() override {}
    std::optional<MainActor::Duration> watchdogInterval() override { return std::nullopt; }
    void alive() override {}
};

} // namespace tarn
