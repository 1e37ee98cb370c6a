#pragma once

#include "Platform/Linux/EventLoop.h"
#include "Platform/Linux/FileWatch.h"
#include "TarnSystem/Descriptor.h"
#include "TarnSystem/HostEvents.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// Signals, a timer that the kernel cancels when the wall clock jumps (timerfd_create(2)), and inotify.
/// While nothing happens the process is not woken.
///
/// Threads that live when start() is called take the signals instead; later ones do not.
class LinuxHostEvents final : public HostEvents {
public:
    /// `settings` are the files of the preferences; they need not be there.
    LinuxHostEvents(EventLoop &loop, std::vector<std::string> settings)
        : loop_(loop), settings_(std::move(settings)) {}
    LinuxHostEvents(const LinuxHostEvents &) = delete;
    LinuxHostEvents &operator=(const LinuxHostEvents &) = delete;

    void start(Handler handler) override;

private:
    void watchSignal(int signal);
    void watchClock();
    void clockJumped();

    EventLoop &loop_;
    std::vector<std::string> settings_;
    Handler handler_;
    std::vector<LoopSource> signals_;
    std::optional<FileWatch> files_;
    Descriptor timer_;
    std::function<void()> timerReady_;
    LoopSource timerSource_;
    /// Grows by the time asleep alone.
    std::chrono::nanoseconds asleep_{};
    /// Of the wall clock, at the start of the system.
    std::chrono::nanoseconds wallAtBoot_{};
};

} // namespace tarn
