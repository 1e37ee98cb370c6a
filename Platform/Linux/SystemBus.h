#pragma once

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/BusNews.h"
#include "TarnSystem/NetworkPicture.h"
#include "TarnSystem/SystemVisibility.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// What systemd-resolved and NetworkManager tell over the system bus. Nothing is activated:
/// a service that does not run is left alone. What was answered is kept until a change is heard of, for
/// at most a minute, and only while somebody listens for changes.
///
/// Thread: one at a time. No answer is waited for longer than a quarter of a second, and a service
///   that let it pass is not asked again before the next update().
class SystemBus {
public:
    /// `news` must outlive this.
    explicit SystemBus(const BusNews &news) : news_(news) {}

    /// Opens the bus when it is not open and learns which of the two services run. Fills the
    /// three bus fields of the visibility.
    void update(SystemVisibility &visibility);
    /// Whatever is wanted next is asked anew.
    void forget() { memory_ = {}; }

    /// Name servers and domains by interface. None when the service does not run or does not answer; the
    /// visibility then says which.
    std::optional<std::vector<NetworkPicture::Servers>> resolvedServers(SystemVisibility &visibility);
    std::optional<std::vector<NetworkPicture::Servers>> networkManagerServers(SystemVisibility &visibility);

    /// The devices on which NetworkManager has a profile active, or is about to have, and as disabled
    /// those that it manages and nobody wants connected. None when it does not run or does not answer;
    /// the visibility then says which.
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
    /// What was answered, and to what it belongs.
    struct Memory {
        std::optional<std::uint64_t> news;
        unsigned serviceChanges = 0;
        std::chrono::steady_clock::time_point since;
        std::optional<std::vector<NetworkPicture::Servers>> resolvedServers;
        std::optional<std::vector<NetworkPicture::Servers>> networkManagerServers;
        std::optional<std::vector<NetworkPicture::Managed>> activeDevices;
        std::optional<bool> isWiFiEnabled;
    };

    const BusNews &news_;
    Memory memory_;
    BusService resolved_{"org.freedesktop.resolve1"};
    BusService networkManager_{"org.freedesktop.NetworkManager"};
    BusConnection bus_{{&resolved_, &networkManager_}, std::chrono::milliseconds(250)};
};

} // namespace tarn
