#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// Runs other programs.
///
/// Thread: any; a call blocks until the program has ended.
class ProcessLauncher {
public:
    struct Result {
        /// Why it could not be started, in the system's words for people; absent when it ran.
        std::optional<std::string> launchError;
        /// Its exit status; the number of the signal that ended it, if one did.
        std::int32_t status = 0;
        /// What it wrote to its standard error, byte for byte.
        std::string standardError = {};
        /// And to its standard output.
        std::string standardOutput = {};

        /// Why it did not do its work, in the last line that it said, on its standard error where it said
        /// anything there; none when it did.
        std::optional<std::string> complaint() const;
    };

    virtual ~ProcessLauncher() = default;
    /// Runs the program at the path with these arguments; what it writes is captured.
    virtual Result run(const std::string &path, const std::vector<std::string> &arguments) = 0;
};

} // namespace tarn
