#pragma once

#include "TarnSystem/SecureRandom.h"

namespace tarn {

class MacSecureRandom final : public SecureRandom {
public:
    std::uint64_t next() override;
};

} // namespace tarn
