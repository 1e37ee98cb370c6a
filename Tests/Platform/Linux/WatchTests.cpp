// What the event source tells of a kernel's own devices, of files, and of services on a bus.

#include "Platform/Linux/EventLoop.h"
#include "Platform/Linux/FileWatch.h"
#include "Platform/Platform.h"
#include "Support/NetworkLab.h"
#include "TarnSystem/SCDynamicStoreEventSource.h"
#include "TarnSystem/SystemStateReader.h"

#include <csignal>
#include <gmock/gmock.h>
#include <set>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarn {
namespace {

using testing::IsSupersetOf;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Keys = std::set<std::string>;

class Watching : public LabTest {
protected:
    void watch(double debounce = 0.02) {
        platform = makePlatform();
        reader = std::make_unique<SystemStateReader>(
            platform->openDynamicStore("test"), platform->openNetworkPreferences("test"), platform->wifi());
        source = std::make_unique<SCDynamicStoreEventSource>(
            [this](const auto &name, auto callback) {
                return platform->watchDynamicStore(name, std::move(callback));
            },
            platform->mainActor());
        source->start(debounce, [this](const std::vector<std::string> &keys) {
            told.insert(keys.begin(), keys.end());
            picture = reader->readInterfaces();
            lastBatch = Clock::now();
            ++batches;
        });
        quieten();
    }
    void runFor(Clock::duration time) {
        auto &actor = platform->mainActor();
        actor.postAfter(time, [&] { actor.stop(); });
        actor.run();
    }
    /// Waits until nothing more comes, and forgets what came.
    void quieten() {
        int before = -1;
        while (std::exchange(before, batches) != batches || Clock::now() - lastBatch < 300ms)
            runFor(50ms);
        told.clear();
        batches = 0;
    }
    /// Does something, and waits until the keys have been told.
    void expectTold(const std::function<void()> &change, const Keys &keys, const std::string &what) {
        told.clear();
        const auto deadline = Clock::now() + 5s;
        change();
        while (!std::ranges::includes(told, keys) && Clock::now() < deadline)
            runFor(5ms);
        EXPECT_THAT(told, IsSupersetOf(keys)) << what;
    }
    void expectTold(const std::string &commands, const Keys &keys) {
        expectTold([&] { lab().run(commands); }, keys, commands);
    }
    /// A change that is under way may take another batch.
    void expectRightPicture(const std::string &what) {
        for (int i = 0; i < 100 && picture != freshPicture(); ++i)
            runFor(10ms);
        EXPECT_EQ(picture, freshPicture()) << what;
    }
    std::vector<InterfaceSnapshot> freshPicture() {
        const auto other = makePlatform();
        return SystemStateReader(other->openDynamicStore("test"), other->openNetworkPreferences("test"),
                                 other->wifi())
            .readInterfaces();
    }

    std::unique_ptr<Platform> platform;
    std::unique_ptr<SystemStateReader> reader;
    std::unique_ptr<SCDynamicStoreEventSource> source;
    Keys told;
    int batches = 0;
    Clock::time_point lastBatch = Clock::now();
    std::vector<InterfaceSnapshot> picture;
};

const std::string interfaceOf = "State:/Network/Interface/";
const std::string serviceOf = "State:/Network/Service/device:";

TEST_F(Watching, EveryKindOfChangeIsToldWithItsKey) {
    lab().addCable("eth0", {"192.0.2.10/24"}, {});
    lab().run("mkdir -p /var/lib/dhcp");
    watch();
    const std::vector<std::pair<std::string, Keys>> changes = {
        {"ip -n far link set eth0 down", {interfaceOf + "eth0/Link"}},
        {"ip -n far link set eth0 up", {interfaceOf + "eth0/Link"}},
        {"ip addr add 192.0.2.20/24 dev eth0", {interfaceOf + "eth0/IPv4"}},
        {"ip addr add 2001:db8::10/64 dev eth0", {interfaceOf + "eth0/IPv6"}},
        {"ip route add default via 192.0.2.1", {serviceOf + "eth0/IPv4", "State:/Network/Global/IPv4"}},
        {"ip route add default via 2001:db8::1", {serviceOf + "eth0/IPv6", "State:/Network/Global/IPv6"}},
        {"ip link add eth1 type veth peer name eth2", {interfaceOf + "eth1/Link", interfaceOf + "eth2/Link"}},
        {"ip link set eth0 alias iPhone", {"Setup:/Network/Service/device:eth0"}},
        {"ip link del eth1", {interfaceOf + "eth1/Link"}},
        {"echo nameserver 192.0.2.1 >/etc/resolv.conf", {serviceOf + "eth0/DNS"}},
        {"echo >/var/lib/dhcp/dhclient.leases", {serviceOf + "eth0/DHCP"}},
        {"mkdir /var/lib/NetworkManager", {serviceOf + "eth0/DHCP"}},
        {"echo >/var/lib/NetworkManager/internal-12345678-1234-1234-1234-123456789abc-eth0.lease",
         {serviceOf + "eth0/DHCP"}},
        {"mkdir -p /run/systemd/netif/leases; echo >/run/systemd/netif/leases/7", {serviceOf + "eth0/DHCP"}},
    };
    for (const auto &[commands, keys] : changes) {
        expectTold(commands, keys);
        expectRightPicture(commands);
    }
    quieten();
    lab().run("ip route add 198.51.100.0/24 via 192.0.2.1; echo >/var/lib/NetworkManager/timestamps;"
              "ip addr add 127.0.0.2/8 dev lo; ip link add awdl0 type veth peer name llw0");
    runFor(300ms);
    // The two devices' services, which have no place in the list of ignored names, and nothing else.
    EXPECT_THAT(told, testing::IsSubsetOf(
                          {"Setup:/Network/Service/device:awdl0", "Setup:/Network/Service/device:llw0"}));
}

TEST_F(Watching, LossIsToldSoonThoughTheKernelHoldsItBack) {
    // Devices with the index of their peers: to the kernel, these alone are like physical ones.
    lab().addCable("eth0", {}, {});
    lab().run(
        "for i in 1 2; do ip link add wire$i index 70$i type veth peer name wire$i index 70$i netns far;"
        "ip link set wire$i up; ip -n far link set wire$i up; done");
    watch(0);
    for (const auto gap : {5ms, 600ms, 1500ms}) {
        expectTold([&] { lab().pull("wire1"); }, {interfaceOf + "wire1/Link"}, "first loss");
        expectTold([&] { lab().plug("wire1"); }, {interfaceOf + "wire1/Link"}, "up");
        runFor(gap);
        // Two cables of one switch; the news of the second would wait for a second after the first.
        told.clear();
        const auto start = Clock::now();
        lab().run("ip -n far -batch - <<END\nlink set wire1 down\nlink set wire2 down\nEND");
        expectTold([] {}, {interfaceOf + "wire1/Link", interfaceOf + "wire2/Link"}, "both losses");
        EXPECT_LT(Clock::now() - start, 300ms);
        lab().run("ip -n far link set wire1 up; ip -n far link set wire2 up");
        runFor(2200ms);
    }
}

TEST_F(Watching, NewsThatTheKernelDroppedIsSeenAllTheSame) {
    lab().addCable("eth0", {"192.0.2.10/24"}, {});
    watch(0.3);
    for (const bool isAsleep : {false, true}) {
        // The storm runs while this process sleeps, or beside it.
        const std::string storm =
            "for i in $(seq 500); do for j in 1 2; do "
            "echo addr add 198.51.100.$((i % 250 + 1))/24 dev eth0;"
            "echo addr del 198.51.100.$((i % 250 + 1))/24 dev eth0; done; done >/run/lab/storm;"
            "ip -batch /run/lab/storm; ip -n far link set eth0 down;"
            "ip addr add 203.0.113.9/24 dev eth0";
        if (isAsleep)
            lab().run(storm);
        else {
            const auto process = lab().start("sh -c '" + storm + "; echo over'");
            while (lab().log(process).find("over") == std::string::npos)
                runFor(10ms);
        }
        runFor(700ms);
        EXPECT_LE(batches, isAsleep ? 1 : 3);
        expectRightPicture("after the storm");
        lab().run("ip addr del 203.0.113.9/24 dev eth0");
        lab().plug("eth0");
        quieten();
    }
}

TEST_F(Watching, ServicesOnABusThatComesAndGoes) {
    lab().addCable("eth0", {"192.0.2.10/24"}, {});
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/lab/bus/socket", 1);
    lab().write(
        "/run/lab/bus.conf",
        "<busconfig><listen>unix:path=/run/lab/bus/socket</listen><policy context='default'>"
        "<allow own='*'/><allow send_destination='*'/><allow receive_sender='*'/></policy></busconfig>");
    watch();
    const Keys keys = {serviceOf + "eth0/DNS", "Setup:/Network/Service/device:eth0"};
    for (int i = 0; i < 2; ++i) {
        pid_t bus = 0;
        expectTold(
            [&] {
                lab().run("mkdir -p /run/lab/bus");
                bus = lab().start("dbus-daemon --nofork --print-address --config-file=/run/lab/bus.conf");
                lab().waitForLog(bus, "unix:");
            },
            keys, "bus");
        pid_t manager = 0;
        const std::string mock = "/usr/bin/python3 -m dbusmock --system -t networkmanager";
        expectTold([&] { manager = lab().start(mock); }, keys, "manager");
        runFor(500ms);
        expectTold("busctl --address=unix:path=/run/lab/bus/socket call org.freedesktop.NetworkManager "
                   "/org/freedesktop/NetworkManager "
                   "org.freedesktop.DBus.Mock UpdateProperties 'sa{sv}' org.freedesktop.NetworkManager 1 "
                   "WirelessEnabled b false",
                   keys);
        expectTold([&] { lab().stop(manager); }, keys, "manager's end");
        expectTold(
            [&] {
                lab().stop(bus);
                lab().run("rm -rf /run/lab/bus");
            },
            keys, "bus's end");
    }
}

TEST_F(Watching, FilesAreFollowedThroughLinksAndMissingFolders) {
    EventLoop loop;
    int times = 0;
    FileWatch files(
        loop, {"/run/lab/etc/conf", "/run/lab/leases"},
        [](std::string_view name) { return name.starts_with("lease"); }, [&] { ++times; });
    const std::vector<std::pair<std::string, bool>> steps = {
        {"mkdir /run/lab/etc /run/lab/other", true},
        {"echo >etc/else; echo >other/conf", false},
        {"ln -s ../run/deep/conf etc/conf", true},
        {"mkdir -p run/deep", true},
        {"echo >run/deep/conf", true},
        {"cat run/deep/conf; echo >run/deep/else", false},
        {"echo >>run/deep/conf", true},
        {"echo >run/new; mv run/new run/deep/conf", true},
        {"echo >>run/deep/conf", true},
        {"ln -sf /run/lab/other/conf etc/conf", true},
        {"echo >>other/conf", true},
        {"rm -r run", false},
        {"rm etc/conf; echo >etc/conf", true},
        {"mkdir leases", true},
        {"echo >leases/timestamps", false},
        {"echo >leases/lease1", true},
        {"rm -r leases; mkdir leases; echo >leases/lease2", true},
        {"rm -r etc", true},
    };
    for (const auto &[commands, isTold] : steps) {
        times = 0;
        lab().run("cd /run/lab; " + commands);
        loop.postAfter(20ms, [&] { loop.stop(); });
        loop.run();
        EXPECT_EQ(times > 0, isTold) << commands;
    }
}

TEST_F(Watching, IdleTakesNoTurn) {
    lab().addCable("eth0", {"192.0.2.10/24"}, {});
    watch();
    const auto switches = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_nvcsw;
    };
    // The last look after the start is over.
    runFor(2200ms);
    const auto before = switches();
    runFor(3s);
    // One to sleep until the end of the test.
    EXPECT_LE(switches() - before, 1);
    EXPECT_EQ(batches, 0);
}

} // namespace
} // namespace tarn
