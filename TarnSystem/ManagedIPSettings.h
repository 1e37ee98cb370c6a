#pragma once

#include "TarnSystem/IPAddress.h"
#include "TarnSystem/NetworkPreferences.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// What counts of an "ipv4" or "ipv6" setting of NetworkManager (nm-settings-dbus(5)).
struct ManagedIPSettings {
    struct Address {
        IPAddress address;
        unsigned prefixLength = 0;

        friend bool operator==(const Address &, const Address &) = default;
    };

    /// "auto", "manual", "disabled" ...
    std::string method;
    std::vector<Address> addresses;
    std::optional<IPAddress> gateway;

    friend bool operator==(const ManagedIPSettings &, const ManagedIPSettings &) = default;
};

/// The setting in the words of the property list: "ConfigMethod" ("DHCP" or "Automatic", "Manual",
/// "Off", "LinkLocal"); when it is manual also "Addresses", "SubnetMasks" or "PrefixLength", and
/// "Router". None for a method or an address that NetworkManager does not have in this protocol.
std::optional<ProtocolConfiguration> configurationFromManaged(const ManagedIPSettings &settings,
                                                              IPProtocol protocol);

/// The way back. A protocol that is not enabled is off. None for another method, and for lists
/// that do not belong together or hold no addresses of this protocol.
std::optional<ManagedIPSettings> managedFromConfiguration(const ProtocolConfiguration &configuration,
                                                          IPProtocol protocol);

/// How a running connection's setting is to be changed.
struct ManagedIPChange {
    /// Entries come from the profile, which is what was configured; else from what is running.
    bool isFromProfile = false;
    /// Absent: as in the entries.
    std::optional<std::string> method;
    /// Written in place of those in the entries.
    std::optional<std::vector<ManagedIPSettings::Address>> addresses;
    /// Goes with `addresses`.
    std::optional<IPAddress> gateway;
    /// The method takes no addresses, name servers or routes.
    bool hasNoAddresses = false;

    /// Whether an entry goes along as it is; the one for "route-metric" never does.
    bool keeps(std::string_view entry, bool hasDNSData) const;
};

/// The change that brings `wanted` about. `profile` is the profile's setting; null when there is
/// none any more. None when NetworkManager has no such configuration.
std::optional<ManagedIPChange> managedChange(const ProtocolConfiguration &wanted, IPProtocol protocol,
                                             const ManagedIPSettings *profile);

} // namespace tarn
