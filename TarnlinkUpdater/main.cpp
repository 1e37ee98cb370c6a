#include "Platform/HTTP.h"
#include "Platform/Platform.h"
#include "TarnCore/AppInfo.h"
#include "TarnSystem/ConfigLoader.h"
#include "TarnlinkUpdater/Installer.h"

#include <cstdio>
#include <exception>
#include <string>

namespace {

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

constexpr const char *help = R"(Usage: TarnlinkUpdater REQUEST
Installs the update that the file REQUEST asks for, if it is the vendor's and newer, removes the file and
ends. For root, who has it started when the daemon leaves a request. It asks nobody anything.

  --help, --version

Exit status: 0 the request is dealt with, also when it was refused, 1 it could not be, 2 wrong use.
)";

tarn::Task<void> work(tarn::Installer &installer, tarn::MainActor &actor, std::string request, int &status) {
    try {
        auto running = installer.run(std::move(request));
        co_await running;
        status = 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "TarnlinkUpdater: %s\n", error.what());
    }
    actor.post([&actor] { actor.stop(); });
}

} // namespace

int main(int count, char **values) {
    const std::string argument = count == 2 ? values[1] : "";
    if (argument == "--help")
        return std::fputs(help, stdout) < 0 ? exitFailed : 0;
    if (argument == "--version")
        return std::printf("TarnlinkUpdater %s (%lld)\n", std::string(tarn::AppInfo::version).c_str(),
                           static_cast<long long>(tarn::AppInfo::build)) < 0
                   ? exitFailed
                   : 0;
    if (!argument.starts_with('/')) {
        std::fputs(help, stderr);
        return exitUsage;
    }
    int status = exitFailed;
    try {
        const auto platform = tarn::makePlatform();
        const auto http = tarn::makeHTTPClient(*platform);
        tarn::UpdateFeed feed(*http, platform->mainActor());
        tarn::Installer installer({
            .feed = feed,
            .manifestURL = tarn::ConfigLoader::load(platform->preferences(), {}).updateFeedURL,
            .packages = platform->packages(),
            .log = platform->log(),
            .folder = platform->updaterFolder(),
            .installedBuild = tarn::AppInfo::build,
            .system = platform->systemVersion(),
        });
        tarn::detach(work(installer, platform->mainActor(), argument, status));
        platform->mainActor().run();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "TarnlinkUpdater: %s\n", error.what());
    }
    return status;
}
