#pragma once

#include <mutex>

namespace tarn {

/// One completion wins: whoever claims first carries it out, everybody else does nothing.
///
/// Thread: any.
class Once {
public:
    /// True for exactly one caller.
    bool claim() {
        const std::lock_guard guard(lock_);
        const bool first = !claimed_;
        claimed_ = true;
        return first;
    }

private:
    std::mutex lock_;
    bool claimed_ = false;
};

} // namespace tarn
