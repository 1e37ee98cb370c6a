#pragma once

#include "TarnSystem/MainActor.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace tarn {

/// Where blocking work is done, away from the main thread: one job after the other, in order.
class WorkQueue {
public:
    using Job = std::function<void()>;

    virtual ~WorkQueue() = default;
    /// Runs `work` elsewhere and then `done` on the main thread. Neither may throw. Main thread only.
    virtual void run(Job work, Job done) = 0;
};

/// A thread of its own, started with the first job.
///
/// Ownership: destruction waits for the job under way and drops the others; no `done` is called
///   after that. `actor` must outlive this.
class WorkerThread final : public WorkQueue {
public:
    explicit WorkerThread(MainActor &actor) : actor_(actor) {}
    WorkerThread(const WorkerThread &) = delete;
    WorkerThread &operator=(const WorkerThread &) = delete;
    ~WorkerThread() override;

    void run(Job work, Job done) override;

private:
    struct Entry {
        Job work;
        Job done;
    };

    void loop();

    MainActor &actor_;
    /// Gone once this is: what was posted then does nothing.
    std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<Entry> entries_; // guarded by lock_
    bool isEnding_ = false;     // guarded by lock_
    std::thread thread_;
};

} // namespace tarn
