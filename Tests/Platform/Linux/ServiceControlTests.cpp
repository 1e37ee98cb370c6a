// Services changed through a real NetworkManager, seen in the kernel and in its profiles' files.

#include "Platform/Linux/LinuxPreferencesEditor.h"
#include "Support/NetworkManagerLab.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/ServiceController.h"

#include <chrono>
#include <gmock/gmock.h>

namespace tarn {
namespace {

using testing::HasSubstr;
using testing::Not;
using Kind = NetworkPreferencesEditor::Result::Kind;
using enum IPProtocol;

ProtocolConfiguration method(const char *name) {
    return {Value(Value::Dictionary{{"ConfigMethod", name}}), true};
}

class ServiceControl : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        if (IsSkipped())
            return;
        lab().addCable("eth0", {}, {"192.0.2.1/24", "2001:db8::1/64"});
        lab().addCable("eth1", {}, {"198.51.100.1/24", "2001:db8:1::1/64", "fe80::1/64"});
        startBus(lab());
        try {
            manager_.emplace(lab());
        } catch (const NetworkLab::Unavailable &reason) {
            GTEST_SKIP() << reason.what();
        }
        manager_->addProfile(
            "Home", "eth0",
            "[ipv4]\nmethod=manual\naddress1=192.0.2.10/24,192.0.2.1\ndns=192.0.2.1\n"
            "dns-search=a.org\nroute1=10.0.0.0/8,192.0.2.7\nroute1_options=table=7,mtu=1400\n"
            "[ipv6]\nmethod=manual\naddress1=2001:db8::10/64,2001:db8::1\n"
            "dns=2001:db8::1\ndns-search=a.org\nroute1=2001:db8:7::/48,2001:db8::7\n");
        manager_->addProfile("Any", "eth1", "[ipv4]\nmethod=auto\n[ipv6]\nmethod=auto\n");
        manager_->addProfile("Rare", "eth0",
                             "autoconnect=false\n[ipv4]\naddress1=192.0.2.9/24\nmethod=manual\n");
        profiles_ = profiles();
        lab().start("dnsmasq --no-daemon --port=0 --user=root --conf-file=/dev/null --enable-ra --no-ping "
                    "--dhcp-leasefile=/run/lab/leases --dhcp-range=198.51.100.50,198.51.100.50 "
                    "--dhcp-range=2001:db8:1::,ra-only --interface=eth1",
                    "far");
        start();
    }
    void TearDown() override { EXPECT_TRUE(IsSkipped() || profiles() == profiles_); }
    void start() {
        pid_ = manager_->start();
        for (const char *text : {"198.51.100.50/24", "via fe80::1 dev eth1", "2001:db8::10/64"})
            expectSoon(HasSubstr(text));
    }
    std::string profiles() {
        return lab().run("find /etc/NetworkManager -type f -exec sha256sum {} + | sort").out;
    }
    /// Addresses, routes and connections of the devices, but for link-local addresses.
    std::string state() {
        const std::string command =
            "{ for d in eth0 eth1; do ip -o addr show dev $d scope global | awk '{print $2,$4}'; done;"
            "ip route; ip route show table 7; ip -6 route | grep -v ^fe80 | sed 's/ expires.*//'; } | sort;"
            "nmcli --terse --fields device,state,connection device | sort";
        return lab().run(command).out;
    }
    void expectSoon(const testing::Matcher<std::string> &wanted) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        auto found = state();
        while (!wanted.Matches(found) && std::chrono::steady_clock::now() < limit)
            found = state();
        ASSERT_THAT(found, wanted);
    }
    bool isEnabled(const char *service) {
        editor_.synchronize();
        return editor_.copyService(service).value().enabled;
    }
    static Kind failure(const std::function<void()> &change) {
        try {
            change();
        } catch (const ServiceControlError &error) {
            return error.kind();
        }
        return Kind::done;
    }
    Kind configure(const char *service, const char *name) {
        return failure([&] { services_.setConfiguration(service, ipv4, method(name)); });
    }
    Kind disable(const char *service) {
        return failure([&] { services_.setEnabled(service, false); });
    }

    std::optional<NetworkManagerLab> manager_;
    pid_t pid_ = 0;
    std::string profiles_;
    DisabledServices disabled_;
    LinuxPreferencesEditor editor_{disabled_};
    ServiceController::Opener open_ = [this] { return std::make_unique<LinuxPreferencesEditor>(disabled_); };
    ServiceController services_{open_};
};

TEST_F(ServiceControl, OrderIsThatOfTheRoutes) {
    services_.reorder({"device:nothing", "device:eth1", "device:eth1"});
    expectSoon(HasSubstr("default via 192.0.2.1 dev eth0 proto static metric 102"));
    // The attributes of a route beside it are still there.
    EXPECT_THAT(state(), HasSubstr("10.0.0.0/8 via 192.0.2.7 dev eth0 proto static metric 102 mtu 1400"));
    services_.reorder({"device:eth0"});
    expectSoon(HasSubstr("default via 198.51.100.1 dev eth1 proto dhcp src 198.51.100.50 metric 103"));
    // Not NetworkManager's to change: the one before has to make way, and below the lowest is no room.
    lab().addCable("eth2", {"203.0.113.10/24"}, {});
    lab().run("ip route add default via 203.0.113.1 metric 50");
    expectSoon(HasSubstr("eth2:connected (externally)"));
    services_.reorder({"device:eth0", "device:eth2"});
    expectSoon(HasSubstr("default via 192.0.2.1 dev eth0 proto static metric 49"));
    lab().run("ip route add default via 203.0.113.1 metric 1");
    EXPECT_EQ(failure([&] { services_.reorder({"device:eth0", "device:eth2"}); }), Kind::failed);
    EXPECT_EQ(disable("device:eth2"), Kind::unavailable);
}

TEST_F(ServiceControl, DisabledDeviceStaysDisconnected) {
    ServiceController otherProcess(open_);
    for (auto *enabling : {&services_, &otherProcess}) {
        services_.setEnabled("device:eth0", false);
        EXPECT_TRUE(disabled_.contains("eth0"));
        expectSoon(Not(HasSubstr("192.0.2.")));
        lab().pull("eth0");
        lab().plug("eth0");
        EXPECT_FALSE(isEnabled("device:eth0"));
        enabling->setEnabled("device:eth0", true);
        EXPECT_TRUE(!disabled_.contains("eth0") && isEnabled("device:eth0"));
        expectSoon(AllOf(HasSubstr("192.0.2.10/24"), HasSubstr("eth0:connected:Home")));
    }
    // The profile that was active, though it would not be by itself.
    manager_->command("connection up Rare");
    services_.setEnabled("device:eth0", false);
    services_.setEnabled("device:eth0", true);
    expectSoon(HasSubstr("eth0:connected:Rare"));
    // Without a cable there is nothing to disconnect, and yet it must not come back with one.
    for (const bool enabled : {false, true}) {
        lab().pull("eth1");
        expectSoon(HasSubstr("eth1:unavailable"));
        services_.setEnabled("device:eth1", enabled);
        lab().plug("eth1");
        expectSoon(HasSubstr(enabled ? "eth1:connected:Any" : "eth1:disconnected"));
        EXPECT_EQ(isEnabled("device:eth1"), enabled);
    }
}

TEST_F(ServiceControl, AddressesGoAndComeBack) {
    services_.reorder({"device:eth1"});
    expectSoon(HasSubstr("default via 192.0.2.1 dev eth0 proto static metric 102"));
    const auto before = state();
    struct Row {
        const char *service, *off, *lost, *network;
    };
    for (const auto &[service, off, lost, network] :
         {Row{"device:eth0", "Off", "DHCP", "192.0.2."},
          {"device:eth0", "LinkLocal", "Automatic", "2001:db8::"},
          {"device:eth0", "Off", "Automatic", "2001:db8::"},
          {"device:eth1", "Off", "DHCP", "198.51.100."},
          {"device:eth1", "LinkLocal", "Automatic", "2001:db8:1:"}}) {
        const auto protocol = std::string(lost) == "DHCP" ? ipv4 : ipv6;
        const auto earlier = services_.configuration(service, protocol);
        // As a journal holds it, and what is written without one.
        const auto kept = json::parse(json::serialize(earlier.entries.value()));
        for (const auto &back : {method(lost), {std::get<Value>(kept), true}}) {
            services_.setConfiguration(service, protocol, method(off));
            EXPECT_EQ(services_.configuration(service, protocol), method(off));
            expectSoon(Not(HasSubstr(network)));
            services_.setConfiguration(service, protocol, back);
            expectSoon(before);
        }
    }
    // Others than the profile's, while the profile is what it was.
    auto own = services_.configuration("device:eth0", ipv4);
    own.entries->set("Addresses", Value::strings({"192.0.2.33"}));
    services_.setConfiguration("device:eth0", ipv4, own);
    expectSoon(AllOf(HasSubstr("192.0.2.33/24"), Not(HasSubstr("192.0.2.10"))));
}

TEST_F(ServiceControl, OthersAreReckonedWith) {
    const auto before = state();
    const auto turnOff = [&] {
        EXPECT_EQ(configure("device:eth0", "Off"), Kind::done);
        services_.setConfiguration("device:eth0", ipv6, method("LinkLocal"));
        EXPECT_EQ(disable("device:eth1"), Kind::done);
        expectSoon(Not(HasSubstr("default")));
    };
    turnOff();
    lab().stop(pid_);
    const auto stopped = std::chrono::steady_clock::now();
    EXPECT_EQ(disable("device:eth0"), Kind::unavailable);
    EXPECT_EQ(configure("device:eth0", "DHCP"), Kind::unavailable);
    EXPECT_LT(std::chrono::steady_clock::now() - stopped, std::chrono::seconds(1));
    start();
    expectSoon(before);
    // Somebody's change between reading and writing.
    editor_.synchronize();
    EXPECT_TRUE(editor_.copyProtocol("device:eth0", ipv4));
    manager_->command("device modify eth0 ipv6.route-metric 70");
    EXPECT_EQ(editor_.setProtocol("device:eth0", ipv4, method("Off")).kind, Kind::done);
    EXPECT_EQ(editor_.commitChanges().kind, Kind::stale);
    EXPECT_THAT(state(), HasSubstr("192.0.2.10/24"));
    services_.setConfiguration("device:eth0", ipv4, method("Off"));
    expectSoon(Not(HasSubstr("192.0.2.")));
    EXPECT_THAT(state(), HasSubstr("default via 2001:db8::1 dev eth0 proto static metric 70"));
    turnOff();

    manager_->command("device set eth1 managed no");
    EXPECT_EQ(configure("device:eth1", "Off"), Kind::unavailable);
    EXPECT_EQ(disable("device:eth1"), Kind::unavailable);
    EXPECT_EQ(disable("device:eth9"), Kind::notFound);
    EXPECT_EQ(configure("device:eth0", "PPP"), Kind::failed);
}

} // namespace
} // namespace tarn
