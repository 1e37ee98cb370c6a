#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// What an interface is for the purpose of switching. Set by the state reader.
enum class InterfaceKind { wifi, wired, other };

/// The coded form: "wifi", "wired" or "other".
std::string_view rawValue(InterfaceKind kind);
/// The kind with this coded form; none for any other text.
std::optional<InterfaceKind> interfaceKind(std::string_view rawValue);

/// One IPv6 address of an interface.
struct IPv6Address {
    /// As read from the system, possibly with a zone suffix ("%" and the interface name).
    std::string address;
    /// The per-address flag word in the layout of the BSD kernels (netinet6/in6_var.h, IN6_IFF_*).
    std::int64_t flags = 0;

    static constexpr std::int64_t tentativeFlag = 0x02;
    static constexpr std::int64_t duplicatedFlag = 0x04;
    static constexpr std::int64_t deprecatedFlag = 0x10;
    static constexpr std::int64_t temporaryFlag = 0x80;

    bool isTentative() const { return (flags & tentativeFlag) != 0; }
    bool isDuplicated() const { return (flags & duplicatedFlag) != 0; }
    bool isDeprecated() const { return (flags & deprecatedFlag) != 0; }
    bool isTemporary() const { return (flags & temporaryFlag) != 0; }

    friend bool operator==(const IPv6Address &, const IPv6Address &) = default;
};

/// A network interface and the network service bound to it, at one instant. A plain value:
/// facts as read, and the predicates that every consumer must compute alike.
struct InterfaceSnapshot {
    /// Interface name such as "en7"; probe results are kept under it.
    std::string device;
    InterfaceKind kind = InterfaceKind::other;
    /// Absent when no service is bound to the interface.
    std::optional<std::string> serviceID;
    /// The name that people see; used in reasons, actions and statuses.
    std::string serviceName;
    bool serviceEnabled = true;
    /// Position in the system's service order; absent when the service is not in it.
    std::optional<std::int64_t> serviceOrderIndex;
    /// The physical link is up.
    bool linkActive = false;
    /// Textual addresses in the order read.
    std::vector<std::string> ipv4;
    std::vector<IPv6Address> ipv6;
    std::optional<std::string> ipv4Router;
    std::optional<std::string> ipv6Router;
    bool hasDHCPLease = false;
    /// Name servers configured for the service.
    std::vector<std::string> dnsServers;
    /// A phone or tablet that shares its connection.
    bool isTethering = false;

    /// Wired, and bound to a service.
    bool isWiredCandidate() const { return kind == InterfaceKind::wired && serviceID.has_value(); }
    /// The routable entries of `ipv4`, in their order.
    std::vector<std::string> routableIPv4() const;
    /// The routable entries of `ipv6` that are neither tentative nor duplicated, in their order.
    std::vector<IPv6Address> routableIPv6() const;
    /// The first entry of `routableIPv4` or `routableIPv6`; null when there is none. Owned by
    /// this snapshot.
    const std::string *firstRoutableIPv4() const;
    const IPv6Address *firstRoutableIPv6() const;
    /// There is link and at least one routable address. Allocates nothing.
    bool hasRoutableAddress() const;
    /// A router of either family, or a DHCP lease.
    bool hasGateway() const { return ipv4Router || ipv6Router || hasDHCPLease; }

    friend bool operator==(const InterfaceSnapshot &, const InterfaceSnapshot &) = default;
};

} // namespace tarn
