#pragma once

#include "TarnCore/InterfaceSnapshot.h"
#include "TarnSystem/NetworkPreferences.h"
#include "TarnSystem/ServiceController.h"
#include "TarnSystem/SystemStateReading.h"
#include "TarnSystem/VPNSplitDNS.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// Whether a protocol so configured gets no routable address.
bool isAddressLess(const ProtocolConfiguration &configuration, IPProtocol protocol);

/// The network and Wi-Fi at one instant: all that the guard judges by, beside probes.
struct Reading {
    /// A Wi-Fi service. A protocol whose configuration the system does not tell, or not whole, is absent.
    struct WiFiService {
        std::string serviceID;
        std::string name;
        bool enabled = true;
        std::optional<ProtocolConfiguration> ipv4;
        std::optional<ProtocolConfiguration> ipv6;

        /// Neither protocol gets an address; false while one of them is not known.
        bool isAddressLess() const;

        friend bool operator==(const WiFiService &, const WiFiService &) = default;
    };
    using Resolver = VPNSplitDNS::Resolver;

    std::vector<InterfaceSnapshot> interfaces;
    /// Power of the radio; absent when there is no Wi-Fi, or nothing that tells.
    std::optional<bool> wifiPower;
    /// In the order of the interfaces.
    std::vector<WiFiService> wifiServices;
    /// Those for some domains only, in the order of the store's keys.
    std::vector<Resolver> resolvers;

    /// Whether Wi-Fi can carry traffic: the radio has power, and some service of it is enabled and
    /// not address-less. Without Wi-Fi, and where it is not known, it counts as able.
    bool canWiFiCarry() const;

    friend bool operator==(const Reading &, const Reading &) = default;
};

/// Reads the network. Thread: one at a time; blocks for as long as the system takes to answer.
class NetworkReading {
public:
    virtual ~NetworkReading() = default;
    /// `everything`: what seldom changes and is asked of other programs is read anew as well, that is,
    /// how the protocols of Wi-Fi are configured. Throws SystemStateError.
    virtual Reading read(bool everything) = 0;
};

/// Reads the system's state, its services and its resolvers.
///
/// Ownership: what is handed over must outlive this.
class SystemReading final : public NetworkReading {
public:
    SystemReading(SystemStateReading &state, ServiceControlling &services, VPNSplitDNS::StoreOpener openStore)
        : state_(state), services_(services), openStore_(std::move(openStore)) {}

    /// A Wi-Fi interface that looks different from the last time is asked again as well.
    Reading read(bool everything) override;

private:
    SystemStateReading &state_;
    ServiceControlling &services_;
    VPNSplitDNS::StoreOpener openStore_;
    std::unique_ptr<DynamicStore> store_;
    std::vector<InterfaceSnapshot> lastWiFi_;
    std::vector<Reading::WiFiService> lastServices_;
};

} // namespace tarn
