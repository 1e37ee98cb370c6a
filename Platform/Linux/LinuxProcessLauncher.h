#pragma once

#include "TarnSystem/ProcessLauncher.h"

#include <sys/types.h>

namespace tarn {

/// Spawns them without a shell. They inherit the environment and the standard input, nothing else, and
/// handle signals in the default way.
class LinuxProcessLauncher final : public ProcessLauncher {
public:
    Result run(const std::string &path, const std::vector<std::string> &arguments) override;
    /// The same with both outputs in `standardOutput`, in the order written.
    Result runMerged(const std::string &path, const std::vector<std::string> &arguments);

    /// Starts one with its standard output there, and gives its number; the caller waits for its end
    /// (waitpid(2)). Throws std::system_error.
    static pid_t start(const std::string &path, const std::vector<std::string> &arguments,
                       int standardOutput);
};

} // namespace tarn
