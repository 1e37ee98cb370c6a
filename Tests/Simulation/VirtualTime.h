#pragma once

#include "TarnSystem/MainActor.h"
#include "TarnSystem/WorkQueue.h"

#include <chrono>
#include <compare>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace tarn::sim {

using Time = std::chrono::nanoseconds;

constexpr Time seconds(double number) {
    return Time(static_cast<std::int64_t>(number * 1e9));
}

/// Numbers that depend on the seed alone, whatever the library (splitmix64).
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next();
    /// 0 up to `count` - 1.
    std::size_t below(std::size_t count) { return static_cast<std::size_t>(next() % count); }
    bool oneIn(std::size_t count) { return below(count) == 0; }
    double between(double low, double high) {
        return low + (high - low) * static_cast<double>(next() >> 11) * 0x1p-53;
    }
    Time time(double low, double high) { return seconds(between(low, high)); }

private:
    std::uint64_t state_;
};

/// Jobs of several owners at points of a time that jumps from one to the next.
class VirtualTime {
public:
    using Job = MainActor::Job;
    using TimerID = MainActor::TimerID;

    Time now() const { return now_; }
    TimerID at(Time when, std::uint64_t owner, Job job);
    void cancel(TimerID timer);
    /// Forgets every job of this owner.
    void drop(std::uint64_t owner);
    /// Runs the next job; false when none is due up to then.
    bool runNext(Time end);

private:
    struct Entry {
        Time when;
        std::uint64_t order;
        TimerID id;

        auto operator<=>(const Entry &) const = default;
    };
    struct Slot {
        std::uint32_t generation = 0;
        std::uint64_t owner = 0;
        bool isTaken = false;
        Job job;
    };

    Job release(std::uint32_t index);

    Time now_{};
    std::uint64_t order_ = 0;
    std::vector<Entry> heap_;
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;
};

/// The main thread of one simulated process.
class VirtualActor final : public MainActor {
public:
    VirtualActor(VirtualTime &time, std::uint64_t process) : time_(time), process_(process) {}
    ~VirtualActor() override { time_.drop(process_); }

    bool isCurrent() const override { return true; }
    TimePoint now() const override { return TimePoint(time_.now()); }
    void post(Job job) override { time_.at(time_.now(), process_, std::move(job)); }
    TimerID postAfter(Duration delay, Job job) override;
    void cancel(TimerID timer) override { time_.cancel(timer); }
    void run() override {}
    void stop() override { time_.drop(process_); }

private:
    VirtualTime &time_;
    std::uint64_t process_;
};

/// A thread that does one job after the other and takes its time.
class VirtualQueue final : public WorkQueue {
public:
    /// Runs the work of a job and returns how long it took; none when the process died of it.
    using Worker = std::function<std::optional<Time>(const Job &work)>;

    VirtualQueue(MainActor &actor, std::function<Time()> before, Worker worker)
        : actor_(actor), before_(std::move(before)), worker_(std::move(worker)) {}

    void run(Job work, Job done) override;

private:
    void begin();

    MainActor &actor_;
    std::function<Time()> before_;
    Worker worker_;
    std::deque<std::pair<Job, Job>> jobs_;
};

} // namespace tarn::sim
