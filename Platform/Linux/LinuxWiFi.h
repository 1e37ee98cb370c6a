#pragma once

#include "Platform/Linux/LinuxNetwork.h"
#include "TarnSystem/WiFiClient.h"

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
    LinuxNetwork &network_;
};

} // namespace tarn
