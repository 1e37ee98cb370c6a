#include "TarnlinkDaemon/Diagnostics.h"

#include "TarnCore/AppInfo.h"
#include "TarnCore/Text.h"
#include "TarnSystem/Json.h"
#include "TarnXPC/DiagnosticsText.h"
#include "TarnlinkDaemon/Report.h"

#include <algorithm>
#include <map>

namespace tarn {
namespace {

std::string line(const std::string &text) {
    // What others named must not look like lines of ours.
    return text::printable(text) + "\n";
}

std::string state(const StatusReport &report) {
    std::string text = line("status: " + report::describe(report.status)) + line("reason: " + report.reason);
    text += report.wifiOn            ? "wifi: on\n"
            : report.wifiManuallyOff ? "wifi: off, by the user\n"
                                     : "wifi: off\n";
    text += "paused: " + (report.pausedUntil ? "until " + dates::text(*report.pausedUntil) : "no") + "\n";
    text += line("vpn: " + (report.vpnDevice ? *report.vpnDevice + ", " + report.vpnAddress.value_or("")
                                             : std::string("none")));
    return text + "time: " + dates::text(report.generatedAt) + "\n";
}

std::string describe(const ProbeState &state) {
    switch (state.kind) {
    case ProbeState::Kind::failing:
        return "failing, " + std::to_string(state.consecutive) + " in a row";
    case ProbeState::Kind::notApplicable:
        return "not applicable";
    case ProbeState::Kind::pending:
        return "pending";
    case ProbeState::Kind::ok:
        break;
    }
    return "ok";
}

std::string probes(const ProbeStates &states) {
    std::string text;
    for (const auto &[device, probe] : std::map(states.begin(), states.end()))
        text += line(device + ": " + describe(probe));
    return text;
}

std::string orNone(std::string lines) {
    return lines.empty() ? "none\n" : lines;
}

std::string lastEntries(const History &history) {
    const auto &entries = history.entries();
    std::string text;
    for (auto i = entries.size() - std::min(entries.size(), diagnosedEntries); i < entries.size(); ++i)
        text += asText(entries[i]) + "\n";
    return text;
}

} // namespace

std::string diagnostics(const Guard &guard, const History &history, const StatusReport &report) {
    using DiagnosticsText::section;
    const auto &journal = guard.journal();
    return line("TarnlinkDaemon " + std::string(AppInfo::version) + " (" + std::to_string(AppInfo::build) +
                ")") +
           line(guard.config().describe()) + section(DiagnosticsText::state, state(report)) +
           section(DiagnosticsText::interfaces, report::interfaceTable(guard.reading().interfaces)) +
           section(DiagnosticsText::probes, orNone(probes(guard.probeStates()))) +
           section(DiagnosticsText::journal,
                   journal.isEmpty() ? "nothing to undo\n" : json::serialize(journal.encoded()) + "\n") +
           section(DiagnosticsText::history, orNone(lastEntries(history)));
}

} // namespace tarn
