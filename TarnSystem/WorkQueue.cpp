#include "TarnSystem/WorkQueue.h"

#include <utility>

namespace tarn {

WorkerThread::~WorkerThread() {
    isAlive_.reset();
    {
        const std::lock_guard guard(lock_);
        isEnding_ = true;
        entries_.clear();
    }
    changed_.notify_one();
    if (thread_.joinable())
        thread_.join();
}

void WorkerThread::run(Job work, Job done) {
    {
        const std::lock_guard guard(lock_);
        entries_.push_back({std::move(work), std::move(done)});
    }
    if (!thread_.joinable())
        thread_ = std::thread([this] { loop(); });
    changed_.notify_one();
}

void WorkerThread::loop() {
    const std::weak_ptr<bool> isAlive = isAlive_;
    for (;;) {
        std::unique_lock guard(lock_);
        changed_.wait(guard, [this] { return isEnding_ || !entries_.empty(); });
        if (isEnding_)
            return;
        auto entry = std::move(entries_.front());
        entries_.pop_front();
        guard.unlock();
        entry.work();
        entry.work = {};
        actor_.post([isAlive, done = std::move(entry.done)] {
            if (!isAlive.expired())
                done();
        });
    }
}

} // namespace tarn
