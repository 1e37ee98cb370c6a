#pragma once

#include "TarnSystem/SystemClock.h"
#include "TarnSystem/UpdateRequest.h"
#include "TarnSystem/UpdaterStarter.h"
#include "TarnXPC/Records.h"
#include "TarnlinkDaemon/StateFolder.h"

#include <chrono>
#include <optional>
#include <string>

namespace tarn {

/// Passes updates on to the updater, and tells what became of them. Looks into none: whether a package may be
/// installed is the updater's business.
///
/// Codes of UpdateResult, beside those of UpdateOutcome: "accepted" (the updater has not told anything yet),
/// "idle" (nothing was ever asked for; the build is this daemon's), "busy", "failed" (the request could not
/// be written), "updater.start" (could not be started), "updater.silent" (tells nothing, for too long),
/// "updater.unreadable".
///
/// Thread: any, one call at a time; calls block.
/// Ownership: the services must outlive this.
class UpdateRequests {
public:
    struct Services {
        /// Beside the daemon, nobody but the updater has anything to do there.
        StateFolder &folder;
        /// Of the updater; its files are only read.
        std::string updaterFolder;
        UpdaterStarter &starter;
        /// Where `folder` keeps the request.
        std::string requestPath;
        SystemClock &clock;
    };
    /// The updater is given so long for each step.
    static constexpr std::chrono::minutes patience{15};

    explicit UpdateRequests(Services services) : services_(std::move(services)) {}

    /// Manifest and signature together, or none: then the updater fetches them.
    UpdateResult submit(const std::string &pkgPath, const std::optional<std::string> &manifest,
                        const std::optional<std::string> &signature);
    /// Of the latest request.
    UpdateResult status();

private:
    /// What was told, and since when it is known here.
    struct Step {
        std::string id;
        std::string code;
        std::chrono::nanoseconds since{};
    };

    /// Whether nothing else was told for too long.
    bool isStuck(const std::string &id, const std::string &code);

    Services services_;
    std::optional<Step> step_;
    /// Of the latest request of this process.
    std::optional<std::string> latest_;
};

} // namespace tarn
