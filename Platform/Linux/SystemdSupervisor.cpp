#include "Platform/Linux/SystemdSupervisor.h"

#include <chrono>
#include <cstdint>
#include <systemd/sd-daemon.h>

namespace tarn {

void SystemdSupervisor::ready() {
    sd_notify(0, "READY=1");
}

void SystemdSupervisor::stopping() {
    sd_notify(0, "STOPPING=1");
}

std::optional<MainActor::Duration> SystemdSupervisor::watchdogInterval() {
    std::uint64_t microseconds = 0;
    if (sd_watchdog_enabled(0, &microseconds) <= 0)
        return std::nullopt;
    return std::chrono::microseconds(microseconds / 2);
}

void SystemdSupervisor::alive() {
    sd_notify(0, "WATCHDOG=1");
}

} // namespace tarn
