#include "TarnSystem/Doctor.h"

#include "TarnSystem/IPAddress.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/UpdateDefaults.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>
#include <variant>

namespace tarn::doctor {
namespace {

using System = HostSurvey::System;
using Findings = std::vector<Finding>;

// A clock that was set by hand may be in another time zone.
constexpr std::chrono::hours clockSlack{24};
// No program is in use for longer.
constexpr std::chrono::years longestUse{10};
// The clock may have been put right since the file was written.
constexpr std::chrono::minutes bootSlack{5};

/// Another program that can have a radio.
struct OtherManager {
    /// As the process table has it.
    std::string_view process;
    /// How it is ended for good; empty where its units have no fixed name.
    std::string_view ending;
    bool canServeNetworkManager;
};
constexpr std::array<OtherManager, 3> otherManagers = {{
    {"connmand", "sudo systemctl disable --now connman && ", false},
    {"iwd", "sudo systemctl disable --now iwd && ", true},
    {"wpa_supplicant", "", true},
}};

constexpr const char *restartOnMac = "sudo launchctl kickstart -k system/com.veltrion.tarnlink.daemon";

bool contains(const auto &list, const auto &entry) {
    return std::ranges::find(list, entry) != list.end();
}

std::string joined(const std::vector<std::string> &list) {
    std::string text;
    for (const auto &entry : list)
        text += (text.empty() ? "" : ", ") + entry;
    return text;
}

bool isOwnHost(const std::string &server) {
    const auto address = IPAddress::parse(std::string_view(server).substr(0, server.find('%')));
    return address && address->isOwnHost();
}

/// Servers, and all of them on this machine.
bool isStub(const std::vector<std::string> &servers) {
    return !servers.empty() && std::ranges::all_of(servers, isOwnHost);
}

/// A cable that Tarnlink relies on: up, addressed and routed.
bool isWire(const InterfaceSnapshot &snapshot) {
    return snapshot.isWiredCandidate() && !snapshot.isTethering && snapshot.serviceEnabled &&
           snapshot.hasRoutableAddress() && snapshot.hasGateway();
}

/// No daemon is at work, as far as can be seen.
bool isDaemonGone(const Facts &facts) {
    return facts.daemon == Facts::Daemon::absent && !facts.isPublished.value_or(false) &&
           !contains(facts.processes, "TarnlinkDaemon");
}

/// Why nobody answered on a Mac.
Finding absentOnMac(const Facts &facts) {
    if (!facts.isRegistered)
        return {"notRegistered", "The daemon is not registered with the system, which is to start it.",
                "Open Tarnlink, then allow it in System Settings > General > Login Items (& Extensions)."};
    if (isDaemonGone(facts))
        return {"noDaemon", "No daemon runs: nothing switches Wi-Fi.", restartOnMac};
    return {"notSigned", "A daemon runs, but it and this program do not have the signatures that both want.",
            "Install Tarnlink again."};
}

void examineDaemon(const Facts &facts, Findings &findings) {
    const bool isMac = facts.system == System::macOS;
    const std::string restart = isMac ? restartOnMac : "sudo systemctl restart tarnlink";
    if (facts.daemon == Facts::Daemon::silent)
        findings.push_back({"daemonSilent", "The daemon does not answer in time.", restart});
    if (facts.daemon == Facts::Daemon::failing)
        findings.push_back(
            {"daemonFailing", "The daemon gives no right answer: " + facts.daemonError, restart});
    if (facts.daemon != Facts::Daemon::absent)
        return;
    if (isMac) {
        findings.push_back(absentOnMac(facts));
        return;
    }
    if (!facts.hasBus) {
        findings.push_back({"noBus", "The system bus does not run, and nobody can talk to the daemon.",
                            "sudo systemctl start dbus"});
        return;
    }
    if (!facts.isPublished) {
        findings.push_back({"busSilent", "The system bus does not answer, or does not let this user in.",
                            "systemctl status dbus"});
        return;
    }
    const std::string reload = "sudo systemctl reload dbus && sudo systemctl restart tarnlink";
    if (*facts.isPublished)
        findings.push_back({"busPolicy", "The bus lets nobody through to the daemon.", reload});
    else if (!facts.isRegistered)
        findings.push_back({"busPolicy", "The bus has no policy for Tarnlink: no daemon may have its name.",
                            "Install Tarnlink's package again, then: " + reload});
    else if (!isDaemonGone(facts))
        findings.push_back({"busPolicy", "A daemon runs, but does not have its name on the bus.", reload});
    if (isDaemonGone(facts))
        findings.push_back(
            {"noDaemon", "No daemon runs: nothing switches Wi-Fi.", "sudo systemctl enable --now tarnlink"});
}

void examineRights(const Facts &facts, Findings &findings) {
    // macOS has both at all times; a right is defined there when it is first asked for.
    if (facts.system == System::macOS || !facts.isPublished)
        return;
    if (!facts.knowsRights)
        findings.push_back({"noPolkit",
                            "polkit does not run or does not know Tarnlink's actions: only root may pause.",
                            "sudo systemctl start polkit; if it runs, install Tarnlink's package again."});
    else if (!facts.hasAgent.value_or(true))
        findings.push_back({"noAgent", "Nothing in this session can ask for the password that a pause takes.",
                            "Install a polkit agent, such as the package lxpolkit, and log in again."});
}

/// How to give a device a name server of its own.
std::string serverRemedy(const Facts &facts, const InterfaceSnapshot &wire) {
    using Source = SystemVisibility::Source;
    if (facts.system == System::macOS)
        return "Enter a name server in System Settings > Network > " + wire.serviceName + " > Details > DNS.";
    if (facts.visibility.resolved == Source::answered)
        return "sudo resolvectl dns " + wire.device + " ADDRESS";
    if (facts.visibility.networkManager == Source::answered)
        return "sudo nmcli device modify " + wire.device + " ipv4.dns ADDRESS";
    return "Put the line \"nameserver ADDRESS\" into /etc/resolv.conf.";
}

void examineResolvers(const Facts &facts, const InterfaceSnapshot &wire, Findings &findings) {
    const auto &servers = wire.dnsServers;
    const bool isUnasked = servers.empty();
    const auto known = isUnasked ? facts.resolverFile : servers;
    const std::string disconnect = "Disconnect the VPN, or have it use its name server for its domains only.";
    if (isStub(known)) {
        findings.push_back({"stubResolver",
                            wire.device + " has no name server but this machine's own " + known.front() +
                                ", which cannot be asked through a cable" +
                                (isUnasked ? ": it counts as verified unprobed." : "."),
                            serverRemedy(facts, wire)});
        return;
    }
    // What another interface is asked at is that one's.
    const auto isAskedThere = [&](const InterfaceSnapshot &other) {
        return contains(other.dnsServers, known.front());
    };
    if (isUnasked && facts.tunnel && !known.empty() && std::ranges::none_of(facts.interfaces, isAskedThere)) {
        findings.push_back({"vpnShadowing",
                            "The VPN at " + facts.tunnel->device + " has put " + known.front() +
                                " in place of the name servers of " + wire.device +
                                ", which counts as verified unprobed.",
                            disconnect});
        return;
    }
    if (isUnasked) {
        findings.push_back(
            {"noResolver", wire.device + " has no name server: nothing is probed, and it counts as verified.",
             serverRemedy(facts, wire)});
        return;
    }
    // The first is the one that is probed.
    const auto key = "State:/Network/Service/" + *wire.serviceID + "/DNS";
    const auto isShadow = [&](const VPNSplitDNS::Resolver &resolver) {
        return resolver.key != key && contains(resolver.servers, servers.front());
    };
    if (facts.tunnel && std::ranges::any_of(facts.resolvers, isShadow))
        findings.push_back({"vpnShadowing",
                            "Probes through " + wire.device + " ask " + servers.front() +
                                ", a name server of the VPN at " + facts.tunnel->device + ".",
                            disconnect});
}

void examineReversePath(const Facts &facts, const InterfaceSnapshot &wire, Findings &findings) {
    // Answers are dropped only where another interface is the better way to their sender.
    const auto isBetterWay = [&](const InterfaceSnapshot &other) {
        return other.device != wire.device && other.linkActive && other.ipv4Router &&
               other.serviceOrderIndex &&
               (!wire.serviceOrderIndex || *other.serviceOrderIndex < *wire.serviceOrderIndex);
    };
    // IPv6 has no such filter.
    if (!wire.ipv4Router || !contains(facts.strictDevices, wire.device) ||
        std::ranges::none_of(facts.interfaces, isBetterWay))
        return;
    findings.push_back({"strictReversePath",
                        wire.device +
                            " has a strict reverse-path filter, and another interface is the better "
                            "way out: answers to its probe may be dropped.",
                        "sudo sysctl -w net.ipv4.conf.all.rp_filter=2"});
}

void examineRadios(const Facts &facts, Findings &findings) {
    const auto runs = [&](const OtherManager &other) { return contains(facts.processes, other.process); };
    const auto other = std::ranges::find_if(otherManagers, runs);
    if (other == otherManagers.end())
        return;
    // What is beside a NetworkManager that has a radio most likely serves it.
    const bool isServant =
        other->canServeNetworkManager && std::ranges::any_of(facts.radios, [](const Facts::Radio &radio) {
            return radio.isManaged.value_or(false);
        });
    const std::string ending(isServant ? "" : other->ending);
    for (const auto &radio : facts.radios) {
        if (radio.isManaged && !*radio.isManaged)
            findings.push_back({"foreignRadio",
                                radio.device +
                                    " is not managed by NetworkManager: Tarnlink can switch only its radio, "
                                    "and only with WiFiOffMode radio.",
                                ending + "sudo nmcli device set " + radio.device + " managed yes"});
        // A NetworkManager that runs and says nothing may only be slow.
        else if (!radio.isManaged && !contains(facts.processes, "NetworkManager"))
            findings.push_back({"foreignRadio",
                                radio.device + " belongs to " + std::string(other->process) +
                                    " and not to NetworkManager: Tarnlink cannot switch it.",
                                "Install NetworkManager and have it manage " + radio.device + ": " + ending +
                                    "sudo systemctl enable --now NetworkManager"});
    }
}

void examineSplitDNS(const Facts &facts, Findings &findings) {
    std::vector<VPNSplitDNS::ScopedResolver> scoped;
    for (const auto &resolver : facts.resolvers)
        std::ranges::copy(VPNSplitDNS::scoped(resolver), std::back_inserter(scoped));
    for (const auto &suspect : VPNSplitDNS::suspects(scoped))
        findings.push_back(
            {"shadowedDomain",
             "The phone at " + suspect.device + " stands before the name servers of " + suspect.domain + ".",
             facts.fixesShadowedDNS ? "Unplug the phone, or disconnect the VPN and connect it again."
                                    : "tarnlinkctl set tethering-dns-fix on"});
}

void examineClock(const Facts &facts, Findings &findings) {
    const std::string time = "The clock says " + dates::text(facts.now) + ", which is ";
    const std::string remedy = facts.system == System::macOS
                                   ? "Set the time in System Settings > General > Date & Time."
                                   : "sudo timedatectl set-ntp true";
    if (facts.now + clockSlack < facts.built)
        findings.push_back(
            {"clockBehind", time + "before this program was built: updates cannot be fetched.", remedy});
    // A build that does not tell its day has the first one.
    else if (facts.built > Date() && facts.now > facts.built + longestUse)
        findings.push_back({"clockAhead",
                            time + "more than ten years after this program was built: check it. When it is "
                                   "wrong, updates cannot be fetched.",
                            remedy});
}

void examineJournal(const Facts &facts, Findings &findings) {
    if (!facts.journal || !isDaemonGone(facts))
        return;
    std::vector<std::string> missing;
    if (!facts.isNetworkHidden)
        for (const auto &id : facts.journal->serviceIDs)
            if (std::ranges::find(facts.interfaces, id, &InterfaceSnapshot::serviceID) ==
                facts.interfaces.end())
                missing.push_back(id);
    std::string line = "A daemon that is gone has left changes behind";
    if (facts.journal->written + bootSlack < facts.booted)
        line += ", from before the machine was started";
    if (!missing.empty())
        line += ", of services that are not there (" + joined(missing) + ")";
    findings.push_back({"staleJournal", line + ".", undoCommand(facts.system)});
}

void examineUpdates(const Facts &facts, Findings &findings) {
    const auto since = facts.lastUpdateCheck ? facts.lastUpdateCheck : facts.updateTroubleSince;
    if (!facts.checksForUpdates || !since || facts.now - *since < updateDefaults::silenceLimit)
        return;
    findings.push_back({"feedSilent",
                        (facts.lastUpdateCheck ? "No check for updates has succeeded since "
                                               : "Checks for updates have failed since ") +
                            dates::text(*since) + ".",
                        "Choose Check Now in the settings of the menu; if that fails, see what keeps " +
                            facts.updateFeedURL + " from being reached."});
}

void collectServices(const Value &value, std::vector<std::string> &found) {
    if (const auto *array = value.array())
        for (const auto &element : *array)
            collectServices(element, found);
    if (const auto *dictionary = value.dictionary())
        for (const auto &[key, element] : *dictionary) {
            const auto *id = key == "serviceID" ? element.string() : nullptr;
            if (id && !contains(found, *id))
                found.push_back(*id);
            collectServices(element, found);
        }
}

} // namespace

std::string undoCommand(System system) {
    return system == System::macOS ? "sudo /Applications/Tarnlink.app/Contents/MacOS/TarnlinkDaemon --undo"
                                   : "sudo -u tarnlink /usr/libexec/tarnlink/TarnlinkDaemon --undo";
}

std::string rescueLine(System system) {
    const std::string stop = system == System::macOS
                                 ? "sudo launchctl bootout system/com.veltrion.tarnlink.daemon"
                                 : "sudo systemctl stop tarnlink";
    return stop + "; " + undoCommand(system);
}

std::vector<Finding> diagnose(const Facts &facts) {
    Findings findings;
    examineDaemon(facts, findings);
    examineRights(facts, findings);
    if (!facts.isNetworkHidden) {
        for (const auto &snapshot : facts.interfaces)
            if (isWire(snapshot)) {
                examineResolvers(facts, snapshot, findings);
                examineReversePath(facts, snapshot, findings);
            }
        examineRadios(facts, findings);
        examineSplitDNS(facts, findings);
    }
    examineClock(facts, findings);
    examineJournal(facts, findings);
    examineUpdates(facts, findings);
    return findings;
}

std::vector<std::string> notSeen(const Facts &facts) {
    std::vector<std::string> list;
    if (facts.isNetworkHidden)
        list.emplace_back("the network cannot be read");
    if (facts.isJournalHidden && isDaemonGone(facts))
        list.emplace_back("what a daemon has left behind: only root may look");
    if (facts.isSudo && facts.checksForUpdates && !facts.lastUpdateCheck && !facts.updateTroubleSince)
        list.emplace_back("your checks for updates: run this without sudo");
    return list;
}

std::vector<std::string> servicesInJournal(std::string_view contents) {
    std::vector<std::string> found;
    const auto document = json::parse(contents);
    if (const auto *value = std::get_if<Value>(&document))
        collectServices(*value, found);
    return found;
}

} // namespace tarn::doctor
