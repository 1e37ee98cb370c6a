#pragma once

#include "TarnSystem/Log.h"
#include "TarnSystem/PackageTool.h"
#include "TarnSystem/SystemVersion.h"
#include "TarnSystem/Task.h"
#include "TarnSystem/UpdateRequest.h"
#include "TarnSystem/Updates/UpdateFeed.h"

#include <cstdint>
#include <string>

namespace tarn {

/// Installs what a request asks for, if it is an update by the vendor for this machine.
///
/// Of the request, which anybody may have written, it believes the signature and nothing else. The package is
/// copied to where only root can write; that copy is what is verified and installed.
///
/// Codes of UpdateOutcome: "copying", "verifying", "installing", "installed";
/// "refused.request" (unreadable), "refused.file" (no regular file, or unreadable), "refused.signature",
/// "refused.manifest", "refused.notNewer", "refused.rollback", "refused.system", "refused.size",
/// "refused.hash", "refused.package" (another product, version or machine);
/// "failed.feed" (no manifest to be had), "failed.record", "failed.copy", "failed.installer".
///
/// Thread: main actor, which it blocks.
/// Ownership: the services must outlive this and the task.
class Installer {
public:
    struct Services {
        UpdateFeed &feed;
        /// For requests without a manifest.
        URL manifestURL;
        PackageTool &packages;
        Log &log;
        /// For the outcome, the highest build ever seen and, for a while, the package. Made if need be; must
        /// belong to this user, and nobody else may write there.
        std::string folder;
        std::int64_t installedBuild = 0;
        SystemVersion system;
    };
    /// In `folder`: the highest build that any verified manifest had.
    static constexpr const char *recordName = "highest-build.json";
    /// In `folder`: where the package is while this works.
    static constexpr const char *incomingName = "incoming";

    explicit Installer(Services services) : services_(std::move(services)) {}

    /// Takes the request away and leaves an outcome; none when there is no request. Waits until no other
    /// process is at it. Throws std::runtime_error when the folder cannot be used, and then nothing was
    /// installed.
    Task<void> run(std::string requestPath);

private:
    Task<void> install(UpdateRequest request);
    Task<UpdateManifest> manifest(const UpdateRequest &request);
    void judge(const UpdateManifest &manifest);
    void identify(const UpdateManifest &manifest, const std::string &path);
    void tell(bool ok, std::string code, std::string message);

    Services services_;
    UpdateOutcome outcome_;
};

} // namespace tarn
