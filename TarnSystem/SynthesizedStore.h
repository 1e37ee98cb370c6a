#pragma once

#include "TarnCore/Value.h"
#include "TarnSystem/NetworkPicture.h"
#include "TarnSystem/NetworkPreferences.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarn {

/// The dynamic store and the services that a system without them would have, made from what
/// its kernel tells. One value is one moment.
///
/// Every device but the loopback has a link key. A service exists for each device that counts
/// as Ethernet and for each wireless one; its identifier follows from the device's name. It has
/// the name of NetworkManager's active profile, else the device's, and is enabled unless we
/// disabled it. The service order is by the metric of the default route, then by index.
///
/// A DNS key also has "SupplementalMatchDomains" where its servers are for the names of some
/// domains. A device without a service, such as a VPN's, has one if these are there.
class SynthesizedStore {
public:
    explicit SynthesizedStore(NetworkPicture picture);
    SynthesizedStore(SynthesizedStore &&) = default;
    SynthesizedStore &operator=(SynthesizedStore &&) = default;

    /// As DynamicStore and NetworkPreferences say.
    std::vector<std::string> keys(std::string_view pattern) const;
    std::optional<Value> value(std::string_view key) const;
    std::vector<std::string> serviceOrder() const;
    std::optional<NetworkService> service(std::string_view serviceID) const;

private:
    struct Device {
        const NetworkPicture::Link *link = nullptr;
        bool hasService = false;
        std::vector<const NetworkPicture::Address *> ipv4;
        std::vector<const NetworkPicture::Address *> ipv6;
        const NetworkPicture::DefaultRoute *route4 = nullptr;
        const NetworkPicture::DefaultRoute *route6 = nullptr;
        const DHCPLease *lease = nullptr;
        std::vector<std::string> dnsServers;
        std::vector<std::string> domains;
        const NetworkPicture::Managed *managed = nullptr;

        std::uint32_t metric() const;
    };

    void assignAddressesAndRoutes();
    void assignLeases();
    void assignServers();
    void assignManaged();
    Device *deviceFor(unsigned index, std::string_view name);
    /// The device from whose name the identifier follows, with or without a service.
    const Device *deviceOfID(std::string_view serviceID) const;
    std::optional<Value> interfaceValue(const Device &device, std::string_view entity) const;
    std::optional<Value> serviceValue(const Device &device, std::string_view entity) const;

    NetworkPicture picture_;
    std::vector<Device> devices_;
    std::unordered_map<unsigned, std::size_t> byIndex_;
    std::unordered_map<std::string_view, std::size_t> byName_;
};

/// The identifier of the service on a device.
std::string serviceIDForDevice(std::string_view device);
/// The device of such an identifier; none for any other text.
std::optional<std::string> deviceForServiceID(std::string_view serviceID);

/// The device of a service's DNS key; none for any other key.
std::optional<std::string> deviceOfDNSKey(std::string_view key);

/// The flag word of an IPv6Address for the kernel's IFA_F_* (linux/if_addr.h).
std::int64_t ipv6FlagsFromLinux(std::uint32_t flags);

/// Whether a key matches a pattern as DynamicStore::copyKeyList describes it.
bool matchesStorePattern(std::string_view pattern, std::string_view key);

} // namespace tarn
