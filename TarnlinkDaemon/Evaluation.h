#pragma once

#include "TarnCore/Policy.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/Probing.h"
#include "TarnSystem/SystemStateReading.h"
#include "TarnSystem/SystemVisibility.h"
#include "TarnSystem/Task.h"
#include "TarnSystem/VPNDetector.h"
#include "TarnSystem/VPNSplitDNS.h"
#include "TarnSystem/WiFiDetails.h"

#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// One probe that was sent.
struct ProbeRecord {
    std::string device;
    std::string server;
    ProbeOutcome outcome;
};

/// One evaluation of the network: what was seen, what was asked, what follows.
struct Evaluation {
    DaemonConfig config;
    std::vector<InterfaceSnapshot> interfaces;
    /// Absent when there is no Wi-Fi interface.
    std::optional<bool> wifiPower;
    /// Absent without Wi-Fi and while it is off.
    std::optional<WiFiDetails> wifi;
    std::optional<VPNDetector::Tunnel> vpn;
    std::vector<VPNSplitDNS::Suspect> shadowedResolvers;
    /// In the order in which they were sent.
    std::vector<ProbeRecord> probes;
    Decision decision;
    SystemVisibility visibility;
};

/// The address of the interface from which it is probed; none when it has no routable one.
std::optional<std::string> probeSource(const InterfaceSnapshot &snapshot);

/// The probe state after one more probe ended.
ProbeState stateAfter(const ProbeOutcome &outcome, const ProbeState &previous);

/// Reads the network and decides, sending the probes that the decision asks for until it no
/// longer hangs on one: a path that fails is asked as often as it takes to count as broken,
/// but at most ten times. Changes nothing on the machine.
///
/// The arguments must outlive the task. Throws SystemStateError.
Task<Evaluation> evaluateOnce(SystemStateReading &reader, Probing &prober, const DaemonConfig &config);

} // namespace tarn
