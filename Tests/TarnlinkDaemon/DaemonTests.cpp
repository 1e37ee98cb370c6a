// The daemon as a process in a network of its own: what it does to Wi-Fi, and what it leaves behind.

#include "Platform/Platform.h"
#include "TarnlinkDaemon/DaemonLab.h"
#include "TarnlinkDaemon/Journal.h"
#include "TarnlinkDaemon/Seal.h"

namespace tarn {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class DaemonProcess : public DaemonLab {
protected:
    void expectSaid(const std::string &words, std::size_t times = 1) {
        waitUntil([&] { return said(words).size() >= times; }, words + "\n" + lab().log(daemon_));
    }
    /// Lines of the daemon's log that contain the words.
    Strings said(const std::string &words) {
        std::istringstream text(lab().log(daemon_));
        Strings lines;
        for (std::string line; std::getline(text, line);)
            if (line.find(words) != std::string::npos)
                lines.push_back(line);
        return lines;
    }
};

class InMode : public DaemonProcess, public testing::WithParamInterface<const char *> {
protected:
    void SetUp() override {
        DaemonProcess::SetUp();
        if (!IsSkipped())
            prefer(R"("WiFiOffMode": ")" + mode_ + "\"");
    }
    void expectOff() { expectWiFi(isOff(mode_)); }
    void stopManager() {
        // The radio itself stays as it was left.
        lab().write(lab().radioFolder() + "/soft", mode_ == "radio" ? "1\n" : "0\n");
        lab().stop(managerPid_);
    }

    const std::string mode_ = GetParam();
};
INSTANTIATE_TEST_SUITE_P(Mode, InMode, testing::Values("radio", "service", "address"),
                         [](const auto &mode) { return std::string(mode.param); });

TEST_P(InMode, WiFiFollowsTheWiredPath) {
    lab().pull("eth0");
    start();
    expectSaid("daemon: wifi: no wired link");
    EXPECT_EQ(wifi(), before_);
    EXPECT_FALSE(hasJournal());
    lab().plug("eth0");
    expectOff();
    EXPECT_TRUE(hasJournal());
    lab().pull("eth0");
    expectOn();
    waitUntil([&] { return !hasJournal(); }, "the journal's end");
    lab().plug("eth0");
    expectOff();

    kill(server_, SIGSTOP);
    expectOn();
    kill(server_, SIGCONT);
    expectOff();
    EXPECT_THAT(lab().log(daemon_), ContainsRegex("failing .1/3.*failing .2/3.*no traffic path"));
    expectCleanEnd(SIGINT);
}

TEST_P(InMode, WhatOthersSwitchOnGoesOffAgain) {
    const std::map<std::string, std::string> switches = {
        {"radio", "radio wifi on"}, {"service", "device connect wlan0"}, {"address", "device reapply wlan0"}};
    start();
    expectOff();
    const auto done = "daemon: Wi-Fi off (" + mode_ + "): done";
    expectSaid(done);
    manager_->command(switches.at(mode_));
    expectSaid(done, 2);
    expectOff();
    lab().stop(managerPid_);
    managerPid_ = manager_->start();
    expectOff();
    // Not only for a moment, before its profiles are active.
    expectCable();
    expectOff();
    expectCleanEnd();
}

TEST_P(InMode, WiFiComesOnWithTheManagerIfTheCableIsGoneByThen) {
    start();
    expectOff();
    stopManager();
    lab().pull("eth0");
    expectSaid("no wired link");
    managerPid_ = manager_->start();
    expectOn();
    lab().plug("eth0");
    expectOff();
    expectCleanEnd();
}

TEST_P(InMode, JournalLeftBehindIsUndone) {
    start();
    expectOff();
    EXPECT_EQ(end(SIGKILL), -SIGKILL);
    EXPECT_TRUE(hasJournal());
    for (int i = 0; i < 2; ++i) {
        const auto result = execute("--undo");
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(wifi(), before_);
        EXPECT_FALSE(hasJournal());
    }
    // Nobody is there who could switch it on, and so it is still to be done.
    start();
    expectOff();
    end(SIGKILL);
    stopManager();
    const auto result = execute("--undo");
    managerPid_ = manager_->start();
    EXPECT_TRUE(result.status == 0 || execute("--undo").status == 0);
    expectOn();
    EXPECT_FALSE(hasJournal());
}

TEST_F(DaemonProcess, HalfOfWiFiIsNotEnough) {
    start();
    expectWiFi(isOff("address"));
    end(SIGKILL);
    // As if it had been killed between the two protocols.
    manager_->command("device modify wlan0 ipv6.method manual ipv6.addresses 2001:db8:5::10/64 "
                      "ipv6.gateway 2001:db8:5::1 ipv6.dns 2001:db8:5::1");
    lab().pull("eth0");
    start();
    expectOn();
    expectCleanEnd();
}

TEST_F(DaemonProcess, OffByHandIsLeftAlone) {
    const std::string off = R"("WiFiOffMode": "radio")";
    prefer(off);
    lab().pull("eth0");
    manager_->command("radio wifi off");
    start();
    const std::string leftAlone = "Wi-Fi switched off by the user, left alone";
    expectSaid(leftAlone);
    lab().plug("eth0");
    expectSaid("daemon: wired (");
    lab().pull("eth0");
    expectSaid(leftAlone, 2);
    EXPECT_THAT(said("daemon: Wi-Fi o"), IsEmpty());
    // Nobody stays offline beside a wired path that is broken.
    lab().plug("eth0");
    expectSaid("daemon: wired (", 2);
    kill(server_, SIGSTOP);
    expectOn();
    kill(server_, SIGCONT);
    expectWiFi(isOff("radio"));
    lab().pull("eth0");
    expectOn();
    manager_->command("radio wifi off");
    expectSaid(leftAlone, 3);
    EXPECT_THAT(said("daemon: Wi-Fi on"), SizeIs(2));
    prefer(off + R"(, "RespectManualWiFiOff": false)");
    expectOn();
    expectCleanEnd();
}

TEST_F(DaemonProcess, SettingsAreFollowed) {
    prefer(R"("WiFiOffMode": "radio")");
    start();
    expectWiFi(isOff("radio"));
    prefer(R"("WiFiOffMode": "radio", "Enabled": false)");
    expectOn();
    prefer(R"("WiFiOffMode": "radio", "Enabled": true)");
    expectWiFi(isOff("radio"));
    prefer(R"("WiFiOffMode": "address")");
    expectSaid("wifiOffMode=address");
    lab().pull("eth0");
    expectOn();
    lab().plug("eth0");
    expectWiFi(isOff("address"));
    // The machine's own layer, beneath the user's.
    lab().write(state_ + "/preferences.json", R"({"ProbeMode": "off"})");
    kill(server_, SIGSTOP);
    expectSaid("daemon: wired (eth0, Home): eth0 verified: link, IPv4 192.0.2.10, gateway [");
    expectCleanEnd();
}

TEST_F(DaemonProcess, PauseOutlivesTheDaemon) {
    const auto platform = makePlatform();
    const auto now = platform->clock().now();
    const std::chrono::seconds length(3);
    Pause pause{{now.sinceBoot + length, now.sinceEpoch + length}, platform->clock().bootID(), length};
    lab().write(state_ + "/pause.json", seal(pause.encoded()));
    for (const int signal : {SIGTERM, SIGKILL}) {
        start();
        expectSaid("daemon: paused: guard paused");
        end(signal);
    }
    EXPECT_EQ(wifi(), before_);
    start();
    expectSaid("daemon: paused: guard paused");
    expectWiFi(isOff("address"));
    EXPECT_GE(platform->clock().now().sinceBoot, pause.end.sinceBoot);
    waitUntil([&] { return !std::filesystem::exists(state_ + "/pause.json"); }, "the pause's end");
    expectCleanEnd();
}

TEST_F(DaemonProcess, OnlyOneRuns) {
    start();
    expectWiFi(isOff("address"));
    for (const char *options : {"", "--undo"}) {
        const auto second = execute(options);
        EXPECT_EQ(second.status, 3);
        EXPECT_THAT(second.err, HasSubstr("another daemon is running"));
        EXPECT_THAT(wifi(), isOff("address"));
    }
    expectCleanEnd();
}

TEST_F(DaemonProcess, DamagedJournalIsSetAsideAndWiFiSwitchedOn) {
    prefer(R"("WiFiOffMode": "radio")");
    lab().pull("eth0");
    for (const std::string damage : {"", "{\"version\": 1", "[]", "{\"version\": 99}", "\xff\xfe"}) {
        SCOPED_TRACE(damage);
        manager_->command("radio wifi off");
        std::filesystem::remove_all(state_);
        lab().write(state_ + "/journal.json", damage);
        start();
        expectOn();
        EXPECT_THAT(said("; Wi-Fi is switched on"), SizeIs(1));
        expectCleanEnd();
        EXPECT_EQ(lab().run("cat " + state_ + "/journal*").out, damage);
    }
}

TEST_F(DaemonProcess, NothingGoesOffThatCannotBeWrittenDown) {
    std::filesystem::create_directories(state_);
    lab().run("mount -t tmpfs -o size=8k tmpfs " + state_);
    for (const auto &[impede, relieve, words] :
         {std::tuple("dd if=/dev/zero of=/run/lab/state/filler bs=4k || true", "rm /run/lab/state/filler",
                     "No space left on device"),
          {"mount -o remount,ro /run/lab/state", "mount -o remount,rw /run/lab/state",
           "Read-only file system"}}) {
        lab().run(impede);
        start();
        expectSaid("daemon: wired (");
        // In the meantime it has been tried again.
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        EXPECT_EQ(wifi(), before_);
        EXPECT_THAT(said(words), SizeIs(1)) << lab().log(daemon_);
        lab().run(relieve);
        expectWiFi(isOff("address"));
        expectCleanEnd();
    }
}

TEST_F(DaemonProcess, DryRunChangesNothing) {
    start("--dry-run");
    expectSaid("daemon: wired (");
    lab().pull("eth0");
    expectSaid("daemon: wifi: ");
    EXPECT_THAT(said("daemon: Wi-Fi"), Not(testing::Contains(HasSubstr(": done"))));
    EXPECT_EQ(wifi(), before_);
    expectCleanEnd();
}

TEST_F(DaemonProcess, RecordingIsReplayedToTheSameDecisions) {
    const std::string file = "/run/lab/recording";
    start("--record " + file);
    expectWiFi(isOff("address"));
    kill(server_, SIGSTOP);
    expectOn();
    lab().pull("eth0");
    kill(server_, SIGCONT);
    expectSaid("no wired link");
    lab().plug("eth0");
    expectWiFi(isOff("address"));
    expectCleanEnd();
    EXPECT_EQ(lab().run(DAEMON " --replay " + file).out, lab().run("grep '^{\"decision' " + file).out);
    // What was decided otherwise is found.
    lab().run("sed -i 's/no wired link/no cable/' " + file);
    EXPECT_EQ(execute("--replay " + file).status, 1);
}

} // namespace
} // namespace tarn
