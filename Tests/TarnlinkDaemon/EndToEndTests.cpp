// The program itself, in a network of its own, with real name servers at the far end of real cables.

#include "Support/NetworkLab.h"

#include <chrono>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tarn {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;
using Strings = std::vector<std::string>;

const std::string dnsmasq = "dnsmasq --no-daemon --user=root --no-resolv --no-hosts --conf-file=/dev/null ";
/// The command of a server, and what it says to any client.
struct Server {
    std::string command;
    std::string says = {};
};
const Server knowsName = {dnsmasq + "--address=/probe.invalid/192.0.2.99", "status: NOERROR"};
const Server unknownName = {dnsmasq + "--local=/invalid/", "status: NXDOMAIN"};
const Server unknownToZone = {"knotd --config /run/lab/zone.conf", "status: NXDOMAIN"};
const Server refuses = {"knotd --config /run/lab/empty.conf", "status: REFUSED"};
const Server nobody;

/// A server that does as `answer` says, which is Python.
Server serverThat(const std::string &answer) {
    return {R"(/usr/bin/python3 -c "
import select, socket
def bound(host, port):
    own = socket.socket(type=socket.SOCK_DGRAM)
    own.bind((host, port))
    return own
server, otherPort, otherHost = bound('192.0.2.1', 53), bound('192.0.2.1', 5353), bound('192.0.2.2', 53)
def say(datagram, own=server): own.sendto(datagram, client)
def forged(n): return ((int.from_bytes(right[:2], 'big') + n) % 65536).to_bytes(2, 'big') + right[2:]
late = b'late'
print('started', flush=True)
while True:
    query, client = server.recvfrom(512)
    right = query[:2] + b'\x81\x83' + query[4:]
    )" + answer +
            "\n    late = right\""};
}
const Server silent = serverThat("pass");

struct Expected {
    std::string status;
    std::string reason;
    std::size_t probes = 0;
    std::string outcome = {};
};
const Expected isUnanswered = {"wiredUnreachable (eth0, eth0)",
                               "eth0 has link and address but no traffic path; Wi-Fi kept on", 3, "timeout"};
const Expected isRefused = {isUnanswered.status, isUnanswered.reason, 3, "error \\(Connection refused\\)"};
Expected isVerified(const std::string &path = "IPv4 192.0.2.10") {
    return {"wired (eth0, eth0)", "eth0 verified: link, " + path + ", gateway, probe ok", 1,
            "reachable in [0-9.]+ ms"};
}

class EndToEnd : public LabTest {
protected:
    struct Report {
        NetworkLab::Result result;
        double seconds;

        /// What follows the words, for each line that starts with them.
        Strings lines(const std::string &words) const {
            Strings found;
            std::istringstream text(result.out);
            for (std::string line; std::getline(text, line);)
                if (line.starts_with(words))
                    found.push_back(line.substr(words.size()));
            return found;
        }
        void expect(const Expected &expected, const std::string &server = "192.0.2.1") const {
            EXPECT_THAT(lines("status: "), ElementsAre(expected.status));
            EXPECT_THAT(lines("reason: "), ElementsAre(expected.reason)) << result.out;
            const bool isWired = expected.status.starts_with("wired (");
            const bool isBroken = expected.status.starts_with("wiredUnreachable (");
            EXPECT_EQ(lines("action: ").back(), isWired    ? "setWiFiPower off"
                                                : isBroken ? "probe eth0"
                                                           : "none");
            EXPECT_THAT(lines("  eth0: "),
                        AllOf(SizeIs(expected.probes),
                              Each(MatchesRegex(expected.outcome + ", name server " + server))));
        }
    };

    Report evaluate(const std::string &options = {}, const std::string &wrapper = {}) {
        const auto start = std::chrono::steady_clock::now();
        auto result = lab().execute(wrapper + " " DAEMON " --once --dry-run " + options);
        const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - start;
        EXPECT_EQ(result.status, 0) << result.err;
        return {std::move(result), duration.count()};
    }
    void prefer(const std::string &settings) {
        lab().write("/run/lab/config/tarnlink/preferences.json", settings);
    }
    /// A cable to a router that is the name server too.
    void addUsualCable() {
        lab().addCable("eth0", {"192.0.2.10/24"},
                       {"192.0.2.1/24", "192.0.2.2/24", "198.51.100.53/32", "fe80::1/64", "2001:db8::1/64"});
        lab().run("ip route add default via 192.0.2.1 metric 100");
        lab().writeResolvConf("nameserver 192.0.2.1\n");
    }
    pid_t serve(const Server &server, const std::string &host = "far") {
        const std::string base = "server:\n  rundir: /run/lab\n  listen: [0.0.0.0, \"::\"]\n"
                                 "database:\n  storage: /run/lab\n";
        lab().write("/run/lab/empty.conf", base);
        lab().write("/run/lab/zone.conf",
                    base + "zone:\n  - domain: probe.invalid\n    file: /run/lab/zone\n");
        lab().write("/run/lab/zone", "@ 60 SOA ns mail 1 60 60 60 60\n@ 60 NS ns\nns 60 A 192.0.2.1\n");
        const pid_t process = lab().start(server.command, host);
        lab().waitForLog(process, "started");
        return process;
    }
};

struct Case {
    const char *name;
    friend std::ostream &operator<<(std::ostream &out, const Case &row) { return out << row.name; }
};
const auto caseName = [](const auto &info) { return std::string(info.param.name); };

/// What is done to the usual cable, who serves at its end, and which name server is asked.
struct Situation : Case {
    std::string commands;
    Server server;
    std::string address;
    Expected expected;
    std::string options = {};
};
class OneCable : public EndToEnd, public testing::WithParamInterface<Situation> {};

TEST_P(OneCable, IsJudged) {
    const auto &row = GetParam();
    addUsualCable();
    lab().writeResolvConf("nameserver " + row.address + "\n");
    lab().run(row.commands);
    if (!row.server.command.empty())
        serve(row.server);
    if (row.expected.probes == 1) {
        ASSERT_THAT(lab().run("kdig @" + row.address + " tarnlink.probe.invalid").out,
                    HasSubstr(row.server.says));
    }
    const bool isTimeout = row.expected.outcome == "timeout";
    prefer(isTimeout ? R"({"ProbeTimeoutSeconds": 0.2})" : R"({"ProbeTimeoutSeconds": 5})");
    const auto report = evaluate(row.options);
    report.expect(row.expected, row.address);
    EXPECT_GE(report.seconds, isTimeout ? 0.6 : 0);
    EXPECT_LT(report.seconds, 5);
}

const std::string usual = "192.0.2.1";
const std::string overIPv6 = "ip addr flush dev eth0; ip addr add 2001:db8::10/64 dev eth0;"
                             "ip route add default via 2001:db8::1";
const std::string overBoth = "ip addr add fd00::10/64 dev eth0; ip route add default via fe80::1 dev eth0";
const std::string byOtherFamily = "ip route del default; ip -4 route add default via inet6 fe80::1 dev eth0";
const std::string wayBackLost = "ip -n far route add blackhole 192.0.2.10";
const std::string wayForthLost = "ip netns exec far sysctl net.ipv4.ip_forward=1";
const std::string selfMade = "ip addr flush dev eth0; ip addr add 169.254.7.7/16 dev eth0;"
                             "ip route add default via 169.254.0.1";
const Expected isVerifiedByIPv6 = isVerified("IPv6 2001:db8::10");
const Expected isVerifiedByBoth = isVerified("IPv4 192.0.2.10 + IPv6 fd00::10");
const Expected isTrusted = {"wired (eth0, eth0)", "eth0 verified: link, IPv4 192.0.2.10, gateway"};
const Expected hasNoLink = {"offline", "no wired link, no Wi-Fi connection"};
const Expected hasNoAddress = {"offline", "eth0 linked but not addressed; waiting"};
const Expected isDisabled = {"disabled", "guard disabled by policy"};

const Situation situations[] = {
    {{"KnownName"}, "true", knowsName, usual, isVerified()},
    {{"RefusedName"}, "true", refuses, usual, isVerified()},
    {{"ServerOverIPv6"}, overIPv6, unknownName, "2001:db8::1", isVerifiedByIPv6},
    {{"LinkLocalServer"}, overBoth, unknownToZone, "fe80::1%eth0", isVerifiedByBoth},
    {{"ServerBehindRouter"}, byOtherFamily, unknownToZone, "198.51.100.53", isVerified()},
    {{"SilentServer"}, "true", silent, usual, isUnanswered},
    {{"LostAnswers"}, wayBackLost, unknownName, usual, isUnanswered},
    {{"AbsentServer"}, "true", unknownName, "192.0.2.77", isUnanswered},
    {{"NoRouteToServer"}, "true", unknownName, "2001:db8:1::53", isUnanswered},
    {{"NoRouteBehindRouter"}, wayForthLost, nobody, "203.0.113.53", isUnanswered},
    {{"ClosedPort"}, "true", nobody, usual, isRefused},
    {{"ClosedPortOverIPv6"}, "true", nobody, "fe80::1%eth0", isRefused},
    {{"CablePulled"}, "ip -n far link set eth0 down", nobody, usual, hasNoLink},
    {{"DeviceDown"}, "ip link set eth0 down", nobody, usual, hasNoLink},
    {{"NoRouter"}, "ip route del default", unknownName, usual, hasNoAddress},
    {{"SelfMadeAddress"}, selfMade, unknownName, usual, hasNoAddress},
    {{"NoServer"}, "echo '# none' >/etc/resolv.conf", unknownName, usual, isTrusted},
    {{"ServerOnThisHost"}, "true", unknownName, "127.0.0.53", isTrusted},
    {{"ProbeModeOff"}, "true", unknownName, usual, isTrusted, "--probe-mode off"},
    {{"Disabled"}, "true", unknownName, usual, isDisabled, "--disabled"}};
INSTANTIATE_TEST_SUITE_P(With, OneCable, testing::ValuesIn(situations), caseName);

TEST_F(EndToEnd, ThresholdBoundsTheNumberOfProbes) {
    addUsualCable();
    serve(silent);
    prefer(R"({"ProbeTimeoutSeconds": 0.05, "ProbeFailuresBeforeFallback": 0})");
    evaluate().expect({isUnanswered.status, isUnanswered.reason, 1, "timeout"});
    prefer(R"({"ProbeTimeoutSeconds": 0.05, "ProbeFailuresBeforeFallback": 1000000})");
    const auto report = evaluate();
    EXPECT_EQ(report.lines("  eth0: ").size(), 10u);
    EXPECT_THAT(report.lines("reason: "), ElementsAre("eth0 addressed, probe failing (10/1000000)"));
}

// Several devices.

TEST_F(EndToEnd, WiFiGivesWayAndComesBack) {
    addUsualCable();
    serve(unknownName);
    lab().addCable("wlan0", {"203.0.113.10/24"}, {"203.0.113.1/24"}, "station");
    lab().run("ip route add default via 203.0.113.1 metric 50");
    lab().makeWireless("wlan0");
    const auto report = evaluate();
    report.expect(isVerified());
    EXPECT_EQ(report.lines("action: ").front(), "reorderServices device:eth0 device:wlan0");
    EXPECT_THAT(report.lines("wifi: "), ElementsAre("on"));
    lab().pull("eth0");
    lab().run("ip route del default dev wlan0");
    evaluate().expect({"wifi", "no wired link"});
    lab().write(lab().radioFolder() + "/soft", "1\n");
    evaluate().expect({"wifiOff", "no wired path; Wi-Fi switched off by the user, left alone"});
}

TEST_F(EndToEnd, SecondCableIsVerifiedWhenTheFirstIsBroken) {
    addUsualCable();
    lab().addCable("eth1", {"198.51.100.10/24"}, {"198.51.100.1/24"}, "second");
    lab().run("ip route add default via 198.51.100.1 metric 200");
    lab().writeResolvConf("nameserver 198.51.100.1\nnameserver 192.0.2.1\n");
    serve(unknownName, "second");
    Expected expected = {"wired (eth1, eth1)", "eth1 verified: link, IPv4 198.51.100.10, gateway, probe ok",
                         3, isRefused.outcome};
    evaluate().expect(expected);

    // A phone waits behind every cable, however good its route, and rests while one is verified.
    lab().run("ip link set eth0 alias \"Anna's iPhone\"");
    expected.probes = 0;
    const auto report = evaluate();
    report.expect(expected);
    EXPECT_EQ(report.lines("action: ").front(), "disableService device:eth0 (eth0)");
}

TEST_F(EndToEnd, OnlyTheAskedDeviceCarriesTheProbe) {
    // The same address is served at both ends, and the best route leads through a bridge, which is no cable.
    addUsualCable();
    lab().addCable("port0", {}, {"203.0.113.1/24", "198.51.100.53/32"}, "other");
    lab().run("ip link add br0 type bridge; ip link set br0 up; ip link set port0 master br0;"
              "ip addr add 203.0.113.10/24 dev br0; ip route add default via 203.0.113.1 metric 5");
    lab().writeResolvConf("nameserver 198.51.100.53\n");
    serve(knowsName, "other");
    ASSERT_EQ(lab().run("kdig +short @198.51.100.53 probe.invalid").out, "192.0.2.99\n");
    evaluate().expect(isRefused, "198.51.100.53");
    serve(unknownName);
    evaluate().expect(isVerified(), "198.51.100.53");
}

// Answers from somebody who wants to be believed.

struct Attack : Case {
    std::string answer;
};
class AttackedPath : public EndToEnd, public testing::WithParamInterface<Attack> {};

TEST_P(AttackedPath, BelievesTheServerAlone) {
    addUsualCable();
    if (GetParam().name != std::string("Flood")) {
        // The genuine answer is as large as UDP carries.
        const pid_t genuine = serve(serverThat(GetParam().answer + "; say(right.ljust(65507))"));
        evaluate().expect(isVerified());
        lab().stop(genuine);
    }
    serve(serverThat(GetParam().answer));
    prefer(R"({"ProbeTimeoutSeconds": 0.2})");
    const auto report = evaluate();
    report.expect(isUnanswered);
    EXPECT_GE(report.seconds, 0.6);
    EXPECT_LT(report.seconds, 5);
}

const Attack attacks[] = {{{"OtherIdentifiers"}, "for n in 1, 256, 65535: say(forged(n))\n    say(late)"},
                          {{"OtherSenders"}, "say(right, otherHost); say(right, otherPort)"},
                          {{"Echo"}, "say(query)"},
                          {{"Pieces"}, "for n in range(12): say(right[:n])\n    pass"},
                          {{"LargestDatagram"}, "say(forged(1).ljust(65507))"},
                          {{"Flood"}, "while not select.select([server], [], [], 0)[0]: say(forged(1))"}};
INSTANTIATE_TEST_SUITE_P(With, AttackedPath, testing::ValuesIn(attacks), caseName);

// The program and its surroundings.

TEST_F(EndToEnd, JsonTellsAll) {
    addUsualCable();
    lab().addCable("eth1", {"2001:db8::10/64"}, {}, "second");
    lab().run("ip addr flush dev eth0 scope link; ip addr flush dev eth1 scope link; ip -n second link set "
              "eth1 down; ip tuntap add mode tun dev tun0; ip addr add 10.8.0.2 dev tun0");
    serve(unknownName);
    auto document = nlohmann::json::parse(evaluate("--json").result.out);
    EXPECT_THAT(document["configuration"].get<std::string>(), HasSubstr("once=true"));
    EXPECT_GT(document["probes"][0]["latencySeconds"].get<double>(), 0);
    document.erase("configuration");
    document["probes"][0].erase("latencySeconds");
    EXPECT_EQ(document, nlohmann::json::parse(R"({
      "interfaces": [
        {"device": "eth0", "kind": "wired", "serviceID": "device:eth0", "serviceName": "eth0",
         "serviceEnabled": true, "serviceOrderIndex": 0, "linkActive": true, "ipv4": ["192.0.2.10"], "ipv6": [],
         "ipv4Router": "192.0.2.1", "ipv6Router": null, "hasDHCPLease": false, "dnsServers": ["192.0.2.1"],
         "isTethering": false},
        {"device": "eth1", "kind": "wired", "serviceID": "device:eth1", "serviceName": "eth1",
         "serviceEnabled": true, "serviceOrderIndex": 1, "linkActive": false, "ipv4": [],
         "ipv6": [{"address": "2001:db8::10", "flags": 0}], "ipv4Router": null, "ipv6Router": null,
         "hasDHCPLease": false, "dnsServers": [], "isTethering": false},
        {"device": "tun0", "kind": "other", "serviceID": null, "serviceName": "",
         "serviceEnabled": true, "serviceOrderIndex": null, "linkActive": false, "ipv4": ["10.8.0.2"], "ipv6": [],
         "ipv4Router": null, "ipv6Router": null, "hasDHCPLease": false, "dnsServers": [],
         "isTethering": false}],
      "wifiPowerOn": null,
      "wifi": {"power": null, "ssid": null, "band": null, "channel": null, "rssi": null},
      "vpn": {"device": "tun0", "address": "10.8.0.2"},
      "shadowedResolvers": [],
      "probes": [{"device": "eth0", "server": "192.0.2.1", "outcome": "reachable"}],
      "status": {"wired": {"device": "eth0", "name": "eth0"}},
      "reason": "eth0 verified: link, IPv4 192.0.2.10, gateway, probe ok",
      "actions": [{"action": "setWiFiPower", "power": false}],
      "notSeen": ["the system bus is not running: NetworkManager and systemd-resolved cannot be asked",
                  "services and their order are the kernel's view",
                  "no Wi-Fi interface: its power counts as on, and switching it has nothing to do"]
    })"))
        << document.dump(2);
}

TEST_F(EndToEnd, NeedsNoPrivilege) {
    addUsualCable();
    serve(unknownName);
    lab().run("mkdir -m 0 /var/lib/dhcp");
    const std::string powerless = "setpriv --bounding-set=-all --inh-caps=-all";
    ASSERT_NE(lab().execute(powerless + " ip link set lo down").status, 0);
    const auto report = evaluate("", powerless);
    report.expect(isVerified());
    EXPECT_THAT(report.lines("  some DHCP leases "), ElementsAre("cannot be read"));
}

TEST_F(EndToEnd, BrokenPreferencesAreNamedAndTheRunGoesOn) {
    addUsualCable();
    serve(unknownName);
    prefer("{\"ProbeMode\": \"off\",\n  Enabled: false}\n");
    const auto report = evaluate();
    EXPECT_THAT(report.result.err, HasSubstr("/run/lab/config/tarnlink/preferences.json:2:3: "));
    report.expect(isVerified());
}

TEST_F(EndToEnd, UseIsChecked) {
    struct Use {
        std::string arguments;
        int status;
        std::string out;
        std::string err;
    };
    const std::string alone = "TarnlinkDaemon: --once goes with --dry-run: .*\n";
    const std::string unwritten = "TarnlinkDaemon: the report could not be written\n";
    const std::vector<Use> uses = {{"--once", 2, "", alone},
                                   {"--record", 2, "", "TarnlinkDaemon: --record needs .*\n"},
                                   {"--replay /nowhere", 1, "", "TarnlinkDaemon: /nowhere: No such .*\n"},
                                   {"--undo --record /nowhere/file", 1, "", "TarnlinkDaemon: /nowhere/.*\n"},
                                   {"--help", 0, "Usage: TarnlinkDaemon .*", ""},
                                   {"--version", 0, "TarnlinkDaemon [0-9.]+ \\([0-9]+\\)\n", ""},
                                   {"--once --dry-run >/dev/full", 1, "", unwritten},
                                   {"--once --dry-run --json >&-", 1, "", unwritten},
                                   {"--help >/dev/full", 1, "", ""},
                                   {"--version >&-", 1, "", ""}};
    for (const auto &use : uses) {
        SCOPED_TRACE(use.arguments);
        const auto result = lab().execute(DAEMON " " + use.arguments);
        EXPECT_EQ(result.status, use.status);
        EXPECT_THAT(result.out, MatchesRegex(use.out));
        EXPECT_THAT(result.err, MatchesRegex(use.err));
    }
}

} // namespace
} // namespace tarn
