#pragma once

#include "TarnSystem/MainActor.h"

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <systemd/sd-event.h>
#include <thread>
#include <unordered_map>

namespace tarn {

struct LoopSourceRelease {
    void operator()(sd_event_source *source) const { sd_event_source_disable_unref(source); }
};
/// Something that the loop waits for. Nothing is called any more once it is gone.
using LoopSource = std::unique_ptr<sd_event_source, LoopSourceRelease>;

/// The main actor on an sd-event loop. The thread that makes it is the main thread.
class EventLoop final : public MainActor {
public:
    EventLoop();
    ~EventLoop() override;

    /// For adapters that wait for descriptors. Owned by this object.
    sd_event *event() const { return event_; }
    /// Calls `ready` on the main thread whenever the descriptor has something to read, until the
    /// source is destroyed, which `ready` itself must not do. Throws std::system_error.
    LoopSource whenReadable(int descriptor, std::function<void()> &ready);

    /// For a loop that waits for this one's descriptor (sd_event_get_fd(3)) in its stead; to be called
    /// before each wait. Returns whether something is due already. Throws std::system_error.
    bool prepare();
    /// Runs one thing that is due, if there is one, without blocking; false once stop() was called, as
    /// run() would return then. Does nothing from inside itself. Throws std::system_error.
    bool dispatch();

    bool isCurrent() const override { return std::this_thread::get_id() == thread_; }
    TimePoint now() const override { return std::chrono::steady_clock::now(); }
    void post(Job job) override;
    TimerID postAfter(Duration delay, Job job) override;
    void cancel(TimerID timer) override;
    void run() override;
    void stop() override;

private:
    struct Timer {
        EventLoop *loop;
        TimerID id;
        Job job;
        sd_event_source *source = nullptr;
    };

    void runPosted();
    void addTimer(TimerID id, TimePoint due, Job job);

    const std::thread::id thread_ = std::this_thread::get_id();
    sd_event *event_ = nullptr;
    int wakeUp_ = -1;
    sd_event_source *wakeUpSource_ = nullptr;
    std::mutex lock_;
    std::deque<Job> posted_; // guarded by lock_
    std::unordered_map<TimerID, std::unique_ptr<Timer>> timers_;
    std::atomic<TimerID> lastTimer_ = 0;
    bool isStopping_ = false;
};

} // namespace tarn
