#include "Platform/Linux/LinuxHostEvents.h"

#include "Platform/Linux/LinuxClock.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <limits>
#include <string_view>
#include <sys/timerfd.h>
#include <utility>

namespace tarn {
namespace {

using namespace std::chrono_literals;

// Clocks are read one after the other, and this process may have to wait in between.
constexpr std::chrono::nanoseconds tolerance = 100ms;

std::chrono::nanoseconds timeAsleep() {
    const auto awake = timeOf(CLOCK_MONOTONIC);
    return timeOf(CLOCK_BOOTTIME) - awake;
}

std::chrono::nanoseconds wallClockAtBoot() {
    const auto sinceBoot = timeOf(CLOCK_BOOTTIME);
    return timeOf(CLOCK_REALTIME) - sinceBoot;
}

} // namespace

void LinuxHostEvents::start(Handler handler) {
    handler_ = std::move(handler);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        watchSignal(signal);
    watchClock();
    files_.emplace(
        loop_, settings_, [](std::string_view) { return false; },
        [this] { handler_(Event::settingsChanged); });
}

void LinuxHostEvents::watchSignal(int signal) {
    const auto arrived = [](sd_event_source *, const signalfd_siginfo *info, void *self) {
        const bool isHangup = info->ssi_signo == static_cast<std::uint32_t>(SIGHUP);
        static_cast<LinuxHostEvents *>(self)->handler_(isHangup ? Event::settingsChanged : Event::stop);
        return 0;
    };
    sd_event_source *source = nullptr;
    // Blocks the signal in this thread, from which later ones inherit that.
    if (sd_event_add_signal(loop_.event(), &source, signal | SD_EVENT_SIGNAL_PROCMASK, arrived, this) >= 0)
        signals_.emplace_back(source);
}

void LinuxHostEvents::watchClock() {
    timer_ = Descriptor(timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK));
    // A moment that does not come: only the cancellation matters.
    const itimerspec never = {{}, {std::numeric_limits<time_t>::max(), 0}};
    if (!timer_ ||
        timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &never, nullptr) != 0)
        return;
    asleep_ = timeAsleep();
    wallAtBoot_ = wallClockAtBoot();
    timerReady_ = [this] {
        std::uint64_t count = 0;
        // The kernel goes on watching after it has told of a jump.
        if (read(timer_.get(), &count, sizeof count) < 0 && errno == ECANCELED)
            clockJumped();
    };
    timerSource_ = loop_.whenReadable(timer_.get(), timerReady_);
}

void LinuxHostEvents::clockJumped() {
    const auto asleep = timeAsleep();
    const auto wallAtBoot = wallClockAtBoot();
    const bool hasSlept = asleep - std::exchange(asleep_, asleep) > tolerance;
    const auto moved = wallAtBoot - std::exchange(wallAtBoot_, wallAtBoot);
    if (hasSlept)
        handler_(Event::woke);
    // Sleep alone moves the wall clock too, but not against the clock that counts it.
    if (!hasSlept || moved > tolerance || moved < -tolerance)
        handler_(Event::clockSet);
}

} // namespace tarn
