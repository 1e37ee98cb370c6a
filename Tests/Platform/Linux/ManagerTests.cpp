// Services and Wi-Fi as a real NetworkManager tells of them, through its starts, ends and pauses,
// and as one with radios would.

#include "Platform/Linux/LinuxStoreWatch.h"
#include "Platform/Linux/LinuxWiFi.h"
#include "Support/NetworkManagerLab.h"
#include "TarnSystem/SystemStateReader.h"

#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <map>

namespace tarn {
namespace {

using testing::HasSubstr;
using Source = SystemVisibility::Source;
using Kind = WiFiClient::PowerResult::Kind;
using Clock = std::chrono::steady_clock;

class Managed : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        if (IsSkipped())
            return;
        startBus(lab());
        try {
            manager_.emplace(lab());
        } catch (const NetworkLab::Unavailable &reason) {
            GTEST_SKIP() << reason.what();
        }
    }
    /// The services' names by device, with " off" for a disabled one. No reading takes long.
    std::map<std::string, std::string> names() {
        const auto start = Clock::now();
        std::map<std::string, std::string> found;
        for (const auto &snapshot : reader_.readInterfaces())
            found[snapshot.device] = snapshot.serviceName + (snapshot.serviceEnabled ? "" : " off");
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
        return found;
    }
    void expectName(const std::string &device, const std::string &name) {
        waitUntil([&] { return names()[device] == name; }, device + " named " + name);
    }
    /// NetworkManager with a radio "wlan0"; what is active there is written in Python.
    pid_t startMock(const std::string &parameters, const std::string &load) {
        lab().write("/run/lab/manager.py", R"(
import dbusmock
from dbusmock.templates.networkmanager import *
import dbusmock.templates.networkmanager as base
def load(mock, parameters):
    base.load(mock, parameters)
    mock.AddObject(MANAGER_OBJ + '/DnsManager', MANAGER_IFACE + '.DnsManager',
                   {'Configuration': dbus.Array([], signature='a{sv}')}, [])
    manager = dbusmock.get_object(MANAGER_OBJ)
    device = mock.AddWiFiDevice('wlan0', 'wlan0', 100)
    wireless = dbusmock.get_object(device)
    def active(name, **properties):
        path = '/org/freedesktop/NetworkManager/ActiveConnection/' + name.replace(' ', '_')
        mock.AddObject(path, ACTIVE_CONNECTION_IFACE, {
            'Id': name, 'Devices': dbus.Array([device], signature='o'), 'State': dbus.UInt32(2), 'Vpn': False,
            **properties}, [])
        return dbus.ObjectPath(path)
    def point(ssid, frequency, strength):
        path = mock.AddAccessPoint(device, 'ap', '', '', 2, frequency, 0, strength, 0)
        dbusmock.get_object(path).Set(ACCESS_POINT_IFACE, 'Ssid', dbus.ByteArray(ssid))
        return path
)" + load);
        const pid_t mock = lab().start("/usr/bin/python3 -m dbusmock --system -t /run/lab/manager.py -p '" +
                                       parameters + "'");
        waitUntil([&] { return names().contains("wlan0") && isAnswering(); }, "the service");
        return mock;
    }
    bool isAnswering() const { return network_.visibility().networkManager == Source::answered; }

    bool isNotRunning() const { return network_.visibility().networkManager == Source::notRunning; }

    std::optional<NetworkManagerLab> manager_;
    DisabledServices disabled_;
    LinuxNetwork network_{disabled_};
    LinuxWiFi wifi_{network_};
    SystemStateReader reader_{network_.openStore(), network_.openPreferences(), wifi_};
};

TEST_F(Managed, NamesAndDomainsComeAndGoWithTheManager) {
    lab().addCable("eth0", {}, {});
    lab().addCable("eth1", {}, {});
    manager_->addProfile("Home cable", "eth0",
                         "[ipv4]\nmethod=manual\naddress1=192.0.2.10/24,192.0.2.1\ndns=192.0.2.53;\n"
                         "dns-search=~corp.example;home.example;\n[ipv6]\nmethod=disabled\n");
    manager_->addProfile("Caf\u00e9 \u2014 \u0391", "eth1",
                         "[ipv4]\nmethod=manual\naddress1=198.51.100.10/24\n[ipv6]\nmethod=disabled\n");
    const auto *dnsKey = "State:/Network/Service/device:eth0/DNS";
    const Value dns =
        Value::Dictionary{{"ServerAddresses", Value::strings({"192.0.2.53"})},
                          {"SupplementalMatchDomains", Value::strings({"corp.example", "home.example"})}};
    EXPECT_EQ(names()["eth0"], "eth0");
    for (int i = 0; i < 2; ++i) {
        const pid_t manager = manager_->start();
        expectName("eth0", "Home cable");
        expectName("eth1", "Caf\u00e9 \u2014 \u0391");
        waitUntil([&] { return names().contains("eth0") && network_.picture()->value(dnsKey) == dns; },
                  "domains");

        kill(manager, SIGSTOP);
        EXPECT_EQ(names()["eth0"], "eth0");
        EXPECT_EQ(network_.visibility().networkManager, Source::notAnswering);
        const auto start = Clock::now();
        network_.takePicture();
        EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(400)) << "waited for once";
        kill(manager, SIGCONT);
        expectName("eth0", "Home cable");

        lab().stop(manager);
        waitUntil([&] { return names()["eth0"] == "eth0" && isNotRunning(); }, "news of its end");
        EXPECT_TRUE(network_.picture()->value("State:/Network/Service/device:eth0/IPv4"))
            << "it is the kernel's";
        // The next one is to find its devices as after a boot, wherever this one was interrupted.
        lab().run("ip addr flush dev eth0; ip addr flush dev eth1; rm -rf /run/NetworkManager/devices");
    }
}

TEST_F(Managed, ServiceStaysDisabledUntilSomebodyEnablesIt) {
    lab().addCable("eth0", {}, {});
    lab().addCable("eth1", {}, {});
    manager_->addProfile("Home cable", "eth0");
    const pid_t manager = manager_->start();
    expectName("eth0", "Home cable");
    manager_->command("device disconnect eth0");
    expectName("eth0", "eth0");
    disabled_.insert("eth0");
    const auto expectOff = [&] {
        auto found = names();
        EXPECT_EQ(found["eth0"] + ", " + found["eth1"], "eth0 off, eth1");
        EXPECT_TRUE(disabled_.contains("eth0"));
    };
    expectOff();
    kill(manager, SIGSTOP);
    expectOff();
    kill(manager, SIGCONT);
    waitUntil([&] { return names().contains("eth0") && isAnswering(); }, "answers");
    expectOff();
    manager_->command("device connect eth0");
    expectName("eth0", "Home cable");
    EXPECT_FALSE(disabled_.contains("eth0"));

    disabled_.insert("eth1");
    lab().stop(manager);
    waitUntil([&] { return names().contains("eth1") && isNotRunning(); }, "its end");
    EXPECT_EQ(names()["eth1"], "eth1 off");
}

TEST_F(Managed, WhileChangesAreListenedForOnlyTheyMakeItAskAgain) {
    lab().addCable("eth0", {}, {});
    manager_->addProfile("Home cable", "eth0");
    const pid_t manager = manager_->start();
    expectName("eth0", "Home cable");
    EventLoop loop;
    auto lastTold = Clock::now();
    std::optional<LinuxStoreWatch> watch(std::in_place, loop, network_.news(), [&](const auto &) {
        names();
        lastTold = Clock::now();
    });
    watch->setNotificationKeys({"Setup:/Network/Service/[^/]+"});
    watch->schedule();
    const auto quieten = [&] {
        do {
            loop.postAfter(std::chrono::milliseconds(50), [&] { loop.stop(); });
            loop.run();
        } while (Clock::now() - lastTold < std::chrono::milliseconds(500));
    };
    quieten();
    names();
    kill(manager, SIGSTOP);
    lab().run("ip addr add 192.0.2.77/24 dev eth0");
    EXPECT_EQ(names()["eth0"], "Home cable");
    EXPECT_TRUE(isAnswering());
    EXPECT_TRUE(network_.picture()->value("State:/Network/Interface/eth0/IPv4")) << "the kernel is asked";
    // The old answer says that a profile is active, but not since when.
    disabled_.insert("eth0");
    EXPECT_EQ(names()["eth0"], "eth0 off");
    EXPECT_FALSE(isAnswering());
    kill(manager, SIGCONT);
    disabled_.erase("eth0");
    for (const auto &[command, name] :
         {std::pair("disconnect", "eth0"), std::pair("connect", "Home cable")}) {
        names();
        quieten();
        EXPECT_TRUE(isAnswering());
        manager_->command(std::string("device ") + command + " eth0");
        quieten();
        kill(manager, SIGSTOP);
        EXPECT_EQ(names()["eth0"], name) << "known before it is asked for";
        kill(manager, SIGCONT);
    }
    watch.reset();
    kill(manager, SIGSTOP);
    names();
    EXPECT_FALSE(isAnswering()) << "nobody would hear of changes";
    kill(manager, SIGCONT);
}

TEST_F(Managed, RadioIsSwitchedByTheManagerAlone) {
    EXPECT_EQ(wifi_.setPower(false).kind, Kind::noInterface);
    EXPECT_FALSE(wifi_.interface());
    lab().makeWireless("wlan0");
    EXPECT_EQ(wifi_.setPower(false).kind, Kind::noController);
    const pid_t manager = manager_->start();
    // Its loop does not run: nothing but the switching itself says that Wi-Fi has changed.
    EventLoop loop;
    LinuxStoreWatch watch(loop, network_.news(), [](const auto &) {});
    ASSERT_TRUE(watch.schedule());
    for (const bool on : {false, false, true, true, false}) {
        const auto result = wifi_.setPower(on);
        EXPECT_EQ(result.kind, Kind::done) << result.message;
        EXPECT_EQ(manager_->command("radio wifi"), on ? "enabled\n" : "disabled\n");
        EXPECT_EQ(wifi_.powerOn(), on);
        EXPECT_EQ(wifi_.interface()->powerOn, on);
    }
    kill(manager, SIGSTOP);
    const auto start = Clock::now();
    const auto result = wifi_.setPower(true);
    EXPECT_EQ(result.kind, Kind::refused);
    EXPECT_THAT(result.message, HasSubstr("timed out"));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
    lab().stop(manager);
    // The bus may still be about to learn that it is gone.
    waitUntil([&] { return wifi_.setPower(true).kind == Kind::noController; }, "a bus without it");
    EXPECT_EQ(wifi_.interface()->powerOn, true) << "nobody says that it is off";
}

TEST_F(Managed, RefusedSwitchingSaysWhy) {
    lab().addCable("wlan0", {}, {});
    lab().makeWireless("wlan0");
    const std::string off = R"({"WirelessEnabled": false, "WirelessHardwareEnabled": )";
    const std::vector<std::tuple<std::string, std::string, Kind, std::string>> rows = {
        {off + "true}", "", Kind::done, ""},
        {off + "false}", "", Kind::refused, "hardware switch"},
        {off + "true}", "    del manager.props[MANAGER_IFACE]['WirelessEnabled']\n", Kind::refused,
         "WirelessEnabled"},
    };
    for (const auto &[parameters, load, kind, message] : rows) {
        const pid_t mock = startMock(parameters, load);
        const auto result = wifi_.setPower(true);
        EXPECT_EQ(result.kind, kind) << message;
        EXPECT_THAT(result.message, HasSubstr(message));
        EXPECT_TRUE(kind != Kind::done || wifi_.powerOn() == true);
        lab().stop(mock);
    }
}

TEST_F(Managed, AccessPointIsTheOneInUse) {
    lab().addCable("wlan0", {}, {});
    lab().makeWireless("wlan0");
    EXPECT_EQ(wifi_.interface()->name, "wlan0");
    const std::string use =
        "    wireless.AddProperty(WIRELESS_DEVICE_IFACE, 'ActiveAccessPoint', dbus.ObjectPath(";
    // Network, channel, band and dBm.
    const std::vector<std::pair<std::string, std::string>> rows = {
        {use + "point('Caf\u00e9'.encode(), 5180, 70)))", "Caf\u00e9 36 2 -58"},
        {use + "point(b'Caf\\xe9 \\x00\\n', 2437, 100)))", std::string("Caf\uFFFD \0\n 6 1 -40", 17)},
        {use + "point(b'', 3, 0)))", "none 0 0 0"},
        {use + "'/'))", "none 0 0 0"},
        {use + "'/gone'))", "none 0 0 0"},
        {"", "none 0 0 0"},
    };
    for (const auto &[load, expected] : rows) {
        const pid_t mock = startMock("{}", load);
        const auto wifi = wifi_.interface().value();
        const auto channel = wifi.channel.value_or(WiFiClient::Channel());
        EXPECT_EQ(wifi.ssid.value_or("none") + " " + std::to_string(channel.number) + " " +
                      std::to_string(channel.bandCode) + " " + std::to_string(wifi.rssi),
                  expected);
        lab().stop(mock);
    }
}

TEST_F(Managed, NameIsThatOfTheDevicesOwnActiveProfile) {
    lab().addCable("wlan0", {}, {});
    lab().makeWireless("wlan0");
    // The active connections, and which of them the device calls its own.
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"'/gone', own, active('Work', Vpn=True), active('Other')", "Air"},
        {"active('Work', Vpn=True)", "wlan0"},
        {"", "wlan0"},
    };
    for (const auto &[list, name] : rows) {
        const pid_t mock = startMock(
            "{}", "    own = active('Air')\n    wireless.Set(DEVICE_IFACE, 'ActiveConnection', own)\n"
                  "    manager.Set(MANAGER_IFACE, 'ActiveConnections', dbus.Array([" +
                      list + "], signature='o'))\n");
        EXPECT_EQ(names()["wlan0"], name) << list;
        lab().stop(mock);
    }
}

} // namespace
} // namespace tarn
