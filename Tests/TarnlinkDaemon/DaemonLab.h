#pragma once

#include "Support/NetworkManagerLab.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>

namespace tarn {

/// The daemon as a process beside a real NetworkManager. "eth0" leads to a router that serves names.
/// "wlan0" is a cable as well, but /sys says that it is a radio, and NetworkManager's own switch for
/// radios works without one; a second router is at its end.
class DaemonLab : public LabTest {
protected:
    using Wanted = testing::Matcher<std::string>;
    using Strings = std::vector<std::string>;

    void SetUp() override {
        LabTest::SetUp();
        if (IsSkipped())
            return;
        lab().addCable("eth0", {}, {"192.0.2.1/24"});
        lab().addCable("wlan0", {}, {"203.0.113.1/24", "2001:db8:5::1/64"}, "station");
        lab().makeWireless("wlan0");
        startBus(lab());
        try {
            manager_.emplace(lab());
        } catch (const NetworkLab::Unavailable &reason) {
            GTEST_SKIP() << reason.what();
        }
        manager_->addProfile("Home", "eth0",
                             "[ipv4]\nmethod=manual\naddress1=192.0.2.10/24,192.0.2.1\ndns=192.0.2.1\n"
                             "route-metric=100\n[ipv6]\nmethod=disabled\n");
        manager_->addProfile("Air", "wlan0",
                             "[ipv4]\nmethod=manual\naddress1=203.0.113.10/24,203.0.113.1\n"
                             "address2=203.0.113.11/24\ndns=203.0.113.1\nroute1=10.0.0.0/8,203.0.113.7\n"
                             "route-metric=600\n[ipv6]\nmethod=manual\naddress1=2001:db8:5::10/64,"
                             "2001:db8:5::1\ndns=2001:db8:5::1\nroute-metric=600\n");
        managerPid_ = manager_->start();
        server_ = lab().start("dnsmasq --no-daemon --user=root --no-resolv --no-hosts --conf-file=/dev/null "
                              "--local=/invalid/",
                              "far");
        lab().waitForLog(server_, "started");
        expectWiFi(AllOf(testing::HasSubstr("203.0.113.11/24"),
                         testing::HasSubstr("default via 2001:db8:5::1"),
                         testing::HasSubstr("default via 203.0.113.1")));
        expectCable();
        prefer({});
        profiles_ = profiles();
        before_ = wifi();
    }
    void TearDown() override { EXPECT_TRUE(IsSkipped() || profiles() == profiles_); }

    std::string profiles() {
        return lab().run("find /etc/NetworkManager -type f -exec sha256sum {} + | sort").out;
    }
    void expectCable() {
        waitUntil([&] { return lab().execute("ip route | grep 'default via 192.0.2.1'").status == 0; },
                  "the cable's route");
    }
    /// Settings beside those that make everything quick; they replace the earlier ones in one step.
    void prefer(const std::string &settings) {
        const std::string file = "/run/lab/config/tarnlink/preferences.json";
        lab().write(
            file + ".new",
            R"({"ProbeIntervalSeconds": 0.2, "ProbeTimeoutSeconds": 0.3, "EventDebounceSeconds": 0.02)" +
                (settings.empty() ? "" : ", " + settings) + "}");
        std::filesystem::rename(file + ".new", file);
    }
    pid_t start(const std::string &options = {}, const std::string &wrapper = {}) {
        return daemon_ =
                   lab().start("env STATE_DIRECTORY=" + state_ + " " + wrapper + " " DAEMON " " + options);
    }
    NetworkLab::Result execute(const std::string &options) {
        return lab().execute("STATE_DIRECTORY=" + state_ + " " DAEMON " " + options);
    }
    /// Ends the daemon and returns its exit status; the signal's number, negative, when that ended it.
    int end(int signal) {
        kill(daemon_, signal);
        int status = 0;
        waitUntil([&] { return waitpid(daemon_, &status, WNOHANG) != 0; }, "the daemon's end");
        lab().stop(daemon_);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    /// Ended in the usual way, it leaves nothing behind.
    void expectCleanEnd(int signal = SIGTERM) {
        EXPECT_EQ(end(signal), 0) << lab().log(daemon_);
        EXPECT_FALSE(hasJournal());
        expectOn();
    }
    /// All that somebody has of Wi-Fi: the radio, the connection, addresses, routes and servers.
    std::string wifi() {
        return lab()
            .execute("nmcli radio wifi; nmcli --escape no --get-values GENERAL.STATE,GENERAL.CONNECTION,"
                     "IP4.DNS,IP6.DNS device show wlan0;"
                     "ip -o addr show dev wlan0 scope global | awk '{print $4}';"
                     "ip route show dev wlan0; ip -6 route show dev wlan0 | grep -v ^fe80")
            .out;
    }
    void expectWiFi(const Wanted &wanted) {
        std::string found;
        try {
            waitUntil([&] { return wanted.Matches(found = wifi()); }, "Wi-Fi");
        } catch (const std::runtime_error &) {
            throw std::runtime_error("Wi-Fi is\n" + found + "and not\n" +
                                     testing::DescribeMatcher<std::string>(wanted) + "\n" +
                                     (daemon_ ? lab().log(daemon_) : ""));
        }
    }
    void expectOn() { expectWiFi(before_); }
    /// Off in this mode, and in no other.
    static Wanted isOff(const std::string &mode) {
        using testing::HasSubstr, testing::Not, testing::StartsWith;
        if (mode == "radio")
            return StartsWith("disabled\n100 (connected)");
        if (mode == "service")
            return StartsWith("enabled\n30 (disconnected)");
        return AllOf(StartsWith("enabled\n100 (connected)\nAir\n"), Not(HasSubstr("203.0.113.")),
                     Not(HasSubstr("2001:db8:5:")));
    }
    bool hasJournal() const { return std::filesystem::exists(state_ + "/journal.json"); }

    const std::string state_ = "/run/lab/state";
    std::optional<NetworkManagerLab> manager_;
    pid_t managerPid_ = 0;
    pid_t server_ = 0;
    pid_t daemon_ = 0;
    std::string profiles_;
    std::string before_;
};

} // namespace tarn
