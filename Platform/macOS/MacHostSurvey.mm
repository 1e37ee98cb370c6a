#include "Platform/macOS/MacHostSurvey.h"

#include "TarnXPC/TarnXPC.h"

namespace tarn {

bool MacHostSurvey::isRegistered() {
    // What it prints is for people; that it finds the service is what counts.
    const auto result =
        processes_.run("/bin/launchctl", {"print", std::string("system/") + TarnXPC::daemonIdentifier});
    return result.launchError || result.status == 0;
}

} // namespace tarn
