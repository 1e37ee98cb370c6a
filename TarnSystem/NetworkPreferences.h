#pragma once

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

} // namespace tarn
