#pragma once

#include "TarnSystem/IPAddress.h"
#include "TarnSystem/ResolverFiles.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// What a Linux kernel and the programs around it tell of the network at one moment.
/// Plain facts; what they mean is SynthesizedStore's business.
struct NetworkPicture {
    struct Link {
        unsigned index = 0;
        std::string name;
        /// ARPHRD_* (linux/if_arp.h).
        std::uint16_t hardwareType = 0;
        /// IFLA_INFO_KIND, such as "veth" or "bridge"; empty for a physical device.
        std::string linkKind;
        /// Index of the device that this one is enslaved to; 0 for none.
        unsigned master = 0;
        bool isLoopback = false;
        /// Administratively up and carrier present.
        bool hasCarrier = false;
        /// How often the carrier has come and gone (IFLA_CARRIER_CHANGES).
        std::uint32_t carrierChanges = 0;
        bool isWireless = false;
        /// Nothing but the kernel's list tells of this device: it may be wireless or not.
        bool isUndescribed = false;
        /// Kernel driver; empty where there is none.
        std::string driver;
        /// Name given by an administrator (IFLA_IFALIAS).
        std::string alias;

        friend bool operator==(const Link &, const Link &) = default;
    };
    struct Address {
        unsigned link = 0;
        IPAddress address;
        unsigned prefixLength = 0;
        /// IFA_F_* (linux/if_addr.h).
        std::uint32_t flags = 0;

        friend bool operator==(const Address &, const Address &) = default;
    };
    /// A default route through a router.
    struct DefaultRoute {
        unsigned link = 0;
        bool isIPv6 = false;
        IPAddress gateway;
        /// Lower is preferred.
        std::uint32_t metric = 0;

        friend bool operator==(const DefaultRoute &, const DefaultRoute &) = default;
    };
    struct Servers {
        /// Interface index or name, as the source tells it; neither for servers of all links.
        unsigned link = 0;
        std::string device;
        std::vector<std::string> addresses;
        /// Domains whose names are asked of these servers.
        std::vector<std::string> domains = {};
    };
    /// A device that NetworkManager manages.
    struct Managed {
        std::string device;
        /// The active profile's name for people; empty when no profile is active.
        std::string profile;
        /// We disabled its service, and nobody has enabled it since.
        bool isDisabled = false;
    };

    std::vector<Link> links;
    std::vector<Address> addresses;
    std::vector<DefaultRoute> defaultRoutes;
    std::vector<DHCPLease> leases;
    /// What systemd-resolved, NetworkManager and `resolv.conf` say, each if it is there.
    std::vector<Servers> resolvedServers;
    std::vector<Servers> networkManagerServers;
    std::vector<std::string> resolvConfServers;
    std::vector<Managed> managed;
    /// When the picture was taken, in seconds since 1970.
    std::int64_t takenAt = 0;
};

} // namespace tarn
