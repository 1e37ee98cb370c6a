#pragma once

#include "Platform/Linux/BusConnection.h"
#include "TarnSystem/HostSurvey.h"
#include "TarnXPC/TarnXPC.h"

namespace tarn {

/// Asks the system bus, NetworkManager, polkit, systemd-logind's files (sd-login(3)) and /proc/sys
/// (Documentation/networking/ip-sysctl).
class LinuxHostSurvey final : public HostSurvey {
public:
    System system() const override { return System::gnuLinux; }
    bool hasBus() override;
    bool isRegistered() override;
    std::optional<bool> isPublished() override;
    std::optional<bool> isManaged(const std::string &device) override;
    bool isReversePathStrict(const std::string &device) override;
    std::optional<bool> hasAuthenticationAgent() override;

private:
    BusService daemon_{TarnXPC::machServiceName};
    BusService manager_{"org.freedesktop.NetworkManager"};
    BusService polkit_{.name = "org.freedesktop.PolicyKit1", .startsOnDemand = true};
    BusConnection bus_{{&daemon_, &manager_}, std::chrono::milliseconds(500)};
};

} // namespace tarn
