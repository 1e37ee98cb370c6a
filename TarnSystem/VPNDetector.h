#pragma once

#include "TarnSystem/KernelTables.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Finds the VPN tunnel that is up, by the names of interfaces and their addresses.
///
/// Thread: any. Errors: none; what cannot be read is not there.
namespace tarn::VPNDetector {

struct Tunnel {
    std::string device;
    /// Numeric, without a zone.
    std::string address;

    friend bool operator==(const Tunnel &, const Tunnel &) = default;
};

/// A tunnel interface and its addresses as numeric text without zones, in the system's order.
struct TunnelInterface {
    std::string device;
    std::vector<std::string> ipv4;
    std::vector<std::string> ipv6;

    friend bool operator==(const TunnelInterface &, const TunnelInterface &) = default;
};

/// What the names of tunnel interfaces begin with.
inline constexpr std::array<std::string_view, 6> tunnelPrefixes = {"utun", "ipsec", "ppp",
                                                                   "tap",  "tun",   "gpd"};

bool isTunnelDevice(std::string_view device);

/// The tunnel interfaces that have an address, in the order in which they first appear.
std::vector<TunnelInterface> tunnelInterfaces(KernelTables &tables);

/// The first tunnel with a routable address (AddressClassifier) and its first such address, IPv4 before
/// IPv6. Interfaces that are no tunnels are passed over.
std::optional<Tunnel> activeTunnel(const std::vector<TunnelInterface> &interfaces);
std::optional<Tunnel> activeTunnel(KernelTables &tables);

} // namespace tarn::VPNDetector
