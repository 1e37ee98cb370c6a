#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace tarn {

/// The one thread on which the logic runs, and its clock.
///
/// Thread: every function but run() may be called from any thread; jobs always run on the
///   main thread, one at a time, never inside the call that posts them.
/// Ownership: holds each job until it has run or is cancelled. What is still waiting when the
///   actor is destroyed never runs.
/// Errors: none.
class MainActor {
public:
    using Job = std::function<void()>;
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::nanoseconds;
    /// Names one delayed job; 0 names none.
    using TimerID = std::uint64_t;

    virtual ~MainActor() = default;

    /// Whether the caller is on the main thread.
    virtual bool isCurrent() const = 0;
    /// Time that only goes forward.
    virtual TimePoint now() const = 0;
    virtual void post(Job job) = 0;
    /// Runs the job once after the delay; a negative delay counts as none.
    virtual TimerID postAfter(Duration delay, Job job) = 0;
    /// Forgets a delayed job; nothing happens when it has run already.
    virtual void cancel(TimerID timer) = 0;

    /// Runs jobs until stop(). Main thread only.
    virtual void run() = 0;
    virtual void stop() = 0;
};

/// A number of seconds as a duration in whole nanoseconds; what does not fit is cut to the
/// nearest that does, and what is not a number is none.
MainActor::Duration fromSeconds(double seconds);

} // namespace tarn
