#pragma once

#include "Platform/Linux/BusConnection.h"
#include "TarnSystem/NetworkPicture.h"
#include "TarnSystem/SystemVisibility.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// What systemd-resolved and NetworkManager tell over the system bus. Nothing is activated:
/// a service that does not run is left alone.
///
/// Thread: one at a time. No answer is waited for longer than a quarter of a second, and a service
///   that let it pass is not asked again before the next update().
class SystemBus {
public:
    /// Opens the bus when it is not open and learns which of the two services run. Fills the
    /// three bus fields of the visibility.
    void update(SystemVisibility &visibility);

    /// Name servers and domains by interface. None when the service does not run or does not answer; the
    /// visibility then says which.
    std::optional<std::vector<NetworkPicture::Servers>> resolvedServers(SystemVisibility &visibility);
    std::optional<std::vector<NetworkPicture::Servers>> networkManagerServers(SystemVisibility &visibility);

    /// The devices on which NetworkManager has a profile active, or is about to have. None when it
    /// does not run or does not answer; the visibility then says which.
    std::optional<std::vector<NetworkPicture::Managed>> activeDevices(SystemVisibility &visibility);

    /// An access point, as NetworkManager tells of it.
    struct AccessPoint {
        /// The network's name, bytes of any sort; empty when it is hidden.
        std::string ssid;
        std::uint32_t megahertz = 0;
        /// Strength of its signal in percent.
        unsigned strength = 0;
    };
    /// The one that a wireless device uses; absent without one and when NetworkManager does not answer.
    std::optional<AccessPoint> activeAccessPoint(const std::string &device);

    /// Whether NetworkManager lets Wi-Fi have power; absent when it does not run or answer.
    std::optional<bool> networkManagerWiFiEnabled();

private:
    BusService resolved_{"org.freedesktop.resolve1"};
    BusService networkManager_{"org.freedesktop.NetworkManager"};
    BusConnection bus_{{&resolved_, &networkManager_}, std::chrono::milliseconds(250)};
};

} // namespace tarn
