#pragma once

#include "TarnSystem/SystemClock.h"

#include <time.h>

namespace tarn {

/// One of the clocks of clock_gettime(2).
std::chrono::nanoseconds timeOf(clockid_t clock);

/// CLOCK_BOOTTIME, CLOCK_REALTIME, and the boot_id of random(4).
class LinuxClock final : public SystemClock {
public:
    Moment now() override;
    std::string bootID() override;
};

} // namespace tarn
