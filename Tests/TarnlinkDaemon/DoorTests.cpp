// The daemon as a process on a bus with the policy that is installed, and a real polkitd: who may call
// what, with programs that others wrote.

#include "Platform/Linux/BusConnector.h"
#include "Platform/Linux/PolkitAuthorizations.h"
#include "TarnXPC/TarnXPCClient.h"
#include "TarnXPC/TarnXPCCoding.h"
#include "TarnlinkDaemon/DoorLab.h"

#include <csignal>
#include <gmock/gmock.h>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class Door : public DoorLab {};

TEST_F(Door, EachMethodForEachKindOfCaller) {
    start();
    const std::string denied = "denied.admin", noCredential = "denied.noCredential";
    const struct {
        std::string method, granted, refused, unasked;
    } rows[] = {
        {"Status", "eth0 verified", "eth0 verified", "eth0 verified"},
        {"Resume", "notPaused", denied, noCredential},
        {"Diagnostics", "History:", "takes an administrator", "nobody can be asked"},
        {"SetTetheringWhileWired b true", "saved", denied, noCredential},
        {"SetTetheringDNSFix b true", "saved", denied, noCredential},
        {"UpdateStatus", "idle", denied, noCredential},
        // Handed over the first time, and under way the second.
        {"InstallUpdate s /p", "update ", denied, noCredential},
        {"InstallVerifiedUpdate says /p 1 0 x", "busy", denied, noCredential},
        // Nobody's authorization, and then one that is not the caller's.
        {"Pause day 60 0", noCredential, noCredential, noCredential},
        {"Pause day 60 3 1 2 3", denied, denied, denied},
    };
    for (const auto &row : rows)
        for (const auto &[user, wanted] : {std::pair("root", row.granted), std::pair("alice", row.granted),
                                           std::pair("bob", row.refused), std::pair("carol", row.unasked)}) {
            const auto result = busctl(user, row.method);
            EXPECT_THAT(result.out + result.err, HasSubstr(wanted)) << user << ": " << row.method;
        }
    EXPECT_THAT(readFile("/run/lab/state/preferences.json"), HasSubstr(R"("TetheringWhileWired": "allow")"));
}

TEST_F(Door, WhoeverSitsInFrontMayManageAndWhoeverCanAuthenticateToo) {
    start();
    const auto calls = [] {
        EventLoop loop;
        BusConnector connector(loop);
        TarnXPCClient client(connector, loop);
        std::string codes;
        const auto work = [&]() -> Task<void> {
            const auto resumed = co_await client.resume(2);
            const auto set = co_await client.setTetheringDNSFix(false, 2);
            const auto text = co_await client.diagnostics(2);
            const auto update = co_await client.updateStatus(2);
            const auto paused = co_await client.pause(60, currentProcess()->externalForm(), 2);
            codes = resumed.code + " " + set.code + " " + text.substr(0, 8) + " " + update.code + " " +
                    paused.code;
            loop.stop();
        };
        detach(work());
        loop.run();
        return codes;
    };
    EXPECT_EQ(as(dora, calls), "notPaused saved Tarnlink idle denied.noCredential");
    lab().write("/etc/pam.d/polkit-1", "account required pam_permit.so\nauth required pam_permit.so\n");
    const auto atTerminal = [&](const std::string &command) {
        return run("carol", "script -qec '/run/lab/tarnlinkctl " + command + "' /dev/null");
    };
    for (const char *command : {"pause 1", "resume", "set tethering-dns-fix on", "history"}) {
        const auto result = atTerminal(command);
        EXPECT_EQ(result.status, 0) << command << ": " << result.out;
        EXPECT_EQ(ctl("carol", command).status, 1) << command << ", without a terminal";
    }
}

TEST_F(Door, APauseIsForWhomPolkitGrantsIt) {
    start();
    EXPECT_EQ(ctl("bob", "pause 1").status, 1);
    EXPECT_EQ(ctl("carol", "pause 1").status, 1);
    EXPECT_THAT(ctl("alice", "status").out, Not(HasSubstr("Paused")));
    for (const char *user : {"root", "alice"}) {
        const auto paused = ctl(user, "pause 1.5");
        EXPECT_EQ(paused.status, 0) << paused.err;
        EXPECT_THAT(paused.out, HasSubstr("Paused for 1.5 minutes, until "));
        EXPECT_THAT(ctl("carol", "status").out, HasSubstr("Paused"));
        EXPECT_EQ(ctl(user, "resume").status, 0);
    }
    // The claim of a process that has the right, in the hands of others: of the same user, too.
    std::string copied = "Pause day 60 32";
    for (const char byte : as(alice, [] { return currentProcess()->externalForm(); }))
        copied += " " + std::to_string(static_cast<unsigned char>(byte));
    for (const char *user : {"root", "alice", "bob", "carol"})
        EXPECT_THAT(busctl(user, copied).out, HasSubstr("denied.admin")) << user;
    EXPECT_EQ(ctl("alice", "pause 0").status, 2);
}

TEST_F(Door, WithoutPolkitOnlyRootMay) {
    start(false);
    for (const char *command : {"resume", "pause 1", "diagnostics", "set tethering-dns-fix off"}) {
        EXPECT_EQ(ctl("alice", command).status, 1) << command;
        EXPECT_EQ(ctl("root", command).status, 0) << command;
    }
    EXPECT_EQ(ctl("carol", "status").status, 0);
}

TEST_F(Door, NobodyElseHasTheName) {
    start();
    for (const char *user : {"root", "alice"}) {
        const auto result =
            run(user, "busctl call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus "
                      "RequestName su com.veltrion.tarnlink.daemon 2");
        EXPECT_THAT(result.err, HasSubstr("Access denied")) << user;
    }
    EXPECT_NE(run("alice", "busctl get-property com.veltrion.tarnlink.daemon /com/veltrion/tarnlink/daemon "
                           "org.freedesktop.DBus.Properties X")
                  .status,
              0);
    lab().stop(daemon_);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ctl("alice", "status").status, 3);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
}

TEST_F(Door, TenThousandCallsDoNotKeepItFromTheNetwork) {
    start();
    EventLoop loop;
    BusConnector connector(loop);
    constexpr unsigned clients = 50, callsOfEach = 200;
    std::vector<std::unique_ptr<TarnXPCClient>> all;
    unsigned asked = 0, answered = 0, ended = 0, withoutCable = 0;
    std::string failures;
    // They go on asking until the daemon tells of the cable: ten thousand calls can be over sooner.
    const auto patience = std::chrono::steady_clock::now() + 20s;
    const auto work = [&](TarnXPCClient &client) -> Task<void> {
        for (unsigned i = 0;
             i < callsOfEach || (withoutCable == 0 && std::chrono::steady_clock::now() < patience); ++i)
            try {
                ++asked;
                const auto report = co_await client.status(1.5);
                ++answered;
                withoutCable += report.status.kind != Status::Kind::wired;
                // Beside the calls: waiting for it here would use up the limits of all of them.
                if (answered == 1000)
                    lab().start("ip link set eth0 down", "far");
            } catch (const TarnXPCClientError &error) {
                failures += error.description();
            }
        if (++ended == clients)
            loop.stop();
    };
    for (unsigned i = 0; i < clients; ++i)
        detach(work(*all.emplace_back(std::make_unique<TarnXPCClient>(connector, loop))));
    loop.run();
    EXPECT_EQ(answered, asked) << failures;
    EXPECT_GT(withoutCable, 0u);
}

TEST_F(Door, AClientBeyondItsLimitHarmsNobody) {
    // A polkit that answers nobody keeps every call waiting.
    start();
    ctl("carol", "resume");
    signalPolkit("STOP");
    EventLoop loop;
    BusConnector connector(loop);
    TarnXPCClient greedy(connector, loop), modest(connector, loop);
    std::map<std::string, unsigned> ends;
    const auto ask = [&](auto call) -> Task<void> {
        try {
            const auto result = co_await call();
            ++ends["answered"];
        } catch (const TarnXPCClientError &error) {
            ++ends[error.description()];
        }
    };
    for (int i = 0; i < 20; ++i)
        detach(ask([&] { return greedy.resume(0.5); }));
    detach(ask([&] { return modest.status(1); }));
    loop.postAfter(2s, [&] { loop.stop(); });
    loop.run();
    signalPolkit("CONT");
    EXPECT_EQ(ends["answered"], 1u);
    EXPECT_EQ(ends["Timed out after 0.5s waiting for the daemon."], 16u);
    EXPECT_EQ(ends["Daemon returned an error: Too many calls of this client are under way: 16."], 4u);
}

} // namespace
} // namespace tarn
