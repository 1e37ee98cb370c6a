// What the machine and a supervisor tell this process, and what it tells the supervisor.

#include "Platform/Linux/LinuxHostEvents.h"
#include "Platform/Linux/SystemdSupervisor.h"
#include "Support/NetworkLab.h"

#include <array>
#include <csignal>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/timex.h>
#include <sys/un.h>
#include <thread>

namespace tarn {
namespace {

using testing::ElementsAre;
using namespace std::chrono_literals;
using Event = HostEvents::Event;

class Host : public LabTest {
protected:
    /// What is told within the time after something is done.
    std::vector<Event> after(const std::function<void()> &act, MainActor::Duration time = 60ms) {
        told_.clear();
        act();
        loop_.postAfter(time, [this] { loop_.stop(); });
        loop_.run();
        return told_;
    }
    void start() {
        events_.start([this](Event event) { told_.push_back(event); });
    }

    EventLoop loop_;
    LinuxHostEvents events_{loop_, {"/etc/none/managed.json", "/var/lib/state/preferences.json"}};
    std::vector<Event> told_;
};

TEST_F(Host, SignalsReachTheHandlerWhateverThreadsRun) {
    start();
    // It would be the one to take a signal that it did not inherit as blocked.
    std::jthread worker([](const std::stop_token &stop) {
        while (!stop.stop_requested())
            std::this_thread::sleep_for(1ms);
    });
    for (const auto &[signal, event] : {std::pair(SIGTERM, Event::stop), std::pair(SIGINT, Event::stop),
                                        std::pair(SIGHUP, Event::settingsChanged)})
        for (int i = 0; i < 3; ++i)
            EXPECT_THAT(after([&, number = signal] { kill(getpid(), number); }), ElementsAre(event))
                << signal;
    EXPECT_EQ(lab().execute("kill -TERM $$; sleep 1").status, -1) << "a program started here can be ended";
}

TEST_F(Host, SettingsAreToldAndNothingElseInTheirFolder) {
    lab().run("mkdir /var/lib/state");
    start();
    const std::vector<std::pair<std::string, bool>> steps = {
        {"echo >journal.json; mv journal.json journal; rm journal; echo >>history.jsonl", false},
        {"echo >preferences.json", true},
        {"echo >new; mv new preferences.json", true},
        {"echo >>preferences.json", true},
        {"cat preferences.json; echo >preferences.json.bak", false},
        {"rm preferences.json", true},
        {"cd ..; rm -r state; mkdir state; echo >state/preferences.json", true},
    };
    for (const auto &[commands, isTold] : steps)
        EXPECT_EQ(after([&] { lab().run("cd /var/lib/state; " + commands); }).empty(), !isTold) << commands;
}

TEST_F(Host, ClockThatIsSetIsToldEachTimeAndSilenceCostsNothing) {
    start();
    const auto switches = [] {
        rusage usage{};
        getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_nvcsw;
    };
    const auto before = switches();
    // A clock of the machine may be set by others meanwhile.
    const auto told = after([] {}, 1s).size();
    EXPECT_LE(switches() - before, 2 + static_cast<long>(told));

    // By a nanosecond and back.
    for (const long step : {1L, -1L}) {
        timex change{};
        change.modes = ADJ_SETOFFSET | ADJ_NANO;
        change.time = {step < 0 ? -1 : 0, step < 0 ? 1'000'000'000 + step : step};
        if (adjtimex(&change) < 0)
            GTEST_SKIP() << "the clock cannot be set here";
        EXPECT_THAT(after([] {}), testing::Contains(Event::clockSet)) << step;
        EXPECT_THAT(told_, testing::Each(Event::clockSet)) << "it has not slept";
    }
}

TEST_F(Host, SupervisorHearsWhatSystemdExpects) {
    const int own = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const sockaddr_un address{AF_UNIX, "/run/lab/notify"};
    ASSERT_EQ(bind(own, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const auto heard = [own] {
        std::array<char, 256> buffer{};
        const auto size = recv(own, buffer.data(), buffer.size(), 0);
        return size < 0 ? "nothing" : std::string(buffer.data(), static_cast<std::size_t>(size));
    };
    SystemdSupervisor supervisor;
    supervisor.ready();
    EXPECT_EQ(heard(), "nothing");
    EXPECT_EQ(supervisor.watchdogInterval(), std::nullopt);
    setenv("NOTIFY_SOCKET", "/run/lab/notify", 1);
    setenv("WATCHDOG_USEC", "30000000", 1);
    EXPECT_EQ(supervisor.watchdogInterval(), 15s);
    supervisor.ready();
    EXPECT_EQ(heard(), "READY=1");
    supervisor.alive();
    EXPECT_EQ(heard(), "WATCHDOG=1");
    supervisor.stopping();
    EXPECT_EQ(heard(), "STOPPING=1");
    setenv("WATCHDOG_PID", "1", 1);
    EXPECT_EQ(supervisor.watchdogInterval(), std::nullopt) << "meant for another process";
    close(own);
}

} // namespace
} // namespace tarn
