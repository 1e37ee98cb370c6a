#include "Platform/Platform.h"
#include "TarnCore/AppInfo.h"
#include "TarnCore/Text.h"
#include "TarnlinkMenu/MenuApp/Application.h"
#include "TarnlinkMenu/MenuApp/PreviewCommand.h"
#include "TarnlinkMenu/MenuApp/RegistrationCommand.h"
#include "TarnlinkMenu/MenuApp/TerminalDesktop.h"
#include "TarnlinkMenu/MenuApp/TextMenu.h"
#include "TarnlinkMenu/Renderer.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace tarn;

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

constexpr const char *help = R"(Usage: TarnlinkMenu [OPTION]...
Shows where this computer's traffic goes, and why, in the menu bar; where there is no desktop, in the
terminal.

  --text      print the menu once
  --follow    with --text: again whenever it changes
  --render-preview, --list-scenarios
              draw what it shows into pictures, with sample data
  --registration, --register, --unregister
              whether the system starts the daemon and, at login, this program; to have the
              daemon started; to end both
  --help, --version

Exit status: 0 done, 1 failed, 2 wrong use.
)";

bool isKnown(const std::vector<std::string> &words) {
    return std::ranges::all_of(words,
                               [](const auto &word) { return word == "--text" || word == "--follow"; });
}

int misused() {
    std::fputs(help, stderr);
    return exitUsage;
}

int showWindows(Platform &platform, std::unique_ptr<Renderer> renderer) {
    Application application(platform, renderer->desktop(), Application::Role::owner,
                            [&renderer](const std::string &id) { renderer->openWindow(id); });
    const int status = renderer->run(application.scenes(), [&application] { application.status().start(); });
    // The toolkit has an end of its own: what was copied is handed over to the desktop.
    renderer.reset();
    // The system takes back faster what is left.
    _exit(status);
}

int showText(Platform &platform, bool isFollowing) {
    TerminalDesktop desktop;
    Application application(platform, desktop, Application::Role::guest, [](const std::string &) {});
    _exit(runTextMenu(platform.mainActor(), application, isFollowing) ? 0 : exitFailed);
}

/// The exit status of what is done, which may not throw where a toolkit calls it.
int reporting(const std::function<int()> &work) {
    try {
        return work();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "TarnlinkMenu: %s\n", text::printable(error.what()).c_str());
        return exitFailed;
    }
}

} // namespace

int main(int count, char **values) {
    const std::vector<std::string> words(values + std::min(count, 1), values + count);
    const auto has = [&](const char *word) { return std::ranges::find(words, word) != words.end(); };
    if (has("--help"))
        return std::fputs(help, stdout) < 0 ? exitFailed : 0;
    if (has("--version"))
        return std::printf("TarnlinkMenu %s (%lld)\n", std::string(AppInfo::version).c_str(),
                           static_cast<long long>(AppInfo::build)) < 0
                   ? exitFailed
                   : 0;
    if (const auto status = runPreviewCommand(words))
        return *status;
    const bool isText = has("--text");
    if (isText ? !isKnown(words) : has("--follow"))
        return misused();
    return reporting([&] {
        if (const auto status = runRegistrationCommand(words))
            return *status;
        const auto platform = makePlatform();
        if (isText)
            return showText(*platform, has("--follow"));
        // The toolkit takes its own words away.
        const auto showTextInstead = [&] {
            _exit(reporting([&] { return count > 1 ? misused() : showText(*platform, true); }));
        };
        auto renderer = makeRenderer(*platform, count, values, showTextInstead);
        if (renderer && renderer->isSecond()) {
            std::fputs("TarnlinkMenu: it runs already, and was asked to open its window\n", stderr);
            return 0;
        }
        if (count > 1)
            return misused();
        return renderer ? showWindows(*platform, std::move(renderer)) : showText(*platform, true);
    });
}
