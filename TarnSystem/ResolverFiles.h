#pragma once

#include "TarnSystem/IPAddress.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// The servers of a `resolv.conf` (resolv.conf(5)), in their order, as written.
std::vector<std::string> resolvConfServers(std::string_view text);

/// A DHCPv4 lease that a client left in a file.
struct DHCPLease {
    /// Which interface it is for: its name, or its index where only that is known.
    std::string device;
    unsigned linkIndex = 0;
    std::string address;
    std::vector<std::string> dnsServers;
    /// Seconds since 1970; none when the lease does not end or the file does not say.
    std::optional<std::int64_t> expires;

    friend bool operator==(const DHCPLease &, const DHCPLease &) = default;
};

/// Whether a file of this name can hold leases.
bool isLeaseFile(std::string_view fileName);

/// The leases in one file of systemd-networkd (named by interface index), NetworkManager
/// ("internal-UUID-DEVICE.lease") or dhclient ("...leases", dhclient.leases(5)); for each
/// interface the last one. What cannot be read as a lease gives none.
std::vector<DHCPLease> leasesInFile(std::string_view fileName, std::string_view text);

} // namespace tarn
