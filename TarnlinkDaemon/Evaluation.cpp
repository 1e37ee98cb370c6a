#include "TarnlinkDaemon/Evaluation.h"

#include <algorithm>
#include <optional>

namespace tarn {
namespace {

constexpr std::int64_t mostProbesOfOnePath = 10;

const InterfaceSnapshot *findDevice(const std::vector<InterfaceSnapshot> &interfaces,
                                    const std::string &device) {
    const auto found = std::ranges::find(interfaces, device, &InterfaceSnapshot::device);
    return found == interfaces.end() ? nullptr : &*found;
}

const std::string *probeDevice(const Decision &decision) {
    const auto found = std::ranges::find(decision.actions, Action::Kind::probe, &Action::kind);
    return found == decision.actions.end() ? nullptr : &found->device;
}

TarnControl controlFor(const DaemonConfig &config, bool wifiPowerOn) {
    // Nothing here has ever switched Wi-Fi off: when it is off, the user did it.
    return {config.enabled,
            false,
            wifiPowerOn,
            !wifiPowerOn && config.respectManualWiFiOff,
            config.probeFailuresBeforeFallback,
            config.disableTetheringWhileWired};
}

} // namespace

std::optional<std::string> probeSource(const InterfaceSnapshot &snapshot) {
    if (const auto *address = snapshot.firstRoutableIPv4())
        return *address;
    if (const auto *address = snapshot.firstRoutableIPv6())
        return address->address;
    return std::nullopt;
}

ProbeState stateAfter(const ProbeOutcome &outcome, const ProbeState &previous) {
    if (outcome.kind == ProbeOutcome::Kind::reachable)
        return ProbeState::ok();
    return ProbeState::failing(previous.consecutive + 1);
}

Task<Evaluation> evaluateOnce(SystemStateReading &reader, Probing &prober, const DaemonConfig &config) {
    Evaluation result;
    result.config = config;
    result.interfaces = reader.readInterfaces();
    result.wifiPower = reader.wifiPowerOn();
    // Without Wi-Fi there is nothing to switch on: absent counts as on.
    const TarnControl control = controlFor(config, result.wifiPower.value_or(true));

    ProbeStates states;
    for (;;) {
        result.decision = Policy::decide(result.interfaces, states, control);
        const std::string *device = probeDevice(result.decision);
        const InterfaceSnapshot *snapshot = device ? findDevice(result.interfaces, *device) : nullptr;
        // A broken path is named in the decision so that it is asked again later, not now.
        if (!snapshot || result.decision.status.kind == Status::Kind::wiredUnreachable)
            break;
        auto &state = states.try_emplace(snapshot->device, ProbeState::pending()).first->second;
        if (state.consecutive >= mostProbesOfOnePath)
            break;
        if (config.probeMode == ProbeMode::off || snapshot->dnsServers.empty()) {
            state = ProbeState::notApplicable();
            continue;
        }
        const std::string server = snapshot->dnsServers.front();
        ProbeOutcome outcome =
            co_await prober.probe(snapshot->device, server, probeSource(*snapshot), config.probeTimeout);
        state = stateAfter(outcome, state);
        result.probes.push_back({snapshot->device, server, std::move(outcome)});
    }
    co_return result;
}

} // namespace tarn
