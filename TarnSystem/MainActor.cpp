#include "TarnSystem/MainActor.h"

#include <cmath>

namespace tarn {

MainActor::Duration fromSeconds(double seconds) {
    // A century: far enough for a timer, and far from overflow when it is added to a clock.
    constexpr double limit = 3.15e9;
    if (std::isnan(seconds))
        return MainActor::Duration::zero();
    const double bounded = std::fmax(-limit, std::fmin(limit, seconds));
    return std::chrono::duration_cast<MainActor::Duration>(std::chrono::duration<double>(bounded));
}

} // namespace tarn
