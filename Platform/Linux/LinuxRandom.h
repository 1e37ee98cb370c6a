#pragma once

#include "TarnSystem/SecureRandom.h"

namespace tarn {

/// getrandom(2).
class LinuxRandom final : public SecureRandom {
public:
    std::uint64_t next() override;
};

} // namespace tarn
