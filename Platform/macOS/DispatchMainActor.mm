#include "Platform/macOS/DispatchMainActor.h"

#import <CoreFoundation/CoreFoundation.h>
#import <dispatch/dispatch.h>
#include <mach/mach_time.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <utility>

namespace tarn {
namespace {

/// How late a delayed job may be. The default of a tenth of the delay is too much for time limits.
constexpr std::chrono::nanoseconds timerLeeway = std::chrono::milliseconds(10);

void runJob(const MainActor::Job &job) {
    // A process without an application object has no pool around its main queue.
    @autoreleasepool {
        job();
    }
}

} // namespace

struct DispatchMainActor::State {
    struct Timer {
        dispatch_source_t source;
        Job job;
    };

    void runNext() {
        Job job;
        {
            const std::lock_guard guard(lock);
            if (waiting.empty())
                return;
            job = std::move(waiting.front());
            waiting.pop_front();
        }
        runJob(job);
    }

    /// The job of a timer that shall not fire again; empty when there is no such timer.
    Job take(TimerID id) {
        const std::lock_guard guard(lock);
        const auto entry = timers.find(id);
        if (entry == timers.end())
            return {};
        dispatch_source_cancel(entry->second.source);
        Job job = std::move(entry->second.job);
        timers.erase(entry);
        return job;
    }

    void fire(TimerID id) {
        if (const Job job = take(id))
            runJob(job);
    }

    std::mutex lock;
    std::deque<Job> waiting;
    std::map<TimerID, Timer> timers;
    TimerID lastTimer = 0;
    bool closed = false;
    std::atomic<bool> stopping = false;
};

DispatchMainActor::DispatchMainActor() : state_(std::make_shared<State>()) {}

DispatchMainActor::~DispatchMainActor() {
    // Dropped outside the lock: what a job holds may post or cancel in its destructor.
    std::deque<Job> waiting;
    std::map<TimerID, State::Timer> timers;
    {
        const std::lock_guard guard(state_->lock);
        state_->closed = true;
        waiting.swap(state_->waiting);
        timers.swap(state_->timers);
    }
    for (const auto &[id, timer] : timers)
        dispatch_source_cancel(timer.source);
}

bool DispatchMainActor::isCurrent() const {
    return pthread_main_np() != 0;
}

MainActor::TimePoint DispatchMainActor::now() const {
    // The clock of dispatch timers; the standard library's steady clock goes on during sleep.
    static const mach_timebase_info_data_t timebase = [] {
        mach_timebase_info_data_t info = {};
        mach_timebase_info(&info);
        return info;
    }();
    const std::chrono::nanoseconds sinceStart(mach_absolute_time() * timebase.numer / timebase.denom);
    return TimePoint(std::chrono::duration_cast<TimePoint::duration>(sinceStart));
}

void DispatchMainActor::post(Job job) {
    {
        const std::lock_guard guard(state_->lock);
        if (state_->closed)
            return;
        state_->waiting.push_back(std::move(job));
    }
    const std::weak_ptr<State> weak = state_;
    dispatch_async(dispatch_get_main_queue(), ^{
        if (const auto state = weak.lock())
            state->runNext();
    });
}

MainActor::TimerID DispatchMainActor::postAfter(Duration delay, Job job) {
    dispatch_source_t source =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_main_queue());
    const auto nanoseconds = std::max<Duration::rep>(delay.count(), 0);
    dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, nanoseconds), DISPATCH_TIME_FOREVER,
                              static_cast<std::uint64_t>(timerLeeway.count()));
    TimerID id = 0;
    {
        const std::lock_guard guard(state_->lock);
        if (state_->closed) {
            dispatch_source_cancel(source);
        } else {
            id = ++state_->lastTimer;
            state_->timers.emplace(id, State::Timer{source, std::move(job)});
        }
    }
    const std::weak_ptr<State> weak = state_;
    dispatch_source_set_event_handler(source, ^{
        if (const auto state = weak.lock())
            state->fire(id);
    });
    // A source must be active before its last reference goes.
    dispatch_activate(source);
    return id;
}

void DispatchMainActor::cancel(TimerID timer) {
    state_->take(timer);
}

void DispatchMainActor::run() {
    while (!state_->stopping.exchange(false))
        CFRunLoopRun();
}

void DispatchMainActor::stop() {
    state_->stopping = true;
    // Said from within the loop: a loop that is about to begin would miss it.
    const std::weak_ptr<State> weak = state_;
    dispatch_async(dispatch_get_main_queue(), ^{
        if (!weak.expired())
            CFRunLoopStop(CFRunLoopGetMain());
    });
}

} // namespace tarn
