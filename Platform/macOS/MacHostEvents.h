#pragma once

#include "TarnSystem/HostEvents.h"

#include <memory>
#include <string>
#include <vector>

namespace tarn {

/// Signals and files by dispatch sources, sleep by the power management's root domain, the wall clock
/// by Foundation's notification. All arrive on the main queue.
class MacHostEvents final : public HostEvents {
public:
    /// `settings` are the property lists of the preferences; they need not be there.
    explicit MacHostEvents(std::vector<std::string> settings);
    ~MacHostEvents() override;

    void start(Handler handler) override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace tarn
