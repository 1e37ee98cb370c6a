// The daemon killed at any moment: nobody stays offline, and nothing that was saved is lost.

#include "TarnlinkDaemon/DaemonLab.h"

#include <random>

namespace tarn {
namespace {

class Killed : public DaemonLab {
protected:
    /// What a supervisor does after a crash, or some of it.
    enum class Then { undo, restart, undoAndRestart };

    void useNextMode() {
        mode_ = mode_ == "radio" ? "service" : mode_ == "service" ? "address" : "radio";
        prefer(R"("WiFiOffMode": ")" + mode_ + "\"");
    }
    bool isOver() const {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(daemon_), &info, WEXITED | WNOHANG | WNOWAIT);
        return info.si_pid == daemon_;
    }
    void setCable(bool isIn) {
        isIn_ = isIn;
        isIn ? lab().plug("eth0") : lab().pull("eth0");
    }
    void recover(Then then) {
        if (then != Then::restart) {
            const auto result = execute("--undo");
            EXPECT_EQ(result.status, 0) << result.err;
            EXPECT_FALSE(hasJournal());
            expectOn();
        }
        daemon_ = 0;
        if (then == Then::undo)
            return;
        lab().waitForLog(start(), isIn_ ? "daemon: wired (" : "no wired link");
        // Found off in the way of an earlier setting, it may be left so.
        expectWiFi(isIn_ ? testing::AnyOf(isOff("radio"), isOff("service"), isOff("address"))
                         : Wanted(before_));
    }
    void endWhatRuns() {
        if (daemon_ != 0)
            expectCleanEnd();
        daemon_ = 0;
        expectOn();
    }

    std::string mode_;
    bool isIn_ = true;
};

TEST_F(Killed, AtEachStep) {
    if (lab().execute("strace -D true").status != 0)
        GTEST_SKIP() << "processes cannot be traced";
    std::map<std::string, int> steps;
    // Instead of its first call of a kind it is killed, then of the second, until it needs no more.
    for (const std::string calls : {"fsync", "/^rename", "/^unlink"}) {
        for (int i = 0, step = 1; i < 3; ++i, steps[calls] += step, step = 1) {
            useNextMode();
            const auto trace = "strace -D -f -qq -o /dev/null -e trace=" + calls + " -e inject=" + calls +
                               ":signal=KILL:when=";
            const auto liveThrough = [&] {
                setCable(true);
                start({}, trace + std::to_string(step));
                waitUntil([&] { return isOver() || isOff(mode_).Matches(wifi()); }, "Wi-Fi off");
                setCable(false);
                waitUntil([&] { return isOver() || (wifi() == before_ && !hasJournal()); }, "Wi-Fi on");
                return end(SIGTERM);
            };
            while (liveThrough() == -SIGKILL && !HasFailure()) {
                SCOPED_TRACE(mode_ + ", " + calls + " " + std::to_string(step));
                recover(static_cast<Then>(step % 3));
                endWhatRuns();
                ++step;
            }
        }
    }
    EXPECT_GT(steps["fsync"], 9);
    EXPECT_GT(steps["/^rename"] + steps["/^unlink"], 6);
}

TEST_F(Killed, RightAfterItSaidSo) {
    for (const char *words : {"daemon: enabled", "daemon: wiredPending", "daemon: wired (", ": done"}) {
        for (int i = 0; i < 3; ++i) {
            useNextMode();
            SCOPED_TRACE(mode_ + ", " + words);
            setCable(true);
            lab().waitForLog(start(), words);
            EXPECT_EQ(end(SIGKILL), -SIGKILL);
            recover(static_cast<Then>(i));
            endWhatRuns();
        }
    }
}

TEST_F(Killed, AtAnyMoment) {
    // --gtest_random_seed repeats a run.
    const auto given = testing::UnitTest::GetInstance()->random_seed();
    const auto seed = given != 0 ? static_cast<unsigned>(given) : std::random_device()() % 99999 + 1;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    const auto below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
    for (int i = 0; i < 200 && !HasFailure(); ++i) {
        SCOPED_TRACE("moment " + std::to_string(i));
        // One that an earlier moment left running keeps its mode, or sees it change.
        if (below(4) == 0)
            useNextMode();
        if (daemon_ == 0)
            start();
        for (int flips = below(3); flips > 0; --flips) {
            setCable(!isIn_);
            std::this_thread::sleep_for(std::chrono::milliseconds(below(120)));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(below(150)));
        ASSERT_EQ(end(SIGKILL), -SIGKILL) << lab().log(daemon_);
        recover(i % 2 == 0 ? Then::undo : i % 4 == 1 ? Then::restart : Then::undoAndRestart);
    }
    endWhatRuns();
}

} // namespace
} // namespace tarn
