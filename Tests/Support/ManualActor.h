#pragma once

#include "TarnSystem/MainActor.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace tarn {

/// A main actor that the test drives: its clock stands still and its jobs wait until told to go on.
///
/// Thread: the one that made it is the main thread; there alone jobs run.
class ManualActor final : public MainActor {
public:
    bool isCurrent() const override { return std::this_thread::get_id() == owner_; }
    TimePoint now() const override {
        const std::lock_guard guard(lock_);
        return now_;
    }
    void post(Job job) override { postAfter(Duration::zero(), std::move(job)); }
    TimerID postAfter(Duration delay, Job job) override {
        const std::lock_guard guard(lock_);
        jobs_.emplace(std::pair(now_ + std::max(delay, Duration::zero()), ++lastID_), std::move(job));
        return lastID_;
    }
    void cancel(TimerID timer) override {
        // Destroyed outside the lock: what a job holds may call back.
        Job dropped;
        const std::lock_guard guard(lock_);
        for (auto &[key, job] : jobs_)
            if (key.second == timer)
                dropped.swap(job);
        std::erase_if(jobs_, [&](const auto &entry) { return entry.first.second == timer; });
    }
    /// Moves the clock on and runs each job when it is due; those due at the end run, too.
    void advance(Duration by) {
        const auto end = now() + by;
        while (runNext(end))
            continue;
        const std::lock_guard guard(lock_);
        now_ = end;
    }
    /// Runs what is due now, and what that posts.
    void runDue() { advance(Duration::zero()); }
    /// Jobs that wait, delayed ones included.
    std::size_t waiting() const {
        const std::lock_guard guard(lock_);
        return jobs_.size();
    }
    /// Runs jobs, the clock jumping to each, until none waits.
    void run() override {
        while (runNext(TimePoint::max()))
            continue;
    }
    /// Forgets the jobs that wait.
    void stop() override {
        decltype(jobs_) dropped;
        const std::lock_guard guard(lock_);
        dropped.swap(jobs_);
    }

private:
    bool runNext(TimePoint end) {
        std::unique_lock guard(lock_);
        if (jobs_.empty() || jobs_.begin()->first.first > end)
            return false;
        const auto next = jobs_.extract(jobs_.begin());
        now_ = next.key().first;
        guard.unlock();
        next.mapped()();
        return true;
    }

    const std::thread::id owner_ = std::this_thread::get_id();
    mutable std::mutex lock_;
    TimePoint now_{std::chrono::hours(1)};
    TimerID lastID_ = 0;
    std::map<std::pair<TimePoint, TimerID>, Job> jobs_;
};

} // namespace tarn
