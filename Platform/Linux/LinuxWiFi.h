#pragma once

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/LinuxNetwork.h"
#include "TarnSystem/WiFiClient.h"

#include <chrono>

namespace tarn {

/// Wi-Fi as NetworkManager tells of it where it runs, else as the kernel's rfkill does. The
/// default interface is the first wireless device; NetworkManager switches all of them at once.
///
/// Thread: as WiFiClient; but setPower() may run on another thread meanwhile.
class LinuxWiFi final : public WiFiClient {
public:
    explicit LinuxWiFi(LinuxNetwork &network) : network_(network) {}
    std::optional<bool> powerOn() override;
    std::optional<Interface> interface() override;
    PowerResult setPower(bool on) override;

private:
    static constexpr std::chrono::seconds longestWait{5};

    PowerResult switchPower(bool on);

    LinuxNetwork &network_;
    /// Of setPower() alone. Kept open, so that a request does not wait for greetings.
    BusService manager_{"org.freedesktop.NetworkManager"};
    BusConnection bus_{{&manager_}, longestWait};
};

} // namespace tarn
