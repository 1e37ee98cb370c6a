#include "TarnCore/Policy.h"

#include "TarnCore/ServiceOrder.h"

#include <algorithm>
#include <compare>
#include <tuple>
#include <utility>

namespace tarn {
namespace {

/// Cables before phones, then the system's service order; a service without a place comes last.
struct Rank {
    bool isTethering;
    bool isUnordered;
    std::int64_t orderIndex;

    auto operator<=>(const Rank &) const = default;
};

Rank rank(const InterfaceSnapshot &snapshot) {
    return {snapshot.isTethering, !snapshot.serviceOrderIndex, snapshot.serviceOrderIndex.value_or(0)};
}

/// Of equal rank, the earlier in the input stands first.
bool standsBefore(const InterfaceSnapshot &snapshot, const InterfaceSnapshot *best) {
    return !best || rank(snapshot) < rank(*best);
}

ProbeState probeState(const ProbeStates &probes, const InterfaceSnapshot &snapshot) {
    const auto found = probes.find(snapshot.device);
    return found == probes.end() ? ProbeState::pending() : found->second;
}

Decision withoutProtection(const TarnControl &control, Status status, std::string reason) {
    Decision decision{{}, std::move(status), std::move(reason)};
    if (!control.wifiPowerOn)
        decision.actions.push_back(Action::setWiFiPower(true));
    return decision;
}

void appendServiceActions(const std::vector<InterfaceSnapshot> &interfaces, bool tetheringSuppressed,
                          std::vector<Action> &actions) {
    std::vector<const InterfaceSnapshot *> changing;
    for (const auto &snapshot : interfaces) {
        if (!snapshot.isWiredCandidate())
            continue;
        const bool wantEnabled = !(tetheringSuppressed && snapshot.isTethering);
        const bool hasSay = snapshot.linkActive || (snapshot.isTethering && !snapshot.serviceEnabled);
        if (hasSay && wantEnabled != snapshot.serviceEnabled)
            changing.push_back(&snapshot);
    }
    const auto byRank = [](const auto *snapshot) { return rank(*snapshot); };
    if (!std::ranges::is_sorted(changing, {}, byRank))
        std::ranges::stable_sort(changing, {}, byRank);
    for (const auto *snapshot : changing)
        actions.push_back(snapshot->serviceEnabled
                              ? Action::disableService(*snapshot->serviceID, snapshot->serviceName)
                              : Action::enableService(*snapshot->serviceID, snapshot->serviceName));
}

} // namespace

Action Action::setWiFiPower(bool power) {
    Action action(Kind::setWiFiPower);
    action.power = power;
    return action;
}

Action Action::enableService(std::string serviceID, std::string name) {
    Action action(Kind::enableService);
    action.serviceID = std::move(serviceID);
    action.name = std::move(name);
    return action;
}

Action Action::disableService(std::string serviceID, std::string name) {
    Action action = enableService(std::move(serviceID), std::move(name));
    action.kind = Kind::disableService;
    return action;
}

Action Action::reorderServices(std::vector<std::string> order) {
    Action action(Kind::reorderServices);
    action.order = std::move(order);
    return action;
}

Action Action::probe(std::string device) {
    Action action(Kind::probe);
    action.device = std::move(device);
    return action;
}

Decision Policy::decide(const std::vector<InterfaceSnapshot> &interfaces, const ProbeStates &probes,
                        const TarnControl &control) {
    if (!control.enabled)
        return withoutProtection(control, Status::disabled(), "guard disabled by policy");
    if (control.paused)
        return withoutProtection(control, Status::paused(), "guard paused");

    // What comes first in rank needs no sorting.
    const InterfaceSnapshot *firstLinked = nullptr;
    const InterfaceSnapshot *decisive = nullptr;
    const InterfaceSnapshot *unreachable = nullptr;
    ProbeState decisiveState;
    bool cableVerified = false;
    for (const auto &snapshot : interfaces) {
        if (!snapshot.isWiredCandidate() || !snapshot.linkActive)
            continue;
        if (standsBefore(snapshot, firstLinked))
            firstLinked = &snapshot;
        const bool mayDecide = standsBefore(snapshot, decisive);
        const bool mayVerify = !cableVerified && !snapshot.isTethering;
        if ((!mayDecide && !mayVerify) || !snapshot.hasGateway() || !snapshot.hasRoutableAddress())
            continue;
        const ProbeState state = probeState(probes, snapshot);
        if (mayVerify)
            cableVerified = state.isVerified();
        const bool isBroken = state.kind == ProbeState::Kind::failing &&
                              state.consecutive >= control.probeFailuresBeforeFallback;
        if (isBroken && standsBefore(snapshot, unreachable)) {
            unreachable = &snapshot;
        } else if (!isBroken && mayDecide) {
            decisive = &snapshot;
            decisiveState = state;
        }
    }
    const bool tetheringSuppressed = cableVerified && control.disableTetheringWhileWired;

    Decision decision;
    if (auto order = ServiceOrder::reorderIfNeeded(interfaces))
        decision.actions.push_back(Action::reorderServices(*std::move(order)));
    appendServiceActions(interfaces, tetheringSuppressed, decision.actions);

    const auto probing = [&](const InterfaceSnapshot &snapshot, Status status, std::string reason) {
        decision.actions.push_back(Action::probe(snapshot.device));
        decision.status = std::move(status);
        decision.reason = std::move(reason);
        return std::move(decision);
    };

    // The first candidate with an outcome wins, even where a later one is verified already.
    if (decisive) {
        const auto &[device, name] = std::tie(decisive->device, decisive->serviceName);
        switch (decisiveState.kind) {
        case ProbeState::Kind::pending:
            return probing(*decisive, Status::wiredPending(device, name),
                           device + " addressed, probe pending");
        case ProbeState::Kind::ok:
        case ProbeState::Kind::notApplicable:
            if (control.wifiPowerOn)
                decision.actions.push_back(Action::setWiFiPower(false));
            decision.status = Status::wired(device, name);
            decision.reason = device + " verified: link, " + describeAddresses(*decisive) + ", gateway";
            if (decisiveState.kind == ProbeState::Kind::ok)
                decision.reason += ", probe ok";
            return decision;
        case ProbeState::Kind::failing:
            return probing(*decisive, Status::wiredPending(device, name),
                           device + " addressed, probe failing (" +
                               std::to_string(decisiveState.consecutive) + "/" +
                               std::to_string(control.probeFailuresBeforeFallback) + ")");
        }
    }

    // A broken cable brings Wi-Fi back even when the user had switched it off.
    const bool leftAlone = !control.wifiPowerOn && control.wifiManuallyOff && !unreachable;
    if (!control.wifiPowerOn && !leftAlone)
        decision.actions.push_back(Action::setWiFiPower(true));
    if (unreachable)
        return probing(*unreachable, Status::wiredUnreachable(unreachable->device, unreachable->serviceName),
                       unreachable->device + " has link and address but no traffic path; Wi-Fi kept on");
    if (leftAlone) {
        decision.status = Status::wifiOff();
        decision.reason = "no wired path; Wi-Fi switched off by the user, left alone";
        return decision;
    }
    const bool wifiConnected = std::ranges::any_of(interfaces, [](const InterfaceSnapshot &snapshot) {
        return snapshot.kind == InterfaceKind::wifi && snapshot.hasRoutableAddress();
    });
    decision.status = wifiConnected ? Status::wifi() : Status::offline();
    if (firstLinked)
        decision.reason = firstLinked->device + " linked but not addressed; waiting";
    else
        decision.reason = wifiConnected ? "no wired link" : "no wired link, no Wi-Fi connection";
    return decision;
}

std::string Policy::describeAddresses(const InterfaceSnapshot &snapshot) {
    std::string text;
    if (const auto *address = snapshot.firstRoutableIPv4())
        text = "IPv4 " + *address;
    if (const auto *address = snapshot.firstRoutableIPv6())
        text += (text.empty() ? "IPv6 " : " + IPv6 ") + address->address;
    return text;
}

} // namespace tarn
