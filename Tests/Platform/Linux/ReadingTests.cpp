// What the reader makes of a kernel's own devices, addresses and routes, of real resolver and
// lease files, and of services on a real message bus.

#include "Platform/Linux/RouteNetlink.h"
#include "Platform/Platform.h"
#include "Support/NetworkManagerLab.h"
#include "TarnSystem/SystemStateReader.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <iostream>
#include <map>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace tarn {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::Pair;
using Source = SystemVisibility::Source;
using Strings = std::vector<std::string>;

class Reading : public LabTest {
protected:
    std::map<std::string, InterfaceSnapshot> read() {
        if (!platform_) {
            platform_ = makePlatform();
            reader_ = std::make_unique<SystemStateReader>(platform_->openDynamicStore("test"),
                                                          platform_->openNetworkPreferences("test"),
                                                          platform_->wifi());
        }
        std::map<std::string, InterfaceSnapshot> devices;
        for (auto &snapshot : reader_->readInterfaces())
            devices.emplace(snapshot.device, std::move(snapshot));
        visibility_ = platform_->visibility();
        return devices;
    }
    /// Runs each row's commands after the first ones, and compares what is then found at the devices.
    void expectEach(const std::string &first, const std::vector<std::pair<std::string, std::string>> &rows,
                    const std::function<Strings(const InterfaceSnapshot &)> &find) {
        for (const auto &[commands, expected] : rows) {
            lab().run(first);
            lab().run(commands);
            std::string found;
            for (const auto &[device, snapshot] : read())
                for (const auto &text : find(snapshot))
                    found += (found.empty() ? "" : " ") + device + "=" + text;
            EXPECT_EQ(found, expected) << commands;
        }
    }
    void addTwoCables() {
        lab().addCable("eth0", {"192.0.2.10/24", "2001:db8::10/64"}, {});
        lab().addCable("eth1", {"198.51.100.10/24"}, {});
    }
    static std::string indexOf(const std::string &device) {
        const auto line = readFile("/sys/class/net/" + device + "/ifindex");
        return line.substr(0, line.find('\n'));
    }

    std::unique_ptr<Platform> platform_;
    std::unique_ptr<SystemStateReader> reader_;
    SystemVisibility visibility_;
};

TEST_F(Reading, DevicesAreClassedByWhatTheyAre) {
    constexpr auto wired = InterfaceKind::wired;
    constexpr auto other = InterfaceKind::other;
    const std::vector<std::tuple<std::string, std::string, InterfaceKind>> rows = {
        {"veth0", "ip link add veth0 type veth peer name port0", wired},
        {"bridge0", "ip link add bridge0 type bridge", other},
        {"port0", "ip link set port0 master bridge0", other},
        {"macvlan0", "ip link add macvlan0 link veth0 type macvlan", wired},
        {"tun0", "ip tuntap add mode tun dev tun0", other},
        {"tap0", "ip tuntap add mode tap dev tap0", other},
        {"bond0", "ip link add bond0 type bond", wired},
        {"vlan0", "ip link add vlan0 link veth0 type vlan id 7", wired},
        {"dummy0", "ip link add dummy0 type dummy", wired},
    };
    for (const auto &[device, commands, kind] : rows) {
        const auto result = lab().execute(commands);
        const auto snapshot = read()[device];
        EXPECT_EQ(snapshot.kind, result.status == 0 ? kind : other) << commands;
        EXPECT_EQ(snapshot.serviceID.has_value(), snapshot.kind == wired) << commands;
        // Not every kernel has every kind, and not every user may make every one.
        EXPECT_THAT(result.err, ContainsRegex("^$|Unknown device type|Permission denied"));
    }
    EXPECT_FALSE(read().contains("lo"));
}

TEST_F(Reading, AddressesComeWithTheirFlags) {
    lab().addCable("eth0", {}, {"2001:db8::bad/64"});
    lab().run(
        "cd /proc/sys/net/ipv6/conf/eth0; echo 2 >use_tempaddr; echo 1 >accept_dad; echo 99 >dad_transmits;"
        "ip addr flush dev eth0; ip addr add 192.0.2.10/24 dev eth0;"
        "ip addr add 192.0.2.20 peer 192.0.2.21 dev eth0;"
        "ip addr add 2001:db8::1/64 dev eth0 nodad mngtmpaddr;"
        "ip addr add 2001:db8::2/64 dev eth0 nodad preferred_lft 0;"
        "ip addr add 2001:db8::3/64 dev eth0; ip addr add 2001:db8::bad/64 dev eth0");
    const auto isDuplicate = [](const IPv6Address &address) {
        return address.address == "2001:db8::bad" && address.isDuplicated();
    };
    waitUntil([&] { return std::ranges::any_of(read()["eth0"].ipv6, isDuplicate); }, "the duplicate");
    const auto snapshot = read()["eth0"];
    EXPECT_THAT(snapshot.ipv4, ElementsAre("192.0.2.10", "192.0.2.20"));
    std::map<std::string, std::int64_t> flags;
    for (const auto &address : snapshot.ipv6)
        flags.emplace(address.isTemporary() ? "temporary" : address.address, address.flags);
    using Address = IPv6Address;
    EXPECT_THAT(flags, ElementsAre(Pair("2001:db8::1", 0), Pair("2001:db8::2", Address::deprecatedFlag),
                                   Pair("2001:db8::3", Address::tentativeFlag),
                                   Pair("2001:db8::bad", Address::tentativeFlag | Address::duplicatedFlag),
                                   Pair("temporary", Address::tentativeFlag | Address::temporaryFlag)));
}

TEST_F(Reading, RoutersAreThoseOfDefaultRoutes) {
    addTwoCables();
    const auto routers = [](const InterfaceSnapshot &snapshot) {
        Strings found;
        for (const auto &router : {snapshot.ipv4Router, snapshot.ipv6Router})
            if (router)
                found.push_back(*router);
        return found;
    };
    expectEach(
        "ip nexthop flush; ip route flush exact default; ip -6 route flush exact default;"
        "ip nexthop add id 1 via 192.0.2.5 dev eth0; ip nexthop add id 2 via 198.51.100.6 dev eth1",
        {{"ip route add default via 192.0.2.1", "eth0=192.0.2.1"},
         {"ip route add default via 192.0.2.1 metric 9; ip route add default via 192.0.2.2 metric 8",
          "eth0=192.0.2.2"},
         {"ip route add default nexthop via 192.0.2.1 nexthop via 198.51.100.1",
          "eth0=192.0.2.1 eth1=198.51.100.1"},
         {"ip route add default nexthop via 192.0.2.1 dev eth0 nexthop dev eth1", "eth0=192.0.2.1"},
         {"ip -4 route add default via inet6 fe80::1 dev eth1", "eth1=fe80::1"},
         {"ip route add default nhid 1", "eth0=192.0.2.5"},
         {"ip nexthop add id 3 group 1/2; ip route add default nhid 3", "eth0=192.0.2.5 eth1=198.51.100.6"},
         {"ip route add default via 2001:db8::1", "eth0=2001:db8::1"},
         {"ip -6 route add default nexthop via fe80::1 dev eth0 nexthop via fe80::2 dev eth1",
          "eth0=fe80::1 eth1=fe80::2"},
         {"ip route add default via 192.0.2.1 table 100", ""},
         {"ip route add default dev eth0", ""},
         {"ip route add unreachable default; ip -6 route add blackhole default", ""},
         {"ip route add 0.0.0.0/1 via 192.0.2.1; ip route add 128.0.0.0/1 via 192.0.2.1", ""}},
        routers);
}

TEST_F(Reading, LeaseCountsWhileItsAddressIsInUse) {
    addTwoCables();
    const auto dhclient = [](const std::string &file, const std::string &address, const std::string &expiry) {
        return "echo 'lease {\n  interface \"eth0\";\n  fixed-address " + address +
               ";\n  option domain-name-servers 192.0.2.7;\n  expire " + expiry + ";\n}' >/var/lib/" + file;
    };
    const auto keyed = [](const std::string &file) {
        return "echo 'ADDRESS=192.0.2.10\nDNS=192.0.2.7' >" + file;
    };
    const std::string internal = "/var/lib/NetworkManager/internal-12345678-1234-1234-1234-123456789abc-";
    const std::string networkd = "/run/systemd/netif/leases/";
    expectEach(
        "cd /var/lib; mkdir -p dhcp dhclient NetworkManager /run/systemd/netif/leases;"
        "rm -f dhcp/* dhclient/* NetworkManager/* /run/systemd/netif/leases/*",
        {{dhclient("dhcp/dhclient.eth0.leases", "192.0.2.10", "never"), "eth0=192.0.2.7"},
         {dhclient("dhclient/dhclient-eth0.leases", "192.0.2.10", "4 2126/01/01 00:00:00"), "eth0=192.0.2.7"},
         {dhclient("dhcp/dhclient.leases", "192.0.2.10", "4 2016/01/01 00:00:00"), ""},
         {dhclient("dhcp/dhclient.leases", "192.0.2.11", "never"), ""},
         {keyed(internal + "eth0.lease"), "eth0=192.0.2.7"},
         {keyed(internal + "eth1.lease"), ""},
         {keyed(networkd + indexOf("eth0")), "eth0=192.0.2.7"},
         {keyed(networkd + indexOf("eth1")), ""}},
        [](const InterfaceSnapshot &snapshot) {
            EXPECT_EQ(snapshot.hasDHCPLease, !snapshot.dnsServers.empty());
            return snapshot.dnsServers;
        });
}

TEST_F(Reading, LinkIsSeenAtOnce) {
    // The kernel's own news of a lost carrier would be late from the second time on.
    addTwoCables();
    for (int i = 0; i < 5; ++i) {
        lab().pull("eth0");
        EXPECT_FALSE(read()["eth0"].linkActive);
        EXPECT_TRUE(read()["eth1"].linkActive);
        lab().plug("eth0");
        EXPECT_TRUE(read()["eth0"].linkActive);
    }
    lab().run("ip link set eth0 down");
    EXPECT_FALSE(read()["eth0"].linkActive);
}

TEST_F(Reading, PictureIsOfOneMoment) {
    // At no moment has a device a router without the address, or is an address on a device that
    // is not listed. Many addresses make a reading long enough for changes to fall into it.
    addTwoCables();
    lab().run("for i in $(seq 400); do echo addr add 2001:db8::1:$i dev eth0 nodad; done | ip -batch -");
    lab().start("sh -c 'while { printf \"addr add 192.0.2.99/24 dev eth1\\nroute add default via 192.0.2.1 "
                "dev eth1\\n"
                "link add new type veth peer name other\\naddr add 2001:db8::99 dev new nodad\\n\";"
                "yes link show dev lo | head -400;"
                "printf \"route del default\\naddr del 192.0.2.99/24 dev eth1\\nlink del new\\n\"; }"
                "| ip -batch - >/dev/null; do :; done'");
    std::map<bool, int> settled;
    const auto look = [&] {
        NetworkPicture picture;
        if (RouteNetlink::read(picture) != RouteNetlink::Result::settled)
            return;
        for (const auto &address : picture.addresses)
            EXPECT_EQ(std::ranges::count(picture.links, address.link, &NetworkPicture::Link::index), 1);
        const bool hasAddress = std::ranges::any_of(
            picture.addresses, [](const auto &entry) { return entry.address.text() == "192.0.2.99"; });
        EXPECT_TRUE(hasAddress || picture.defaultRoutes.empty());
        ++settled[hasAddress];
    };
    const auto isEnough = [&] {
        for (int i = 0; i < 100 && !HasFailure(); ++i)
            look();
        return HasFailure() || std::min(settled[true], settled[false]) > 800;
    };
    waitUntil(isEnough, "settled readings with and without the address");
}

// Services on the system bus.

class OnTheBus : public Reading {
protected:
    /// A service below org.freedesktop with one object, whose properties and methods are written in Python.
    pid_t startService(const std::string &name, const std::string &object, const std::string &interface,
                       const std::string &properties, const std::string &methods = {}) {
        lab().write("/run/lab/service.py", R"(
import dbus, os
from socket import inet_pton
BUS_NAME, SYSTEM_BUS, MAIN_OBJ, MAIN_IFACE = 'org.freedesktop.' + os.environ['NAME'], True, '/main', 'main.object'
def server(link, family, text):
    return dbus.Int32(link), dbus.Int32(family), dbus.ByteArray(inet_pton(family, text))
def load(mock, parameters):
    mock.AddObject('/org/freedesktop/' + os.environ['OBJECT'], BUS_NAME + os.environ['INTERFACE'],
                   eval(os.environ['PROPERTIES']), [)" +
                                               methods + R"(])
    if os.environ['OBJECT'] == 'NetworkManager/DnsManager':
        mock.AddObject('/org/freedesktop/NetworkManager', BUS_NAME,
                       {'ActiveConnections': dbus.Array([], signature='o')}, [])
)");
        return lab().start("env NAME=" + name + " OBJECT=" + object + " INTERFACE=" + interface +
                           " PROPERTIES=\"" + properties +
                           "\" /usr/bin/python3 -m dbusmock --system -t /run/lab/service.py");
    }
    void expectServer(const std::string &server) {
        const auto isFirst = [&] {
            const auto servers = read()["eth0"].dnsServers;
            return !servers.empty() && servers.front() == server;
        };
        waitUntil(isFirst, "the server " + server);
    }
    /// A reading with something in the way still ends soon.
    Strings quickServers() {
        const auto start = std::chrono::steady_clock::now();
        auto servers = read()["eth0"].dnsServers;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
        return servers;
    }
    /// NetworkManager, which lists a device once for each family.
    pid_t startManager(const std::string &server) {
        return startService(
            "NetworkManager", "NetworkManager/DnsManager", ".DnsManager",
            "{'Configuration': dbus.Array([{'nameservers': ['" + server +
                "'], 'priority': 100, 'interface': 'eth0'}, {'nameservers': ['192.0.2.66']}, "
                "{'interface': 'eth0', 'nameservers': ['2001:db8::53']}], signature='a{sv}')}");
    }
};

TEST_F(OnTheBus, FirstSourceThatKnowsServersCounts) {
    addTwoCables();
    lab().writeResolvConf("nameserver 192.0.2.1\n");
    EXPECT_THAT(quickServers(), ElementsAre("192.0.2.1"));
    EXPECT_EQ(visibility_.systemBus, Source::notRunning);
    const pid_t bus = startBus(lab());
    lab().write("/run/systemd/netif/leases/" + indexOf("eth0"), "ADDRESS=192.0.2.10\nDNS=192.0.2.2\n");
    EXPECT_THAT(quickServers(), ElementsAre("192.0.2.2"));
    EXPECT_EQ(visibility_.systemBus, Source::answered);
    EXPECT_EQ(visibility_.networkManager, Source::notRunning);
    startManager("192.0.2.3");
    expectServer("192.0.2.3");
    EXPECT_THAT(quickServers(), ElementsAre("192.0.2.3", "2001:db8::53"));
    EXPECT_EQ(visibility_.networkManager, Source::answered);
    const auto link = indexOf("eth0");
    const pid_t resolved =
        startService("resolve1", "resolve1", ".Manager",
                     "{'DNS': dbus.Array([server(" + link + ", 2, '127.0.0.53'), server(" + link +
                         ", 10, 'fe80::5'), server(0, 2, '198.51.100.1')], signature='(iiay)'),"
                         " 'Domains': dbus.Array([(0, 'global.example', False), (" +
                         link + ", '.', True), (" + link + ", 'corp.example', True)], signature='(isb)')}");
    expectServer("fe80::5%eth0");
    EXPECT_EQ(platform_->openDynamicStore("test")->copyValue("State:/Network/Service/device:eth0/DNS"),
              Value(Value::Dictionary{{"ServerAddresses", Value::strings({"fe80::5%eth0"})},
                                      {"SupplementalMatchDomains", Value::strings({"corp.example"})}}));
    EXPECT_THAT(read()["eth1"].dnsServers, ElementsAre("198.51.100.1"));

    kill(resolved, SIGSTOP);
    EXPECT_THAT(quickServers(), testing::Contains("192.0.2.3"));
    EXPECT_EQ(visibility_.resolved, Source::notAnswering);
    kill(resolved, SIGCONT);
    expectServer("fe80::5%eth0");
    lab().stop(resolved);
    expectServer("192.0.2.3");
    waitUntil([&] { return read().contains("eth0") && visibility_.resolved == Source::notRunning; },
              "news of its end");
    lab().stop(bus);
    expectServer("192.0.2.2");
    startBus(lab());
    startManager("192.0.2.4");
    expectServer("192.0.2.4");
}

TEST_F(OnTheBus, ServersOfADeviceCanBeSetInItsResolver) {
    addTwoCables();
    const std::string key = "State:/Network/Service/device:eth0/DNS";
    const auto set = [&](const std::string &at, const Value &servers) {
        const Value value = Value::Dictionary{{"ServerAddresses", servers}};
        return makePlatform()->openDynamicStoreEditor("test")->setValue(at, value).value_or("done");
    };
    const auto link = indexOf("eth0");
    const Value order = Value::strings({"10.0.0.53", "2001:db8::53", "fe80::5%eth0"});
    EXPECT_EQ(set(key, order), "systemd-resolved is not running.");
    startBus(lab());
    EXPECT_EQ(set(key, order), "systemd-resolved is not running.");
    const pid_t resolved =
        startService("resolve1", "resolve1", ".Manager",
                     "{'Domains': dbus.Array([], signature='(isb)'), 'DNS': dbus.Array([server(" + link +
                         ", 10, 'fe80::5'), server(" + link + ", 2, '10.0.0.53')], signature='(iiay)')}",
                     R"(('SetLinkDNS', 'ia(iay)', '', """
if args[0] == )" + indexOf("eth1") +
                         R"(:
    raise dbus.exceptions.DBusException('Link eth1 is managed.', name='org.freedesktop.resolve1.LinkBusy')
servers = dbus.Array([], signature='(iiay)')
for family, address in args[1]:
    servers.append((args[0], family, address))
self.props['org.freedesktop.resolve1.Manager']['DNS'] = servers
"""))");
    expectServer("fe80::5%eth0");
    EXPECT_EQ(set(key, order), "done") << lab().log(resolved);
    EXPECT_THAT(read()["eth0"].dnsServers, ElementsAre("10.0.0.53", "2001:db8::53", "fe80::5%eth0"));
    EXPECT_EQ(set(key, Value::strings({"fe80::5%" + link})), "done") << lab().log(resolved);
    EXPECT_THAT(read()["eth0"].dnsServers, ElementsAre("fe80::5%eth0"));

    const std::vector<std::tuple<std::string, Value, std::string>> rows = {
        {"State:/Network/Service/device:eth9/DNS", order, "There is no device eth9."},
        {key, Value::strings({"fe80::5%eth1"}), "fe80::5%eth1 is not the address of a name server on eth0."},
        {key, Value::Array{1}, " is not the address of a name server on eth0."},
        {key, "10.0.0.53", "Only the name servers of a device can be set."},
        {"State:/Network/Service/device:eth0/IPv4", order, "Only the name servers of a device can be set."},
        {"State:/Network/Service/eth0/DNS", order, "Only the name servers of a device can be set."},
        {"State:/Network/Service/device:eth1/DNS", Value::strings({"10.0.0.53"}), "Link eth1 is managed."},
    };
    for (const auto &[at, servers, words] : rows)
        EXPECT_EQ(set(at, servers), words);
    EXPECT_THAT(read()["eth0"].dnsServers, ElementsAre("fe80::5%eth0"));
}

TEST_F(OnTheBus, BusThatDoesNotAnswerIsNotWaitedFor) {
    addTwoCables();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/lab/bus", 1);
    const sockaddr_un address{AF_UNIX, "/run/lab/bus"};
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 0), 0);
    for (int i = 0; i < 3; ++i) {
        quickServers();
        EXPECT_EQ(visibility_.systemBus, Source::notAnswering);
    }
    close(listener);

    const pid_t bus = startBus(lab());
    startManager("192.0.2.3");
    expectServer("192.0.2.3");
    kill(bus, SIGSTOP);
    EXPECT_THAT(quickServers(), testing::IsEmpty());
    kill(bus, SIGCONT);
    expectServer("192.0.2.3");
}

TEST_F(OnTheBus, WiFiHasPowerAsTheManagerSaysOrElseTheRadio) {
    addTwoCables();
    startBus(lab());
    read();
    const auto isPowerOn = [&] { return platform_->wifi().powerOn(); };
    EXPECT_EQ(isPowerOn(), std::nullopt);
    lab().makeWireless("eth1");
    EXPECT_EQ(read()["eth1"].kind, InterfaceKind::wifi);
    EXPECT_EQ(isPowerOn(), true);
    for (const char *block : {"/soft", "/hard"}) {
        lab().write(lab().radioFolder() + block, "1\n");
        EXPECT_EQ(isPowerOn(), false) << block;
        lab().write(lab().radioFolder() + block, "0\n");
    }
    for (const char *off : {"", "WirelessEnabled", "WirelessHardwareEnabled"}) {
        lab().write(lab().radioFolder() + "/soft", *off ? "0\n" : "1\n");
        const pid_t manager = startService("NetworkManager", "NetworkManager", "",
                                           "{'WirelessEnabled': True, 'WirelessHardwareEnabled': True, '" +
                                               std::string(off) + "': False}");
        waitUntil([&] { return isPowerOn() == !*off; }, "the manager's answer");
        lab().stop(manager);
        waitUntil([&] { return isPowerOn() == !!*off; }, "the radio's own state");
    }
    lab().run("rm -r " + lab().radioFolder());
    EXPECT_EQ(isPowerOn(), std::nullopt);
}

} // namespace
} // namespace tarn
