#pragma once

#include "TarnSystem/DynamicStore.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Resolvers that the system uses for particular domains only (split DNS), and those of them that a
/// phone's link-local resolver shadows: it stands first and does not know the domain.
///
/// Thread: that of the store. Errors: none; what cannot be read is not there.
namespace tarn::VPNSplitDNS {

/// The client name under which sessions are opened.
inline constexpr const char *clientName = "TarnlinkDNS";
/// Where the store keeps the resolvers of services, and the two entries that count.
inline constexpr const char *keyPattern = "State:/Network/Service/[^/]+/DNS";
inline constexpr const char *serversKey = "ServerAddresses";
inline constexpr const char *domainsKey = "SupplementalMatchDomains";

/// The resolver of a service that serves some domains only.
struct Resolver {
    /// The store's.
    std::string key;
    /// In the order in which the system asks them.
    std::vector<std::string> servers;
    /// At least one.
    std::vector<std::string> domains;

    friend bool operator==(const Resolver &, const Resolver &) = default;
};

/// The same for one of its domains.
struct ScopedResolver {
    std::string domain;
    /// In the order in which the system asks them.
    std::vector<std::string> servers;

    friend bool operator==(const ScopedResolver &, const ScopedResolver &) = default;
};

/// A link-local resolver that stands before a domain's other resolvers.
struct Suspect {
    /// The zone of the server's address: the interface behind which it is.
    std::string device;
    std::string domain;
    /// With its zone.
    std::string server;

    friend bool operator==(const Suspect &, const Suspect &) = default;
};

/// Opens a session under a client name; null when the system refuses one.
using StoreOpener = std::function<std::unique_ptr<DynamicStore>(const std::string &clientName)>;

/// In the order of the store's keys.
std::vector<Resolver> resolvers(DynamicStore &store);

/// One for each domain, in their order.
std::vector<ScopedResolver> scoped(const Resolver &resolver);
/// One for each domain of each service, in the order of the store's keys.
std::vector<ScopedResolver> scopedResolvers(DynamicStore &store);
/// The same from a session of its own.
std::vector<ScopedResolver> scopedResolvers(const StoreOpener &openStore);

/// In the order of the resolvers. A resolver with a single server shadows nothing.
std::vector<Suspect> suspects(const std::vector<ScopedResolver> &resolvers);

/// Whether one of the suspects is behind this interface.
bool tetheringResolverShadowsSplitDNS(const std::vector<ScopedResolver> &resolvers, std::string_view device);

} // namespace tarn::VPNSplitDNS
