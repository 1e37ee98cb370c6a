#include "TarnSystem/Doctor.h"

#include <functional>
#include <gtest/gtest.h>

namespace tarn::doctor {
namespace {

using namespace std::chrono_literals;

const Date today = *dates::parse("2026-03-04T12:00:00Z");

InterfaceSnapshot device(const std::string &name, InterfaceKind kind, const std::string &server) {
    InterfaceSnapshot snapshot;
    snapshot.device = name;
    snapshot.kind = kind;
    snapshot.serviceID = "device:" + name;
    snapshot.linkActive = true;
    snapshot.ipv4 = {"192.0.2.10"};
    snapshot.ipv4Router = "192.0.2.1";
    snapshot.dnsServers = {server};
    return snapshot;
}

/// A machine with a cable and a radio, and much that is unusual and harmless.
Facts healthy() {
    Facts facts;
    facts.interfaces = {device("eth0", InterfaceKind::wired, "192.0.2.1"),
                        device("wlan0", InterfaceKind::wifi, "127.0.0.1")};
    facts.radios = {{"wlan0", true}};
    facts.processes = {"wpa_supplicant", "iwd"};
    facts.tunnel = {"tun0", "10.8.0.2"};
    facts.resolvers = {{"State:/Network/Service/vpn/DNS", {"10.8.0.1"}, {"corp.example"}},
                       {"State:/Network/Service/device:eth0/DNS", {"192.0.2.1"}, {"home.example"}}};
    facts.resolverFile = {"127.0.0.53"};
    facts.interfaces[0].serviceOrderIndex = 0;
    facts.interfaces[1].serviceOrderIndex = 1;
    facts.strictDevices = {"eth0", "wlan0"};
    facts.now = today;
    facts.built = today + 23h;
    facts.booted = today - 1h;
    facts.journal = {today - 2h, {"device:gone"}};
    facts.lastUpdateCheck = today - 29 * 24h;
    facts.updateTroubleSince = today - 99 * 24h;
    return facts;
}

InterfaceSnapshot &wire(Facts &facts) {
    return facts.interfaces[0];
}

/// Takes the cable's name servers away and leaves these in the resolver file.
void unserve(Facts &facts, std::vector<std::string> file) {
    wire(facts).dnsServers.clear();
    facts.resolverFile = std::move(file);
}

void loseDaemon(Facts &facts) {
    facts.daemon = Facts::Daemon::absent;
    facts.isPublished = false;
}

void loseDaemonOnMac(Facts &facts) {
    loseDaemon(facts);
    facts.system = HostSurvey::System::macOS;
    facts.isPublished.reset();
    facts.journal.reset();
}

TEST(Doctor, EachFaultHasItsNameAndNothingElseHas) {
    const struct {
        /// The findings, and how the last remedy starts.
        std::string wanted, remedy;
        std::function<void(Facts &)> change;
    } table[] = {
        {"", "", [](Facts &) {}},
        {"busPolicy ", "sudo systemctl reload", [](Facts &f) { loseDaemon(f), f.isPublished = true; }},
        {"busSilent ", "", [](Facts &f) { loseDaemonOnMac(f), f.system = {}, f.knowsRights = false; }},
        {"notRegistered ", "Open Tarnlink", [](Facts &f) { loseDaemonOnMac(f), f.isRegistered = false; }},
        {"noDaemon ", "sudo launchctl", [](Facts &f) { loseDaemonOnMac(f), f.knowsRights = false; }},
        {"noResolver ", "Put the line", [](Facts &f) { unserve(f, {}); }},
        {"", "", [](Facts &f) { unserve(f, {}), wire(f).linkActive = false; }},
        {"", "", [](Facts &f) { unserve(f, {}), wire(f).isTethering = true; }},
        {"", "", [](Facts &f) { unserve(f, {}), wire(f).ipv4Router.reset(); }},
        {"", "", [](Facts &f) { unserve(f, {}), f.isNetworkHidden = true; }},
        {"stubResolver ", "Enter a name server in System Settings",
         [](Facts &f) { f.system = HostSurvey::System::macOS, wire(f).dnsServers = {"127.0.0.1", "::1"}; }},
        {"", "", [](Facts &f) { wire(f).dnsServers = {"192.0.2.1", "127.0.0.1"}; }},
        {"vpnShadowing ", "", [](Facts &f) { wire(f).dnsServers = {"10.8.0.1"}; }},
        {"", "", [](Facts &f) { wire(f).dnsServers = {"10.8.0.1"}, f.tunnel.reset(); }},
        {"noResolver ", "",
         [](Facts &f) { unserve(f, {"203.0.113.1"}), f.interfaces[1].dnsServers = {"203.0.113.1"}; }},
        {"strictReversePath ", "", [](Facts &f) { wire(f).serviceOrderIndex.reset(); }},
        {"", "", [](Facts &f) { wire(f).serviceOrderIndex = 2, f.interfaces[1].ipv4Router.reset(); }},
        {"", "", [](Facts &f) { f.interfaces[1].serviceOrderIndex.reset(); }},
        {"foreignRadio ", "sudo systemctl disable --now iwd && sudo nmcli",
         [](Facts &f) { f.radios[0].isManaged = false; }},
        {"foreignRadio ", "sudo nmcli", [](Facts &f) { f.radios.push_back({"wlan1", false}); }},
        {"foreignRadio ", "Install NetworkManager and have it manage wlan0: sudo systemctl enable",
         [](Facts &f) { f.radios[0].isManaged.reset(), f.processes = {"wpa_supplicant"}; }},
        {"", "", [](Facts &f) { f.radios[0].isManaged.reset(), f.processes.push_back("NetworkManager"); }},
        {"", "", [](Facts &f) { f.now = f.built + 87000h, f.lastUpdateCheck = f.now; }},
        {"clockAhead ", "sudo timedatectl", [](Facts &f) { f.built = f.now - 88000h; }},
        {"", "", [](Facts &f) { f.built = Date(); }},
        {"feedSilent ", "", [](Facts &f) { f.lastUpdateCheck = today - 30 * 24h; }},
        {"feedSilent ", "", [](Facts &f) { f.lastUpdateCheck.reset(); }},
        {"", "", [](Facts &f) { f.lastUpdateCheck.reset(), f.updateTroubleSince.reset(); }},
        {"", "", [](Facts &f) { f.lastUpdateCheck.reset(), f.checksForUpdates = false; }},
    };
    for (const auto &row : table) {
        auto facts = healthy();
        row.change(facts);
        std::string found, remedy;
        for (const auto &finding : diagnose(facts)) {
            found += finding.id + " ";
            remedy = finding.remedy;
        }
        EXPECT_EQ(found, row.wanted) << "row " << &row - table;
        EXPECT_TRUE(remedy.starts_with(row.remedy)) << remedy;
    }
}

TEST(Doctor, AJournalThatNobodyWillUndoIsDescribed) {
    auto facts = healthy();
    loseDaemon(facts);
    const std::string line = "A daemon that is gone has left changes behind";
    EXPECT_EQ(diagnose(facts).back().line, line + ", from before the machine was started, of services that "
                                                  "are not there (device:gone).");
    facts.journal = {today, servicesInJournal(R"({"a": [{"serviceID": "device:wlan0"}]})")};
    EXPECT_EQ(diagnose(facts).back().line, line + ".");
    facts.isSudo = true;
    EXPECT_TRUE(notSeen(facts).empty()) << "root's own checks";
    facts.lastUpdateCheck = facts.updateTroubleSince = std::nullopt;
    EXPECT_EQ(notSeen(facts).size(), 1U);
}

} // namespace
} // namespace tarn::doctor
