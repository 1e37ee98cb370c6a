#include "TarnlinkDaemon/Report.h"

#include "TarnCore/Text.h"
#include "TarnSystem/Json.h"
#include "TarnXPC/DiagnosticsText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn::report {
namespace {

using Cell = std::vector<std::string>;
using Row = std::vector<Cell>;

std::size_t width(const std::string &text) {
    // Names are UTF-8: continuation bytes take no column.
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

/// Columns as wide as their widest line, two blanks apart; a cell may have several lines.
std::string table(std::vector<Row> rows) {
    // Before they are measured: names come from outside.
    for (auto &row : rows)
        for (auto &cell : row)
            std::ranges::transform(cell, cell.begin(), text::printable);
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto &row : rows)
        for (std::size_t column = 0; column < row.size(); ++column)
            for (const auto &line : row[column])
                widths[column] = std::max(widths[column], width(line));

    std::string text;
    for (const auto &row : rows) {
        const auto height = std::ranges::max(row, {}, &Cell::size).size();
        for (std::size_t i = 0; i < height; ++i) {
            std::string line;
            for (std::size_t column = 0; column < row.size(); ++column) {
                const std::string content = i < row[column].size() ? row[column][i] : "";
                line += content + std::string(widths[column] - width(content) + 2, ' ');
            }
            line.erase(line.find_last_not_of(' ') + 1);
            text += line + "\n";
        }
    }
    return text;
}

Cell orDash(Cell cell) {
    return cell.empty() ? Cell{"-"} : cell;
}

std::string describe(const IPv6Address &address) {
    std::string text = address.address;
    if (address.isDuplicated())
        text += " (duplicate)";
    else if (address.isTentative())
        text += " (tentative)";
    return text;
}

Cell addresses(const InterfaceSnapshot &snapshot) {
    Cell cell = snapshot.ipv4;
    for (const auto &address : snapshot.ipv6)
        cell.push_back(describe(address));
    return cell;
}

Cell routers(const InterfaceSnapshot &snapshot) {
    Cell cell;
    for (const auto &router : {snapshot.ipv4Router, snapshot.ipv6Router})
        if (router)
            cell.push_back(*router);
    if (cell.empty() && snapshot.hasDHCPLease)
        cell.emplace_back("by DHCP lease");
    return cell;
}

std::string kind(const InterfaceSnapshot &snapshot) {
    std::string text(rawValue(snapshot.kind));
    return snapshot.isTethering ? text + ", tethering" : text;
}

std::string service(const InterfaceSnapshot &snapshot) {
    if (!snapshot.serviceID)
        return "-";
    return snapshot.serviceEnabled ? snapshot.serviceName : snapshot.serviceName + " (disabled)";
}

bool hasWiFi(const Evaluation &evaluation) {
    return std::ranges::find(evaluation.interfaces, InterfaceKind::wifi, &InterfaceSnapshot::kind) !=
           evaluation.interfaces.end();
}

/// In quotation marks, so that it is plain where it ends.
std::string quoted(std::string_view name) {
    std::string text = "\"";
    for (const char c : name) {
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    return text + "\"";
}

std::string_view name(WiFiDetails::Band band) {
    switch (band) {
    case WiFiDetails::Band::ghz2_4:
        return "2.4 GHz";
    case WiFiDetails::Band::ghz5:
        return "5 GHz";
    case WiFiDetails::Band::ghz6:
        break;
    }
    return "6 GHz";
}

std::string describeWiFi(const Evaluation &evaluation) {
    if (!evaluation.wifiPower)
        return hasWiFi(evaluation) ? "power unknown" : "none";
    if (!*evaluation.wifiPower)
        return "off";
    std::string text = "on";
    const auto details = evaluation.wifi.value_or(WiFiDetails());
    if (details.ssid)
        text += ", network " + quoted(*details.ssid);
    if (details.band)
        text += ", " + std::string(name(*details.band));
    if (details.channel)
        text += ", channel " + std::to_string(*details.channel);
    if (details.rssi)
        text += ", " + std::to_string(*details.rssi) + " dBm";
    return text;
}

std::string describe(const VPNSplitDNS::Suspect &suspect) {
    return suspect.domain + " by " + suspect.server + " on " + suspect.device;
}

double milliseconds(double latency) {
    return std::round(latency * 1e5) / 100;
}

std::string_view word(ProbeOutcome::Kind kind) {
    switch (kind) {
    case ProbeOutcome::Kind::reachable:
        return "reachable";
    case ProbeOutcome::Kind::error:
        return "error";
    case ProbeOutcome::Kind::timeout:
        break;
    }
    return "timeout";
}

std::string describe(const ProbeRecord &probe) {
    std::string text = probe.device + ": " + std::string(word(probe.outcome.kind));
    if (probe.outcome.kind == ProbeOutcome::Kind::reachable)
        text += " in " + text::fromDouble(milliseconds(probe.outcome.latency)) + " ms";
    else if (probe.outcome.kind == ProbeOutcome::Kind::error)
        text += " (" + probe.outcome.message + ")";
    return text + ", name server " + probe.server;
}

std::string_view word(Action::Kind kind) {
    switch (kind) {
    case Action::Kind::setWiFiPower:
        return "setWiFiPower";
    case Action::Kind::enableService:
        return "enableService";
    case Action::Kind::disableService:
        return "disableService";
    case Action::Kind::reorderServices:
        return "reorderServices";
    case Action::Kind::probe:
        break;
    }
    return "probe";
}

std::string describe(const Action &action) {
    std::string text(word(action.kind));
    switch (action.kind) {
    case Action::Kind::setWiFiPower:
        return text + (action.power ? " on" : " off");
    case Action::Kind::enableService:
    case Action::Kind::disableService:
        return text + " " + action.serviceID + " (" + action.name + ")";
    case Action::Kind::reorderServices:
        for (const auto &serviceID : action.order)
            text += " " + serviceID;
        return text;
    case Action::Kind::probe:
        break;
    }
    return text + " " + action.device;
}

/// What a person should know about the limits of this reading.
std::vector<std::string> notSeen(const Evaluation &evaluation) {
    using Source = SystemVisibility::Source;
    const auto &visibility = evaluation.visibility;
    std::vector<std::string> lines;
    const auto add = [&](Source source, const char *name, const char *consequence) {
        if (source == Source::notRunning)
            lines.push_back(std::string(name) + " is not running: " + consequence);
        else if (source == Source::notAnswering)
            lines.push_back(std::string(name) + " does not answer: " + consequence);
    };
    if (visibility.systemBus == Source::answered) {
        add(visibility.networkManager, "NetworkManager", "its name servers are not seen");
        add(visibility.resolved, "systemd-resolved", "its name servers are not seen");
    } else {
        add(visibility.systemBus, "the system bus", "NetworkManager and systemd-resolved cannot be asked");
    }
    if (visibility.systemBus != Source::notUsed)
        lines.emplace_back("services and their order are the kernel's view");
    if (!evaluation.wifiPower)
        lines.emplace_back(
            hasWiFi(evaluation)
                ? "the power of Wi-Fi cannot be read: it counts as on"
                : "no Wi-Fi interface: its power counts as on, and switching it has nothing to do");
    if (visibility.devicesHidden)
        lines.emplace_back(
            "a device that may be a cable or a radio is left out, because /sys does not show it");
    if (visibility.resolverFileHidden)
        lines.emplace_back("the resolver file cannot be read: a path without a name server is not probed");
    if (visibility.leasesHidden)
        lines.emplace_back("some DHCP leases cannot be read");
    if (visibility.unsettled)
        lines.emplace_back("the network kept changing while it was read: the table may mix two moments");
    return lines;
}

template <class T> Value optional(const std::optional<T> &value) {
    return value ? Value(*value) : Value();
}

Value encoded(const InterfaceSnapshot &snapshot) {
    Value::Array ipv6;
    for (const auto &address : snapshot.ipv6)
        ipv6.push_back(Value::Dictionary{{"address", address.address}, {"flags", address.flags}});
    return Value::Dictionary{
        {"device", snapshot.device},
        {"kind", std::string(rawValue(snapshot.kind))},
        {"serviceID", optional(snapshot.serviceID)},
        {"serviceName", snapshot.serviceName},
        {"serviceEnabled", snapshot.serviceEnabled},
        {"serviceOrderIndex", optional(snapshot.serviceOrderIndex)},
        {"linkActive", snapshot.linkActive},
        {"ipv4", Value::strings(snapshot.ipv4)},
        {"ipv6", std::move(ipv6)},
        {"ipv4Router", optional(snapshot.ipv4Router)},
        {"ipv6Router", optional(snapshot.ipv6Router)},
        {"hasDHCPLease", snapshot.hasDHCPLease},
        {"dnsServers", Value::strings(snapshot.dnsServers)},
        {"isTethering", snapshot.isTethering},
    };
}

Value encodedWiFi(const Evaluation &evaluation) {
    const auto details = evaluation.wifi.value_or(WiFiDetails());
    return Value::Dictionary{
        {"power", optional(evaluation.wifiPower)},
        {"ssid", optional(details.ssid)},
        {"band", details.band ? Value(std::string(rawValue(*details.band))) : Value()},
        {"channel", optional(details.channel)},
        {"rssi", optional(details.rssi)},
    };
}

Value encoded(const VPNDetector::Tunnel &tunnel) {
    return Value::Dictionary{{"device", tunnel.device}, {"address", tunnel.address}};
}

Value encoded(const VPNSplitDNS::Suspect &suspect) {
    return Value::Dictionary{
        {"device", suspect.device}, {"domain", suspect.domain}, {"server", suspect.server}};
}

Value encoded(const ProbeRecord &probe) {
    Value value = Value::Dictionary{{"device", probe.device},
                                    {"server", probe.server},
                                    {"outcome", std::string(word(probe.outcome.kind))}};
    if (probe.outcome.kind == ProbeOutcome::Kind::reachable)
        value.set("latencySeconds", probe.outcome.latency);
    else if (probe.outcome.kind == ProbeOutcome::Kind::error)
        value.set("message", probe.outcome.message);
    return value;
}

Value encoded(const Action &action) {
    Value value = Value::Dictionary{{"action", std::string(word(action.kind))}};
    switch (action.kind) {
    case Action::Kind::setWiFiPower:
        value.set("power", action.power);
        break;
    case Action::Kind::enableService:
    case Action::Kind::disableService:
        value.set("serviceID", action.serviceID);
        value.set("name", action.name);
        break;
    case Action::Kind::reorderServices:
        value.set("order", Value::strings(action.order));
        break;
    case Action::Kind::probe:
        value.set("device", action.device);
        break;
    }
    return value;
}

template <class List> Value encodedList(const List &list) {
    Value::Array array;
    for (const auto &element : list)
        array.push_back(encoded(element));
    return array;
}

} // namespace

std::string describe(const Status &status) {
    std::string text(Status::caseName(status.kind));
    if (Status::hasPayload(status.kind))
        text += " (" + status.device + ", " + status.name + ")";
    return text;
}

std::string interfaceTable(const std::vector<InterfaceSnapshot> &interfaces) {
    if (interfaces.empty())
        return "none\n";
    std::vector<Row> rows = {
        {{"DEVICE"}, {"SERVICE"}, {"KIND"}, {"LINK"}, {"ADDRESSES"}, {"ROUTER"}, {"DNS"}}};
    for (const auto &snapshot : interfaces)
        rows.push_back({{snapshot.device},
                        {service(snapshot)},
                        {kind(snapshot)},
                        {snapshot.linkActive ? "up" : "down"},
                        orDash(addresses(snapshot)),
                        orDash(routers(snapshot)),
                        orDash(snapshot.dnsServers)});
    return table(std::move(rows));
}

std::string asText(const Evaluation &evaluation) {
    std::string text;
    // What others named must not look like lines of ours.
    const auto add = [&](const std::string &line) { text += text::printable(line) + "\n"; };
    add(evaluation.config.describe());
    text += "\n" + DiagnosticsText::section("interfaces", interfaceTable(evaluation.interfaces)) + "\n";
    add("wifi: " + describeWiFi(evaluation));
    add("vpn: " + (evaluation.vpn ? evaluation.vpn->device + ", " + evaluation.vpn->address : "none"));
    for (const auto &suspect : evaluation.shadowedResolvers)
        add("shadowed DNS: " + describe(suspect));
    if (evaluation.shadowedResolvers.empty())
        add("shadowed DNS: none");
    text += "\nprobes:\n";
    for (const auto &probe : evaluation.probes)
        add("  " + describe(probe));
    if (evaluation.probes.empty())
        add("  none");
    text += "\n";
    add("status: " + describe(evaluation.decision.status));
    add("reason: " + evaluation.decision.reason);
    for (const auto &action : evaluation.decision.actions)
        add("action: " + describe(action));
    if (evaluation.decision.actions.empty())
        add("action: none");
    if (const auto lines = notSeen(evaluation); !lines.empty()) {
        text += "\nnot seen:\n";
        for (const auto &line : lines)
            add("  " + line);
    }
    return text;
}

std::string asJson(const Evaluation &evaluation) {
    const Value document = Value::Dictionary{
        {"configuration", evaluation.config.describe()},
        {"interfaces", encodedList(evaluation.interfaces)},
        {"wifiPowerOn", optional(evaluation.wifiPower)},
        {"wifi", encodedWiFi(evaluation)},
        {"vpn", evaluation.vpn ? encoded(*evaluation.vpn) : Value()},
        {"shadowedResolvers", encodedList(evaluation.shadowedResolvers)},
        {"probes", encodedList(evaluation.probes)},
        {"status", evaluation.decision.status.encoded()},
        {"reason", evaluation.decision.reason},
        {"actions", encodedList(evaluation.decision.actions)},
        {"notSeen", Value::strings(notSeen(evaluation))},
    };
    return json::serialize(document, 2) + "\n";
}

} // namespace tarn::report
