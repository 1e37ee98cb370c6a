#pragma once

#include "Platform/Linux/LinuxNetwork.h"
#include "TarnSystem/WiFiClient.h"

namespace tarn {

/// Wi-Fi as NetworkManager tells of it where it runs, else as the kernel's rfkill does.
class LinuxWiFi final : public WiFiClient {
public:
    explicit LinuxWiFi(LinuxNetwork &network) : network_(network) {}
    std::optional<bool> powerOn() override;

private:
    LinuxNetwork &network_;
};

} // namespace tarn
