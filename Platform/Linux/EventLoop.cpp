#include "Platform/Linux/EventLoop.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarn {
namespace {

void check(int result, const char *what) {
    if (result < 0)
        throw std::system_error(-result, std::generic_category(), what);
}

} // namespace

EventLoop::EventLoop() {
    check(sd_event_new(&event_), "sd_event_new");
    wakeUp_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeUp_ < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    const auto drain = [](sd_event_source *, int descriptor, std::uint32_t, void *self) {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto read = ::read(descriptor, &count, sizeof count);
        static_cast<EventLoop *>(self)->runPosted();
        return 0;
    };
    check(sd_event_add_io(event_, &wakeUpSource_, wakeUp_, EPOLLIN, drain, this), "sd_event_add_io");
}

EventLoop::~EventLoop() {
    // Let go of first: what a job holds may post or cancel in its destructor.
    auto timers = std::exchange(timers_, {});
    for (const auto &[id, timer] : timers)
        sd_event_source_disable_unref(timer->source);
    timers.clear();
    std::exchange(posted_, {}).clear();
    sd_event_source_unref(wakeUpSource_);
    sd_event_unref(event_);
    close(wakeUp_);
}

LoopSource EventLoop::whenReadable(int descriptor, std::function<void()> &ready) {
    const auto call = [](sd_event_source *, int, std::uint32_t, void *data) {
        (*static_cast<std::function<void()> *>(data))();
        return 0;
    };
    sd_event_source *source = nullptr;
    check(sd_event_add_io(event_, &source, descriptor, EPOLLIN, call, &ready), "sd_event_add_io");
    return LoopSource(source);
}

void EventLoop::post(Job job) {
    {
        const std::lock_guard guard(lock_);
        posted_.push_back(std::move(job));
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wakeUp_, &one, sizeof one);
}

void EventLoop::runPosted() {
    // Only what waits now: a job that posts itself must not starve the descriptors.
    std::size_t count = 0;
    {
        const std::lock_guard guard(lock_);
        count = posted_.size();
    }
    for (; count > 0; --count) {
        Job job;
        {
            const std::lock_guard guard(lock_);
            job = std::move(posted_.front());
            posted_.pop_front();
        }
        job();
    }
}

EventLoop::TimerID EventLoop::postAfter(Duration delay, Job job) {
    const TimerID id = ++lastTimer_;
    const TimePoint due = now() + std::max(delay, Duration::zero());
    if (isCurrent())
        addTimer(id, due, std::move(job));
    else
        post([this, id, due, moved = std::move(job)]() mutable { addTimer(id, due, std::move(moved)); });
    return id;
}

void EventLoop::addTimer(TimerID id, TimePoint due, Job job) {
    auto timer = std::make_unique<Timer>(Timer{this, id, std::move(job)});
    // sd-event counts whole microseconds; rounding up keeps a timer from firing early.
    const auto microseconds = std::chrono::ceil<std::chrono::microseconds>(due.time_since_epoch()).count();
    const auto fire = [](sd_event_source *, std::uint64_t, void *data) {
        auto *expired = static_cast<Timer *>(data);
        const Job ready = std::move(expired->job);
        expired->loop->cancel(expired->id);
        ready();
        return 0;
    };
    check(sd_event_add_time(event_, &timer->source, CLOCK_MONOTONIC, static_cast<std::uint64_t>(microseconds),
                            1, fire, timer.get()),
          "sd_event_add_time");
    timers_.emplace(id, std::move(timer));
}

void EventLoop::cancel(TimerID id) {
    if (!isCurrent()) {
        post([this, id] { cancel(id); });
        return;
    }
    const auto found = timers_.find(id);
    if (found == timers_.end())
        return;
    sd_event_source_disable_unref(found->second->source);
    timers_.erase(found);
}

void EventLoop::run() {
    while (!std::exchange(isStopping_, false))
        check(sd_event_run(event_, UINT64_MAX), "sd_event_run");
}

bool EventLoop::prepare() {
    // A wait of no length leaves the loop as it was, but with its timers set in the kernel.
    if (sd_event_get_state(event_) == SD_EVENT_INITIAL) {
        const int due = sd_event_prepare(event_);
        check(due, "sd_event_prepare");
        if (due == 0)
            check(sd_event_wait(event_, 0), "sd_event_wait");
    }
    return sd_event_get_state(event_) == SD_EVENT_PENDING;
}

bool EventLoop::dispatch() {
    if (prepare())
        check(sd_event_dispatch(event_), "sd_event_dispatch");
    return !std::exchange(isStopping_, false);
}

void EventLoop::stop() {
    if (isCurrent())
        isStopping_ = true;
    else
        post([this] { isStopping_ = true; });
}

} // namespace tarn
