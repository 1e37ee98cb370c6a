#pragma once

#include "TarnSystem/RecentLog.h"

namespace tarn {

/// From the unified log, by the system's "log" program.
class UnifiedLogReader final : public RecentLog {
public:
    std::string read(const std::string &subsystem) override;
};

} // namespace tarn
