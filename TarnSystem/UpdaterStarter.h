#pragma once

#include <optional>
#include <string>

namespace tarn {

/// Starts the program that installs updates.
///
/// Thread: any; may block.
class UpdaterStarter {
public:
    virtual ~UpdaterStarter() = default;
    /// Lets the updater look at the request in this file; does not wait for it. Returns why it could not be
    /// started, in the system's words for people. Where the system itself looks out for the file, there is
    /// nothing to do.
    virtual std::optional<std::string> start(const std::string &requestPath) = 0;
};

} // namespace tarn
