#pragma once

#include <chrono>
#include <string>

namespace tarn {

/// One moment on both of the machine's clocks.
struct Moment {
    /// Since the system was started, time asleep included. Nobody can set it.
    std::chrono::nanoseconds sinceBoot{};
    /// Wall clock, since the beginning of 1970 UTC. Anybody may set it at any time.
    std::chrono::nanoseconds sinceEpoch{};

    friend bool operator==(const Moment &, const Moment &) = default;
};

/// The machine's clocks. Thread: any. Errors: none.
class SystemClock {
public:
    virtual ~SystemClock() = default;
    virtual Moment now() = 0;
    /// Differs from one start of the system to the next; empty when the system does not tell.
    virtual std::string bootID() = 0;
};

} // namespace tarn
