#pragma once

#include "TarnCore/Value.h"

#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// A configured network service as the system describes it; what the system does not say is absent.
struct NetworkService {
    /// The service is bound to an interface at all.
    bool hasInterface = false;
    /// Interface name, such as "en0".
    std::optional<std::string> bsdName;
    /// "IEEE80211", "Ethernet" or another type name of the system.
    std::optional<std::string> interfaceType;
    /// The interface's own name for people.
    std::optional<std::string> interfaceDisplayName;
    /// Kernel driver of the interface, where the system tells it.
    std::optional<std::string> driver;
    /// The service's name for people.
    std::optional<std::string> name;
    bool enabled = false;
};

/// A session with the configured network services. It is closed on destruction.
///
/// Thread: one at a time; calls block for as long as the system takes to answer.
/// Errors: none; what cannot be read is absent.
class NetworkPreferences {
public:
    virtual ~NetworkPreferences() = default;

    /// Makes changes since the last call visible.
    virtual void synchronize() = 0;
    /// Service identifiers of the current network set in the system's order of preference;
    /// none when there is no current set or its order is no list of identifiers.
    virtual std::optional<std::vector<std::string>> currentServiceOrder() = 0;
    /// None when there is no such service.
    virtual std::optional<NetworkService> copyService(const std::string &serviceID) = 0;
};

enum class IPProtocol { ipv4, ipv6 };

/// How one protocol of a service is configured.
struct ProtocolConfiguration {
    /// The entries of the system's property list, such as "ConfigMethod"; absent when there are none.
    std::optional<Value> entries;
    bool enabled = true;

    friend bool operator==(const ProtocolConfiguration &, const ProtocolConfiguration &) = default;
};

/// A session that may change the services. Changes are gathered under the lock, become the
/// system's configuration with commitChanges(), and take effect with applyChanges(). Where a
/// system has no such configuration, they are changes of its running state.
///
/// Thread: one at a time; calls block for as long as the system takes.
class NetworkPreferencesEditor : public NetworkPreferences {
public:
    struct Result {
        enum class Kind {
            done,
            busy,        ///< Somebody else holds the lock.
            stale,       ///< Somebody else made a change since the last synchronize().
            notFound,    ///< No such service, protocol or set.
            denied,      ///< This process may not.
            unavailable, ///< What would carry it out is not there or does not answer.
            failed,
        };
        Kind kind = Kind::done;
        /// The system's words for people; empty when done.
        std::string message;
    };

    /// Does not wait for the lock.
    virtual Result lock() = 0;
    /// Releases the lock and drops changes that were not committed.
    virtual void unlock() = 0;
    /// `order` names every service of the current set.
    virtual Result setServiceOrder(const std::vector<std::string> &order) = 0;
    virtual Result setServiceEnabled(const std::string &serviceID, bool enabled) = 0;
    /// None when there is no such service or protocol; needs no lock.
    virtual std::optional<ProtocolConfiguration> copyProtocol(const std::string &serviceID,
                                                              IPProtocol protocol) = 0;
    virtual Result setProtocol(const std::string &serviceID, IPProtocol protocol,
                               const ProtocolConfiguration &configuration) = 0;
    virtual Result commitChanges() = 0;
    virtual Result applyChanges() = 0;
};

} // namespace tarn
