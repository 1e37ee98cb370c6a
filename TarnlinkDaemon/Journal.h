#pragma once

#include "TarnCore/Value.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/NetworkPreferences.h"
#include "TarnSystem/SystemClock.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// A network service as people and the system call it.
struct ServiceName {
    std::string serviceID;
    std::string name;

    friend bool operator==(const ServiceName &, const ServiceName &) = default;
};

/// What the daemon has changed on this machine, or is about to, and how to undo it. It is on disk
/// before anything that takes a path away is changed.
struct Journal {
    struct SavedProtocol {
        std::string serviceID;
        IPProtocol protocol = IPProtocol::ipv4;
        /// As it was before.
        ProtocolConfiguration configuration;

        friend bool operator==(const SavedProtocol &, const SavedProtocol &) = default;
    };
    /// Wi-Fi taken off. Where the settings changed in between, in more than one way.
    struct WiFi {
        /// The last mode, or `radio` when the radio was switched off at any time.
        WiFiOffMode mode = WiFiOffMode::radio;
        /// The services disabled.
        std::vector<ServiceName> services;
        /// The protocols made address-less.
        std::vector<SavedProtocol> protocols;
        /// The journal that told was damaged: all that is off of Wi-Fi has to come on.
        bool isUnknown = false;

        friend bool operator==(const WiFi &, const WiFi &) = default;
    };
    /// A resolver's servers put into another order.
    struct Resolver {
        /// The dynamic store's.
        std::string key;
        std::vector<std::string> before;
        std::vector<std::string> after;

        friend bool operator==(const Resolver &, const Resolver &) = default;
    };

    std::optional<WiFi> wifi;
    /// Tethering services disabled.
    std::vector<ServiceName> disabledServices;
    /// The service order before it was changed.
    std::optional<std::vector<std::string>> order;
    std::vector<Resolver> resolvers;

    bool isEmpty() const { return *this == Journal(); }

    /// A dictionary whose "version" is 1.
    Value encoded() const;
    /// Throws DecodingError for anything that encoded() does not write.
    static Journal decode(const Value &value);

    friend bool operator==(const Journal &, const Journal &) = default;
};

/// A pause of the protection, with an end that no restart, sleep or set clock moves.
struct Pause {
    /// By both clocks. Within one run of the system the one since boot counts, after a restart
    /// the wall clock, but never for longer than `length`.
    Moment end;
    /// The run of the system to which `end.sinceBoot` belongs.
    std::string bootID;
    std::chrono::nanoseconds length{};

    /// What is left of it; zero or less when it is over.
    std::chrono::nanoseconds remaining(const Moment &now, const std::string &currentBootID) const;

    Value encoded() const;
    /// Throws DecodingError.
    static Pause decode(const Value &value);

    friend bool operator==(const Pause &, const Pause &) = default;
};

} // namespace tarn
