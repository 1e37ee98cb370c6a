#pragma once

#include "TarnSystem/SystemClock.h"

namespace tarn {

/// mach_continuous_time(), which counts the time asleep, the wall clock, and kern.bootsessionuuid.
class MacSystemClock final : public SystemClock {
public:
    Moment now() override;
    std::string bootID() override;
};

} // namespace tarn
