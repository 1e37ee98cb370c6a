#pragma once

#include "TarnSystem/ProcessLauncher.h"

namespace tarn {

/// Runs them as tasks of Foundation, without a shell.
class MacProcessLauncher final : public ProcessLauncher {
public:
    Result run(const std::string &path, const std::vector<std::string> &arguments) override;
};

} // namespace tarn
