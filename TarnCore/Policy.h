#pragma once

#include "TarnCore/InterfaceSnapshot.h"
#include "TarnCore/Status.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarn {

/// What is known from DNS probes about the path through one interface. Kept by the caller.
struct ProbeState {
    enum class Kind {
        failing,       ///< The last `consecutive` probes failed.
        notApplicable, ///< Probing is switched off, or there is no server to ask; counts as verified.
        pending,       ///< A probe is under way.
        ok,            ///< The last probe succeeded.
    };

    Kind kind = Kind::pending;
    /// Number of failed probes in a row; 0 unless failing.
    std::int64_t consecutive = 0;

    static ProbeState failing(std::int64_t consecutive) { return {Kind::failing, consecutive}; }
    static ProbeState notApplicable() { return {Kind::notApplicable, 0}; }
    static ProbeState pending() { return {Kind::pending, 0}; }
    static ProbeState ok() { return {Kind::ok, 0}; }

    bool isVerified() const { return kind == Kind::ok || kind == Kind::notApplicable; }

    friend bool operator==(const ProbeState &, const ProbeState &) = default;
};

/// Probe states by interface name.
using ProbeStates = std::unordered_map<std::string, ProbeState>;

/// The control inputs of the policy.
struct TarnControl {
    /// The policy is in force at all.
    bool enabled;
    /// An administrator has paused it for a while.
    bool paused;
    /// Current Wi-Fi power.
    bool wifiPowerOn;
    /// The user switched Wi-Fi off, and the configuration says to respect that.
    bool wifiManuallyOff;
    /// How many failed probes in a row make a wired path count as broken.
    std::int64_t probeFailuresBeforeFallback;
    /// Disable tethering services while a wired path that is no tethering is verified.
    bool disableTetheringWhileWired;

    friend bool operator==(const TarnControl &, const TarnControl &) = default;
};

/// One thing for the executor to do.
struct Action {
    enum class Kind { setWiFiPower, enableService, disableService, reorderServices, probe };

    Kind kind;
    /// `setWiFiPower`: the wanted power.
    bool power = false;
    /// `enableService`, `disableService`.
    std::string serviceID;
    std::string name;
    /// `reorderServices`: service identifiers in the wanted order.
    std::vector<std::string> order;
    /// `probe`: interface name.
    std::string device;

    static Action setWiFiPower(bool power);
    static Action enableService(std::string serviceID, std::string name);
    static Action disableService(std::string serviceID, std::string name);
    static Action reorderServices(std::vector<std::string> order);
    static Action probe(std::string device);

    friend bool operator==(const Action &, const Action &) = default;

private:
    explicit Action(Kind of) : kind(of) {}
};

/// What to do, what that amounts to, and why.
struct Decision {
    /// In execution order: at most one reorder, services, at most one power action, at most one probe.
    std::vector<Action> actions;
    Status status;
    /// One English line for logs and diagnostics.
    std::string reason;

    friend bool operator==(const Decision &, const Decision &) = default;
};

/// The switching policy.
class Policy {
public:
    /// Decides from the facts alone. Pure: equal inputs give equal decisions; never fails.
    static Decision decide(const std::vector<InterfaceSnapshot> &interfaces, const ProbeStates &probes,
                           const TarnControl &control);

private:
    static std::string describeAddresses(const InterfaceSnapshot &snapshot);
};

} // namespace tarn
