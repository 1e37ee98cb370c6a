#include "Simulation/VirtualTime.h"

#include <algorithm>
#include <functional>

namespace tarn::sim {

std::uint64_t Random::next() {
    state_ += 0x9e3779b97f4a7c15;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
    return mixed ^ (mixed >> 31);
}

VirtualTime::TimerID VirtualTime::at(Time when, std::uint64_t owner, Job job) {
    if (free_.empty()) {
        free_.push_back(static_cast<std::uint32_t>(slots_.size()));
        slots_.emplace_back();
    }
    const auto index = free_.back();
    free_.pop_back();
    Slot &slot = slots_[index];
    slot.owner = owner;
    slot.isTaken = true;
    slot.job = std::move(job);
    // 0 names no timer.
    const TimerID id = (TimerID{++slot.generation} << 32) | index;
    heap_.push_back({std::max(when, now_), ++order_, id});
    std::ranges::push_heap(heap_, std::greater());
    return id;
}

VirtualTime::Job VirtualTime::release(std::uint32_t index) {
    Slot &slot = slots_[index];
    slot.isTaken = false;
    free_.push_back(index);
    return std::exchange(slot.job, {});
}

void VirtualTime::cancel(TimerID timer) {
    const auto index = static_cast<std::uint32_t>(timer);
    if (index < slots_.size() && slots_[index].isTaken && slots_[index].generation == timer >> 32)
        release(index);
}

void VirtualTime::drop(std::uint64_t owner) {
    for (std::uint32_t index = 0; index < slots_.size(); ++index)
        if (slots_[index].isTaken && slots_[index].owner == owner)
            release(index);
}

bool VirtualTime::runNext(Time end) {
    while (!heap_.empty() && heap_.front().when <= end) {
        const Entry entry = heap_.front();
        std::ranges::pop_heap(heap_, std::greater());
        heap_.pop_back();
        const auto index = static_cast<std::uint32_t>(entry.id);
        if (!slots_[index].isTaken || slots_[index].generation != entry.id >> 32)
            continue;
        now_ = entry.when;
        release(index)();
        return true;
    }
    now_ = end;
    return false;
}

VirtualActor::TimerID VirtualActor::postAfter(Duration delay, Job job) {
    const auto now = time_.now();
    return time_.at(delay > Duration::max() - now ? Duration::max() : now + delay, process_, std::move(job));
}

void VirtualQueue::run(Job work, Job done) {
    jobs_.emplace_back(std::move(work), std::move(done));
    if (jobs_.size() == 1)
        begin();
}

void VirtualQueue::begin() {
    actor_.postAfter(before_(), [this] {
        const auto took = worker_(jobs_.front().first);
        if (!took)
            return;
        actor_.postAfter(*took, [this] {
            const Job done = std::move(jobs_.front().second);
            jobs_.pop_front();
            if (!jobs_.empty())
                begin();
            done();
        });
    });
}

} // namespace tarn::sim
