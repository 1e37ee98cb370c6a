#pragma once

#include "TarnSystem/MainActor.h"

#include <memory>

namespace tarn {

/// The main dispatch queue. The main run loop drains it, so jobs also run while an application
/// object, and not run(), turns that loop.
///
/// Ownership: destroy it on the main thread.
/// Units: delays and now() count the time in which the machine is awake; both stand still
///   while it sleeps.
class DispatchMainActor final : public MainActor {
public:
    DispatchMainActor();
    ~DispatchMainActor() override;

    bool isCurrent() const override;
    TimePoint now() const override;
    void post(Job job) override;
    TimerID postAfter(Duration delay, Job job) override;
    void cancel(TimerID timer) override;

    void run() override;
    void stop() override;

private:
    struct State;
    /// Blocks that wait in the queue hold it weakly: they find nothing to do once it is gone.
    std::shared_ptr<State> state_;
};

} // namespace tarn
