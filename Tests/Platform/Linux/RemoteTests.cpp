// Both ends of the daemon's link over a real bus.

#include "Platform/Linux/BusConnector.h"
#include "Platform/Linux/BusListener.h"
#include "Platform/Linux/BusProtocol.h"
#include "Support/NetworkManagerLab.h"
#include "TarnCore/Text.h"
#include "TarnXPC/TarnXPC.h"
#include "TarnXPC/TarnXPCClient.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarn {
namespace {

using namespace TarnXPCProtocol;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;
using Kind = TarnXPCClientError::Kind;

const std::string name = TarnXPC::machServiceName;
const std::string path = BusProtocol::objectPath(name);

/// A call as one line of text.
std::string words(const Call &call) {
    std::string line = BusProtocol::methods[call.index()].name;
    const auto add = [&](const std::string &text) { line += ";" + text::printable(text); };
    std::visit(
        [&](const auto &asked) {
            if constexpr (requires { asked.seconds; })
                add(text::fromDouble(asked.seconds) + asked.authorization.value_or("none"));
            if constexpr (requires { asked.allow; })
                add(asked.allow ? "on" : "off");
            if constexpr (requires { asked.enabled; })
                add(asked.enabled ? "on" : "off");
            if constexpr (requires { asked.pkgPath; })
                add(asked.pkgPath);
            if constexpr (requires { asked.manifest; })
                add(asked.manifest + ";" + asked.signature);
        },
        call);
    return line;
}

/// Answers with what it was asked; to a pause of no time, not before the test does.
class Echo final : public RemoteService, public Log {
public:
    void call(const RemoteCaller &from, const Call &call, Reply reply) override {
        caller = from;
        if (const auto *pause = std::get_if<Pause>(&call); pause && pause->seconds == 0)
            kept.push_back(std::move(reply));
        else
            reply({words(call), refusal, "because"});
    }
    void write(Level, std::string_view, std::string_view line) override { said.emplace_back(line); }

    RemoteCaller caller;
    RemoteAnswer::Refusal refusal = RemoteAnswer::Refusal::none;
    std::vector<Reply> kept;
    std::vector<std::string> said;
};

class Remote : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/lab/bus", 1);
    }
    void TearDown() override { endService(); }

    void runUntil(const std::function<bool()> &condition, const std::string &what) {
        const auto deadline = Clock::now() + 20s;
        while (!condition() && Clock::now() < deadline) {
            loop.postAfter(1ms, [&] { loop.stop(); });
            loop.run();
        }
        EXPECT_TRUE(condition()) << what;
    }
    void connect() {
        events.clear();
        connection = connector.connect(name, "");
        connection->setInvalidationHandler([this] { events.push_back("invalid"); });
        connection->resume();
    }
    void send(const Call &call = Resume()) {
        events.clear();
        connection->invoke(
            call, [this](const std::string &text) { events.push_back(text); },
            [this](const RemoteError &failure) {
                error = failure;
                events.push_back(mapError(failure).kind() == Kind::unavailable ? "unavailable" : "remote");
            });
        EXPECT_TRUE(events.empty()) << "inside invoke()";
    }
    std::string ask(const Call &call = Resume()) {
        send(call);
        runUntil([&] { return !events.empty(); }, words(call));
        return events.empty() ? "" : events.front();
    }
    void listen() {
        listener = std::make_unique<BusListener>(loop, echo);
        listener->start(name, "", echo);
    }
    void expectServed() {
        connect();
        runUntil([&] { return ask() == "Resume"; }, "service");
    }
    /// The service as a process of its own.
    void startService() {
        service = fork();
        if (service == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            EventLoop own;
            BusListener door(own, echo);
            door.start(name, "", echo);
            own.run();
        }
        expectServed();
    }
    void endService() {
        if (service > 0 && kill(service, SIGKILL) == 0)
            waitpid(std::exchange(service, 0), nullptr, 0);
    }

    EventLoop loop;
    BusConnector connector{loop};
    Echo echo;
    std::unique_ptr<BusListener> listener;
    std::shared_ptr<RemoteConnection> connection;
    std::vector<std::string> events;
    RemoteError error;
    pid_t service = 0;
};

TEST_F(Remote, EveryCallArrivesAsSentAndItsAnswerComesBack) {
    startBus(lab());
    listen();
    expectServed();
    const std::string claim("TarnClm1\0\x01\xff and what follows...", 32);
    const std::string large = std::string(300000, '\xfe') + '\0';
    for (const Call &call :
         std::vector<Call>{TarnXPCProtocol::Status(), Pause{0.1, {}}, Pause{-1e300, claim}, Resume(),
                           Diagnostics(), SetTetheringWhileWired{true}, SetTetheringWhileWired{false},
                           SetTetheringDNSFix{true}, InstallUpdate{"/tmp/ä \n.pkg"},
                           InstallVerifiedUpdate{"/p", large, "="}, InstallVerifiedUpdate{}, UpdateStatus()})
        EXPECT_EQ(ask(call), words(call));
    for (const auto &unsendable : {std::string("/tmp/\xff"), std::string("/tmp\0/x", 7)})
        EXPECT_EQ(ask(InstallUpdate{unsendable}), "remote");
    for (const bool isBusy : {true, false}) {
        echo.refusal = isBusy ? RemoteAnswer::Refusal::busy : RemoteAnswer::Refusal::notAuthorized;
        EXPECT_EQ(ask(), "remote");
        EXPECT_EQ(error.domain, isBusy ? BusProtocol::busy : BusProtocol::notAuthorized);
        EXPECT_EQ(error.localizedDescription, "because");
    }
}

TEST_F(Remote, OtherProgramsSeeAndCallIt) {
    startBus(lab());
    startService();
    const auto object = name + " " + path + " " + name + " ";
    auto seen = lab().run("gdbus introspect --system -d " + name + " -o " + path + " | tr -s ' \\n' ' '").out;
    for (const char *method :
         {" Status(out s report);", " Pause(in d seconds, in ay authorization, out s result);",
          " Resume(out s result);", " Diagnostics(out s text);",
          " SetTetheringWhileWired(in b allow, out s result);",
          " SetTetheringDNSFix(in b enabled, out s result);", " InstallUpdate(in s pkgPath, out s result);",
          " InstallVerifiedUpdate(in s pkgPath, in ay manifest, in s signature, out s result);",
          " UpdateStatus(out s result);"})
        EXPECT_THAT(seen, HasSubstr(method));
    for (const auto &[arguments, answer] : std::vector<std::pair<std::string, std::string>>{
             {"Pause day 2.5 1 65", "s \"Pause;2.5A\"\n"},
             {"Pause s 2", "Invalid arguments 's' to call " + name + ".Pause()"},
             {"Status b true", "Invalid arguments"},
             {"Stop", "Unknown method Stop"}}) {
        const auto result = lab().execute("busctl call " + object + arguments);
        EXPECT_THAT(result.out + result.err, HasSubstr(answer)) << arguments;
    }
}

TEST_F(Remote, WhatCannotBeAnsweredIsToldSoon) {
    const auto expectLoss = [&](const std::string &what) {
        runUntil([&] { return events.size() >= 2; }, what);
        EXPECT_THAT(events, ElementsAre("unavailable", "invalid")) << what;
    };
    connect();
    send();
    expectLoss("no bus");
    EXPECT_EQ(ask(), "unavailable");
    const pid_t bus = startBus(lab());
    connect();
    auto shortest = Clock::duration::max();
    for (int i = 0; i < 5; ++i) {
        const auto start = Clock::now();
        EXPECT_EQ(ask(), "unavailable") << "nobody there";
        shortest = std::min(shortest, Clock::now() - start);
    }
    EXPECT_LT(shortest, 50ms);
    startService();
    send(Pause());
    loop.postAfter(100ms, [&] { endService(); });
    runUntil([&] { return !events.empty(); }, "service killed");
    EXPECT_THAT(events, ElementsAre("unavailable"));
    startService();
    send(Pause());
    loop.postAfter(100ms, [&] { lab().stop(bus); });
    expectLoss("bus killed");
    connect();
    send();
    expectLoss("nobody listens");
}

TEST_F(Remote, HandlersMayDropTheConnectionAndRepliesMayBeLate) {
    startBus(lab());
    const auto drop = [this](const auto &) {
        events.push_back("dropped");
        connection.reset();
    };
    for (const bool isAnswered : {true, false}) {
        listen();
        expectServed();
        echo.kept.clear();
        events.clear();
        for (int i = 0; i < 2; ++i)
            connection->invoke(Pause(), drop, drop);
        runUntil([&] { return echo.kept.size() == 2; }, "calls");
        isAnswered ? echo.kept[0]({"now", {}, {}}) : connection->invalidate();
        runUntil([&] { return !events.empty(); }, "answer");
        echo.kept[1]({"late", {}, {}});
        listener.reset();
        echo.kept[1]({"later", {}, {}});
        runUntil([until = Clock::now() + 100ms] { return Clock::now() > until; }, "silence");
        EXPECT_THAT(events, ElementsAre("dropped"));
    }
}

TEST_F(Remote, StoppedServiceCostsTheTimeLimitOnly) {
    startBus(lab());
    startService();
    TarnXPCClient client(connector, loop);
    const auto diagnose = [&](double limit) {
        std::string result;
        detach([](auto &asked, double timeout, auto &told) -> Task<void> {
            try {
                told = co_await asked.diagnostics(timeout);
            } catch (const TarnXPCClientError &failure) {
                told = failure.description();
            }
        }(client, limit, result));
        runUntil([&] { return !result.empty(); }, "diagnostics");
        return result;
    };
    EXPECT_EQ(diagnose(5), "Diagnostics");
    kill(service, SIGSTOP);
    EXPECT_EQ(diagnose(0.1), TarnXPCClientError::timeout(0.1).description());
    kill(service, SIGCONT);
    EXPECT_EQ(diagnose(5), "Diagnostics");
    endService();
    EXPECT_EQ(diagnose(5), TarnXPCClientError::unavailable().description());
    startService();
    EXPECT_EQ(diagnose(5), "Diagnostics");
}

TEST_F(Remote, NonsenseIsAnError) {
    startBus(lab());
    lab().start("/usr/bin/python3 -m dbusmock --system " + name + " " + path + " " + name);
    waitUntil([&] { return lab().execute("busctl introspect " + name + " " + path).status == 0; }, "mock");
    connect();
    EXPECT_EQ(ask(), "remote") << "no such method";
    for (const auto &[signature, code, text] : std::vector<std::array<std::string, 3>>{
             {"as", "ret = []", "\"as\" and not \"s\""},
             {"s", "raise dbus.exceptions.DBusException(\"no\", name=\"com.example.No\")", "no"}}) {
        lab().run("busctl call " + name + " " + path + " org.freedesktop.DBus.Mock AddMethod sssss " + name +
                  " Resume '' '" + signature + "' '" + code + "'");
        EXPECT_EQ(ask(), "remote");
        EXPECT_THAT(error.localizedDescription, HasSubstr(text));
    }
}

TEST_F(Remote, ServiceComesBackWithBusAndName) {
    listen();
    EXPECT_THAT(echo.said, ElementsAre(HasSubstr("No such file or directory")));
    for (int i = 0; i < 2; ++i) {
        const auto bus = startBus(lab());
        expectServed();
        EXPECT_THAT(echo.said.back(), HasSubstr("is on the system bus now"));
        lab().stop(bus);
    }
    listener.reset();
    startBus(lab());
    startService();
    echo.said.clear();
    listen();
    runUntil([&] { return !echo.said.empty(); }, "refusal");
    endService();
    expectServed();
    EXPECT_THAT(echo.said, ElementsAre(HasSubstr("another program has the name"), HasSubstr("now")));
}

TEST_F(Remote, CallersAreIdentified) {
    const auto bus = startBus(lab());
    listen();
    expectServed();
    const auto expectIdentity = [&](pid_t pid) {
        std::optional<ProcessIdentity> expected;
        const auto stat = "/proc/" + std::to_string(pid) + "/stat";
        if (pid != 0)
            expected = {pid, std::stoull(lab().run("sed 's/.*) //' " + stat + " | cut -d ' ' -f 20").out),
                        getuid()};
        std::vector<std::optional<ProcessIdentity>> told;
        echo.caller.identify([&](auto who) { told.push_back(who); });
        EXPECT_TRUE(told.empty());
        runUntil([&] { return !told.empty(); }, "identity");
        EXPECT_THAT(told, ElementsAre(expected));
    };
    expectIdentity(getpid());
    const auto own = echo.caller.client;
    service = fork();
    if (service == 0) {
        // A name that looks like the fields after it.
        prctl(PR_SET_NAME, "a) S 1 (b");
        EventLoop other;
        const auto line = BusConnector(other).connect(name, "");
        line->resume();
        line->invoke(Resume(), [](auto) {}, [](auto) {});
        other.run();
    }
    runUntil([&] { return echo.caller.client != own; }, "other");
    expectIdentity(service);
    endService();
    expectIdentity(0);
    // On the next bus another has the name of one who called before.
    for (int i = 0; i < 8; ++i)
        expectServed();
    const auto before = echo.caller;
    lab().stop(bus);
    startBus(lab());
    for (int i = 0; i < 30 && (i == 0 || echo.caller.client != before.client); ++i)
        expectServed();
    EXPECT_EQ(echo.caller.client, before.client);
    expectIdentity(getpid());
    echo.caller.identify = before.identify;
    expectIdentity(0);
}

TEST_F(Remote, OnlyTheUserOfTheDaemonMayHaveTheName) {
    if (lab().execute("setpriv --reuid=4321 --clear-groups true").status != 0)
        GTEST_SKIP() << "there are no other users here";
    lab().write("/run/lab/passwd", readFile("/etc/passwd") + "tarnlink:x:4321:65534::/:/bin/false\n");
    ASSERT_EQ(mount("/run/lab/passwd", "/etc/passwd", nullptr, MS_BIND, nullptr), 0);
    lab().write(
        "/run/lab/system.conf",
        "<busconfig><type>system</type><listen>unix:path=/run/lab/bus</listen><policy context='default'>"
        "<allow user='*'/><deny own='*'/><deny send_type='method_call'/><allow receive_sender='*'/>"
        "<allow send_destination='org.freedesktop.DBus'/><allow send_requested_reply='true'/></policy>"
        "<include>" PACKAGING "/dbus/com.veltrion.tarnlink.daemon.conf</include></busconfig>");
    const auto bus = lab().start("dbus-daemon --nofork --print-address --config-file=/run/lab/system.conf");
    lab().waitForLog(bus, "unix:");
    listen();
    runUntil([&] { return !echo.said.empty(); }, "refusal");
    EXPECT_THAT(echo.said, ElementsAre(HasSubstr("not allowed to own")));
    listener.reset();
    ASSERT_EQ(seteuid(4321), 0);
    startService();
    ASSERT_EQ(seteuid(0), 0);
    const auto call = "setpriv --reuid=65534 --clear-groups busctl call " + name + " " + path + " ";
    for (const char *method : {" Resume", ".Introspectable Introspect", ".Peer Ping"})
        EXPECT_EQ(lab().execute(call + (*method == ' ' ? name : "org.freedesktop.DBus") + method).err, "");
    EXPECT_THAT(lab().execute(call + "org.freedesktop.DBus.Properties GetAll s " + name).err,
                HasSubstr("Access denied"));
}

} // namespace
} // namespace tarn
