// The guard alone, one input after the other: what it wants done, and in which order.

#include "TarnlinkDaemon/Guard.h"

#include <gmock/gmock.h>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Strings = std::vector<std::string>;

const ProtocolConfiguration dhcp{Value::Dictionary{{"ConfigMethod", "DHCP"}}, true};
const ProtocolConfiguration automatic{Value::Dictionary{{"ConfigMethod", "Automatic"}}, true};
const ProtocolConfiguration off4{Value::Dictionary{{"ConfigMethod", "Off"}}, true};
const ProtocolConfiguration off6{Value::Dictionary{{"ConfigMethod", "LinkLocal"}}, true};

std::string words(const Journal &journal) {
    std::string text = journal.wifi ? " wifi" : "";
    for (const auto &service : journal.disabledServices)
        text += " " + service.serviceID;
    if (journal.order)
        text += " order";
    if (!journal.resolvers.empty())
        text += " resolver";
    return text.empty() ? " nothing" : text;
}

/// A machine with a cable, eth0, and a radio, wlan0, whose guard is asked by hand.
class GuardTest : public testing::Test {
protected:
    GuardTest() {
        InterfaceSnapshot wire;
        wire.device = wire.serviceName = "eth0";
        wire.kind = InterfaceKind::wired;
        wire.serviceID = "E";
        wire.serviceOrderIndex = 0;
        wire.linkActive = true;
        wire.ipv4 = {"192.0.2.10"};
        wire.ipv4Router = "192.0.2.1";
        wire.dnsServers = {"192.0.2.1"};
        InterfaceSnapshot radio;
        radio.device = "wlan0";
        radio.kind = InterfaceKind::wifi;
        radio.serviceID = "W";
        radio.serviceName = "Wi-Fi";
        radio.serviceOrderIndex = 1;
        network.interfaces = {wire, radio};
        network.wifiPower = true;
        network.wifiServices = {{"W", "Wi-Fi", true, dhcp, automatic}};
        config.wifiOffMode = WiFiOffMode::radio;
    }

    /// What the guard wants after an input, in words, and without what is only told.
    Strings tell(Input::What what) {
        Strings wanted;
        for (const auto &one : guard.handle({now, std::move(what)}))
            std::visit([&](const auto &effect) { note(effect, wanted); }, one);
        return wanted;
    }
    Strings start(input::Start with = {}) {
        with.config = config;
        with.bootID = "boot";
        tell(with);
        return read();
    }
    Strings read() { return tell(input::ReadingTaken{reads, network}); }
    Strings answer(bool isReachable = true) {
        return tell(input::ProbeEnded{probes, isReachable ? ProbeOutcome::reachable(0.001)
                                                          : ProbeOutcome::timeout()});
    }
    Strings wrote(const std::string &error = {}) { return tell(input::JournalWritten{writes, error}); }
    Strings carried(const std::string &error = {}) { return tell(input::CommandEnded{commands, error}); }
    Strings pass(std::chrono::nanoseconds time) {
        now.sinceBoot += time;
        now.sinceEpoch += time;
        return tell(input::TimeCame());
    }
    /// Wired and verified, Wi-Fi off.
    void settle() {
        start();
        answer();
        wrote();
        carried();
        carried(); // the flush
        network.wifiPower = false;
        read();
    }
    void pullCable() {
        network.interfaces[0].linkActive = false;
        tell(input::NetworkChanged{{"State:/Network/Interface/eth0/Link"}});
    }
    Status::Kind status() const { return guard.decision()->status.kind; }

    DaemonConfig config;
    Reading network;
    Guard guard;
    Moment now{1h, 1000h};
    std::uint64_t reads = 0;
    std::uint64_t probes = 0;
    std::uint64_t writes = 0;
    std::uint64_t commands = 0;
    std::optional<Command> command;
    Strings errors;
    std::optional<Pause> pause;

private:
    void note(const effect::Read &read, Strings &wanted) {
        reads = read.number;
        wanted.push_back(read.everything ? "read all" : "read");
    }
    void note(const effect::SendProbe &probe, Strings &wanted) {
        probes = probe.number;
        wanted.push_back("probe " + probe.device + " " + probe.server);
    }
    void note(const effect::CountBytes &, Strings &wanted) { wanted.emplace_back("count"); }
    void note(const effect::Carry &carry, Strings &wanted) {
        commands = carry.number;
        command = carry.command;
        wanted.push_back(describe(carry.command));
    }
    void note(const effect::WriteJournal &write, Strings &wanted) {
        writes = write.number;
        wanted.push_back("write" + words(write.journal));
    }
    void note(const effect::WritePause &write, Strings &wanted) {
        pause = write.pause;
        wanted.emplace_back(pause ? "pause kept" : "pause gone");
    }
    void note(const effect::Say &say, Strings &) {
        if (say.level == Log::Level::error)
            errors.push_back(say.message);
    }
    void note(const effect::Finish &finish, Strings &wanted) {
        wanted.emplace_back(finish.isUndone ? "finished" : "given up");
    }
    template <class Other> void note(const Other &, Strings &) {}
};

TEST_F(GuardTest, WiFiGoesOffOnlyWhenItsUndoingIsOnDisk) {
    EXPECT_THAT(start(), ElementsAre("probe eth0 192.0.2.1"));
    EXPECT_THAT(answer(), ElementsAre("write wifi"));
    EXPECT_THAT(wrote("disk full"), IsEmpty());
    EXPECT_THAT(errors, ElementsAre(HasSubstr("disk full")));
    EXPECT_THAT(pass(1s), ElementsAre("write wifi"));
    EXPECT_THAT(wrote("disk full"), IsEmpty());
    EXPECT_EQ(errors.size(), 1U) << "said once";
    EXPECT_THAT(pass(2s), ElementsAre("write wifi"));
    EXPECT_THAT(wrote(), ElementsAre("Wi-Fi off (radio)"));
}

TEST_F(GuardTest, SwitchingOnWaitsForNothing) {
    settle();
    pullCable();
    EXPECT_THAT(read(), ElementsAre("Wi-Fi on"));
    EXPECT_TRUE(command->power);
    EXPECT_THAT(carried(), ElementsAre("read all", "flush the DNS cache"));
    network.wifiPower = true;
    read();
    EXPECT_THAT(carried(), ElementsAre("write nothing"));
}

TEST_F(GuardTest, AFailedActionIsTriedAgainWithGrowingPausesAndHoldsUpNoOther) {
    network.interfaces[1].serviceOrderIndex = -1;
    config.probeMode = ProbeMode::off;
    EXPECT_THAT(start(), ElementsAre("write order"));
    EXPECT_THAT(wrote(), ElementsAre("order E, W"));
    EXPECT_THAT(carried("busy"), ElementsAre("read all", "write wifi order")) << "then the others";
    read();
    EXPECT_THAT(wrote(), ElementsAre("Wi-Fi off (radio)"));
    carried();
    carried();
    network.wifiPower = false;
    read();
    Strings tried;
    for (int second = 0; second < 200; ++second) {
        for (const auto &wanted : pass(1s))
            if (wanted == "order E, W") {
                tried.push_back(std::to_string(second));
                carried("busy");
                read();
            }
    }
    EXPECT_THAT(tried, ElementsAre("0", "2", "6", "14", "30", "62", "122", "182"));
}

TEST_F(GuardTest, WhatHasNoEffectIsNotDoneForEver) {
    config.probeMode = ProbeMode::off;
    start();
    wrote();
    int done = 0;
    for (int second = 0; second < 1000; ++second) {
        if (auto one = std::exchange(command, std::nullopt)) {
            done += one->kind == Command::Kind::wifiOff;
            carried();
            read();
        }
        pass(1s);
    }
    EXPECT_EQ(done, 6);
}

TEST_F(GuardTest, WhatWasSwitchedOnWithoutEffectIsNotTheUsersWish) {
    settle();
    pullCable();
    EXPECT_THAT(read(), ElementsAre("Wi-Fi on"));
    carried();
    carried();
    read();
    EXPECT_EQ(status(), Status::Kind::offline);
    EXPECT_THAT(pass(1s), ElementsAre("Wi-Fi on"));
}

TEST_F(GuardTest, DriftIsPutRightAndNothingElseRepeated) {
    settle();
    EXPECT_THAT(read(), IsEmpty());
    network.wifiPower = true; // somebody
    EXPECT_THAT(read(), ElementsAre("Wi-Fi off (radio)"));
}

TEST_F(GuardTest, AWishOfTheUserIsLeftAloneUnlessThePathIsBroken) {
    network.wifiPower = false;
    network.interfaces[0].linkActive = false;
    EXPECT_THAT(start(), IsEmpty());
    EXPECT_EQ(status(), Status::Kind::wifiOff);
    network.interfaces[0].linkActive = true;
    EXPECT_THAT(read(), ElementsAre("probe eth0 192.0.2.1"));
    answer(false);
    for (int failures = 2; failures <= 3; ++failures) {
        pass(10s);
        answer(false);
    }
    EXPECT_EQ(status(), Status::Kind::wiredUnreachable);
    EXPECT_EQ(describe(*command), "Wi-Fi on");
}

TEST_F(GuardTest, TheUsersRadioStaysOffWhenOursWasOnlyTheAddress) {
    config.wifiOffMode = WiFiOffMode::address;
    start();
    answer();
    EXPECT_THAT(wrote(), ElementsAre("Wi-Fi off (address)"));
    ASSERT_EQ(command->protocols.size(), 2U);
    EXPECT_EQ(command->protocols[0].wanted, off4);
    EXPECT_EQ(command->protocols[1].wanted, off6);
    carried();
    carried();
    network.wifiServices[0].ipv4 = off4;
    network.wifiServices[0].ipv6 = off6;
    read();
    network.wifiPower = false;
    read();
    pullCable();
    EXPECT_THAT(read(), IsEmpty());
    EXPECT_EQ(status(), Status::Kind::wifiOff);
    network.wifiPower = true;
    EXPECT_THAT(read(), ElementsAre("Wi-Fi on"));
    ASSERT_EQ(command->protocols.size(), 2U);
    EXPECT_EQ(command->protocols[0].wanted, dhcp);
    EXPECT_EQ(command->protocols[1].wanted, automatic);
}

TEST_F(GuardTest, AProtocolThatHadNoAddressGetsNoneLater) {
    config.wifiOffMode = WiFiOffMode::address;
    network.wifiServices[0].ipv6 = off6;
    start();
    answer();
    wrote();
    ASSERT_EQ(command->protocols.size(), 1U);
    EXPECT_EQ(guard.journal().wifi->protocols.size(), 1U);
}

TEST_F(GuardTest, AJournalLeftBehindIsContinuedOrUndone) {
    for (const bool isWired : {true, false}) {
        guard = {};
        network.wifiPower = false;
        network.interfaces[0].linkActive = isWired;
        input::Start left;
        left.journal.emplace().wifi = Journal::WiFi{};
        EXPECT_THAT(start(left), ElementsAre(isWired ? "probe eth0 192.0.2.1" : "Wi-Fi on"));
        if (isWired) {
            EXPECT_THAT(answer(), IsEmpty()) << "it is off already";
        }
    }
}

TEST_F(GuardTest, NobodyKnowsWhatADamagedJournalSaidSoWiFiComesOn) {
    network.wifiPower = false;
    input::Start damaged;
    damaged.damage = "journal.json is damaged";
    EXPECT_THAT(start(damaged), Contains("Wi-Fi on"));
    EXPECT_THAT(errors, ElementsAre("journal.json is damaged; Wi-Fi is switched on"));
}

TEST_F(GuardTest, AStopUndoesEverythingWiFiFirst) {
    settle();
    input::Start left;
    left.config = config;
    left.journal = guard.journal();
    EXPECT_THAT(tell(input::StopWanted()), ElementsAre("Wi-Fi on"));
    EXPECT_THAT(carried(), ElementsAre("flush the DNS cache"));
    EXPECT_THAT(carried("no"), ElementsAre("write nothing"));
    EXPECT_THAT(wrote(), ElementsAre("finished"));

    left.journal->disabledServices = {{"T", "Phone"}};
    left.journal->order = Strings{"W", "E"};
    left.journal->resolvers = {{"K", {"a", "b"}, {"b", "a"}}};
    left.undoOnly = true;
    guard = {};
    EXPECT_THAT(tell(left), ElementsAre("Wi-Fi on"));
    EXPECT_THAT(carried(), ElementsAre("enable Phone"));
    EXPECT_THAT(carried(), ElementsAre("order W, E"));
    EXPECT_THAT(carried(), ElementsAre("servers of K: a, b"));
    EXPECT_THAT(carried(), ElementsAre("flush the DNS cache"));
    EXPECT_THAT(carried(), ElementsAre("write nothing"));
    EXPECT_THAT(wrote(), ElementsAre("finished"));
}

TEST_F(GuardTest, AnUndoingThatFailsStaysInTheJournal) {
    settle();
    tell(input::StopWanted());
    Strings last;
    for (int tries = 0; tries < 3; ++tries) {
        last = carried("no");
        pass(10s);
    }
    EXPECT_THAT(last, ElementsAre("given up"));
    EXPECT_TRUE(guard.journal().wifi);
}

TEST_F(GuardTest, FailuresAreForgottenWithThePath) {
    start();
    answer(false);
    pass(10s);
    answer(false);
    EXPECT_EQ(guard.probeStates().at("eth0"), ProbeState::failing(2));
    network.interfaces[0].ipv4Router.reset();
    read();
    network.interfaces[0].ipv4Router = "192.0.2.1";
    EXPECT_THAT(read(), ElementsAre("probe eth0 192.0.2.1"));
    answer(false);
    EXPECT_EQ(guard.probeStates().at("eth0"), ProbeState::failing(1));
}

TEST_F(GuardTest, AVerifiedPathIsProbedAgainAndAtOnceWhenItChanges) {
    settle();
    EXPECT_THAT(pass(9s), IsEmpty());
    EXPECT_THAT(pass(1s), ElementsAre("probe eth0 192.0.2.1"));
    answer();
    network.interfaces[0].dnsServers = {"192.0.2.2"};
    EXPECT_THAT(read(), ElementsAre("probe eth0 192.0.2.2"));
}

TEST_F(GuardTest, WithoutProbingOrServersThePathCountsAsVerified) {
    for (const bool hasServer : {true, false}) {
        guard = {};
        config.probeMode = hasServer ? ProbeMode::off : ProbeMode::dns;
        network.interfaces[0].dnsServers = hasServer ? Strings{"192.0.2.1"} : Strings{};
        EXPECT_THAT(start(), ElementsAre("write wifi"));
        EXPECT_EQ(guard.probeStates().at("eth0"), ProbeState::notApplicable());
    }
    network.interfaces[0].dnsServers = {"192.0.2.1"};
    EXPECT_THAT(read(), ElementsAre("probe eth0 192.0.2.1"));
}

TEST_F(GuardTest, TrafficThatGetsNoAnswerIsAReasonToProbeAtOnce) {
    config.probeInterval = 300;
    config.trafficStallSeconds = 30;
    const auto counted = [&](std::uint64_t rx, std::uint64_t tx) {
        return tell(input::BytesCounted{"eth0", KernelTables::ByteCounts{rx, tx}});
    };
    start();
    EXPECT_THAT(answer(), Contains("count"));
    counted(100, 100);
    EXPECT_THAT(pass(30s), ElementsAre("count"));
    EXPECT_THAT(counted(200, 200), IsEmpty());
    pass(270s);
    answer();
    counted(300, 300);
    pass(30s);
    EXPECT_THAT(counted(300, 400), ElementsAre("probe eth0 192.0.2.1"));
}

TEST_F(GuardTest, APauseEndsByItselfWhateverTheClockSays) {
    settle();
    EXPECT_THAT(tell(input::PauseWanted{10min}), ElementsAre("pause kept", "Wi-Fi on"));
    EXPECT_EQ(status(), Status::Kind::paused);
    carried();
    carried();
    network.wifiPower = true;
    read();
    now.sinceEpoch -= 10000h;
    EXPECT_THAT(tell(input::ClockSet()), ElementsAre("pause kept", "read all"));
    read();
    input::Start again;
    again.pause = pause;
    guard = {};
    pass(9min);
    start(again);
    EXPECT_EQ(status(), Status::Kind::paused);
    EXPECT_THAT(pass(1min), Contains("pause gone"));
    EXPECT_NE(status(), Status::Kind::paused);

    // Another run of the system: the wall clock counts, but for no longer than it was to last.
    again.pause = Pause{{now.sinceBoot + 1h, now.sinceEpoch + 5min}, "earlier", 10min};
    for (const auto &[setBack, left] : {std::pair(0h, 5min), std::pair(1000h, 10min), std::pair(-1h, 0min)}) {
        guard = {};
        const auto before = now.sinceEpoch;
        now.sinceEpoch -= setBack;
        start(again);
        EXPECT_EQ(guard.pauseLeft(now).value_or(0ns), left);
        now.sinceEpoch = before;
    }
}

TEST_F(GuardTest, APauseIsNoLongerThanAllowed) {
    settle();
    tell(input::PauseWanted{10000h});
    EXPECT_EQ(guard.pauseLeft(now), 240min);
}

TEST_F(GuardTest, ADisabledPhoneIsAPathDuringAPause) {
    InterfaceSnapshot phone = network.interfaces[0];
    phone.device = "usb0";
    phone.serviceID = "T";
    phone.serviceName = "Phone";
    phone.isTethering = true;
    network.interfaces.push_back(phone);
    start();
    EXPECT_THAT(answer(), ElementsAre("write T"));
    EXPECT_THAT(wrote(), ElementsAre("disable Phone"));
    EXPECT_THAT(carried(), ElementsAre("read all", "write wifi T"));
    network.interfaces.back().serviceEnabled = false;
    wrote();
    carried();
    carried();
    network.wifiPower = false;
    read();
    EXPECT_THAT(tell(input::PauseWanted{10min}), Contains("Wi-Fi on"));
    EXPECT_THAT(carried(), Contains("enable Phone"));
}

TEST_F(GuardTest, AShadowingResolverIsMovedBehindAndPutBack) {
    InterfaceSnapshot phone = network.interfaces[0];
    phone.device = "usb0";
    phone.serviceID = "T";
    phone.isTethering = true;
    network.interfaces.push_back(phone);
    config.disableTetheringWhileWired = false;
    config.probeMode = ProbeMode::off;
    network.wifiPower = std::nullopt;
    network.wifiServices.clear();
    network.resolvers = {{"K", {"fe80::1%usb0", "10.0.0.53"}, {"corp.example"}}};
    EXPECT_THAT(start(), ElementsAre("write resolver"));
    EXPECT_THAT(wrote(), ElementsAre("servers of K: 10.0.0.53, fe80::1%usb0"));
    carried();
    network.resolvers[0].servers = {"10.0.0.53", "fe80::1%usb0"};
    EXPECT_THAT(read(), IsEmpty());
    network.interfaces.back().linkActive = false;
    EXPECT_THAT(read(), ElementsAre("servers of K: fe80::1%usb0, 10.0.0.53"));
    EXPECT_THAT(carried(), ElementsAre("read all"));
    network.resolvers[0].servers = {"fe80::1%usb0", "10.0.0.53"};
    EXPECT_THAT(read(), ElementsAre("write nothing"));
}

TEST_F(GuardTest, ANetworkThatCannotBeReadCountsAsOneWithoutACable) {
    settle();
    const auto fail = [&] { return tell(input::ReadingFailed{reads, "no kernel"}); };
    pullCable();
    fail();
    EXPECT_THAT(pass(1s), ElementsAre("read all"));
    fail();
    pass(2s);
    EXPECT_THAT(fail(), ElementsAre("Wi-Fi on"));
    carried();
    carried();
    EXPECT_THAT(pass(60s), Contains("Wi-Fi on")) << "nobody sees whether it is";
    carried();
    carried();
    network.wifiPower = true;
    network.interfaces[0].linkActive = true;
    EXPECT_THAT(read(), ElementsAre("probe eth0 192.0.2.1", "write nothing"));
}

TEST_F(GuardTest, AnOldReadingProvesNothingAboutWhatWasSwitchedSince) {
    config.wifiOffMode = WiFiOffMode::address;
    for (const bool hangs : {true, false}) {
        guard = {};
        start();
        answer();
        wrote();
        carried();
        carried();
        // From here on no reading comes, or each one fails.
        if (hangs)
            pass(31s);
        else
            tell(input::ReadingFailed{reads, "no kernel"});
        EXPECT_TRUE(guard.journal().wifi);
        EXPECT_THAT(tell(input::StopWanted()), ElementsAre("Wi-Fi on"));
        EXPECT_EQ(command->protocols.size(), 2U);
    }
}

TEST_F(GuardTest, HalfOfWiFiIsNotEnough) {
    config.wifiOffMode = WiFiOffMode::address;
    input::Start left;
    left.journal.emplace().wifi =
        Journal::WiFi{WiFiOffMode::address, {}, {{"W", IPProtocol::ipv4, dhcp}}, false};
    network.wifiServices[0].ipv4 = off4;
    network.interfaces[0].linkActive = false;
    EXPECT_THAT(start(left), ElementsAre("Wi-Fi on"));
    carried("busy");
    read();
    EXPECT_THAT(pass(1s), ElementsAre("Wi-Fi on"));
    carried();
    carried();
    // Not connected any more: the system applies what is configured when it is.
    network.wifiServices[0].ipv4.reset();
    EXPECT_THAT(read(), IsEmpty());
    EXPECT_THAT(pass(1h), IsEmpty());
    network.wifiServices[0].ipv4 = dhcp;
    EXPECT_THAT(read(), ElementsAre("write nothing"));
}

TEST_F(GuardTest, ACommandThatDoesNotEndEndsTheDaemon) {
    settle();
    pullCable();
    EXPECT_THAT(read(), ElementsAre("Wi-Fi on"));
    EXPECT_THAT(pass(119s), Not(Contains("given up")));
    EXPECT_THAT(pass(1s), Contains("given up"));
}

TEST_F(GuardTest, ADamagedJournalIsNotForgottenBeforeTheNetworkWasSeen) {
    input::Start damaged;
    damaged.damage = "damaged";
    damaged.undoOnly = true;
    damaged.config = config;
    EXPECT_THAT(tell(damaged), ElementsAre("read all", "write wifi"));
    wrote();
    Strings wanted;
    for (int tries = 0; tries < 3; ++tries) {
        wanted = tell(input::ReadingFailed{reads, "no kernel"});
        if (tries < 2)
            pass(10s);
    }
    EXPECT_THAT(wanted, ElementsAre("Wi-Fi on"));
    EXPECT_THAT(carried(), ElementsAre("flush the DNS cache"));
    EXPECT_THAT(carried(), ElementsAre("given up"));
    EXPECT_TRUE(guard.journal().wifi);
}

TEST_F(GuardTest, WakingUpProvesNothingOfThePath) {
    settle();
    EXPECT_THAT(tell(input::Woke()), ElementsAre("read all"));
    EXPECT_THAT(read(), ElementsAre("probe eth0 192.0.2.1"));
    EXPECT_EQ(status(), Status::Kind::wiredPending);
}

TEST_F(GuardTest, AProbeThatNeverEndsIsOver) {
    settle();
    pass(10s);
    pass(7s);
    EXPECT_EQ(guard.probeStates().at("eth0"), ProbeState::failing(1));
    answer();
    EXPECT_EQ(guard.probeStates().at("eth0"), ProbeState::failing(1)) << "too late";
}

TEST_F(GuardTest, ADryRunWantsNothingDone) {
    config.dryRun = true;
    start();
    EXPECT_THAT(answer(), IsEmpty());
    network.interfaces[0].linkActive = false;
    EXPECT_THAT(read(), IsEmpty());
    EXPECT_THAT(tell(input::StopWanted()), ElementsAre("finished"));
}

TEST_F(GuardTest, TimesOfAnySizeAreBearable) {
    for (const double value : {0.0, -1.0, 1e300, std::numeric_limits<double>::infinity(),
                               std::numeric_limits<double>::quiet_NaN()}) {
        guard = {};
        network.wifiPower = true;
        config.probeInterval = config.probeTimeout = config.trafficStallSeconds = value;
        start();
        EXPECT_THAT(answer(), Contains("write wifi"));
        int sent = 0;
        for (int i = 0; i < 100; ++i)
            for (const auto &wanted : pass(1ms))
                sent += wanted.starts_with("probe");
        EXPECT_LE(sent, 3);
    }
}

} // namespace
} // namespace tarn
