#include "TarnlinkMenu/MenuApp/TextMenu.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tarn {
namespace {

using namespace std::chrono_literals;

constexpr auto longestWait = 2s;
/// Longer lines are harder to read.
constexpr int mostColumns = 72;

int columns() {
    winsize size{};
    const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? std::min<int>(size.ws_col, mostColumns) : mostColumns;
}

bool print(const std::string &text) {
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    return std::fflush(stdout) == 0 && isWritten;
}

/// Whether a refresh has ended, and not in a question to a name server that will be answered soon.
bool isSettled(const StatusModel &status) {
    return status.source() == StatusModel::Source::daemon || status.errorText() ||
           (status.xpcError() && status.status().kind != Status::Kind::wiredPending);
}

} // namespace

bool runTextMenu(MainActor &actor, Application &application, bool isFollowing) {
    bool isWritten = true;
    bool isTimeUp = false;
    std::string last;
    const auto show = [&] {
        if (last.empty() && !isTimeUp && !isSettled(application.status()))
            return;
        const auto menu = renderText(application.scenes().menu().content, columns());
        if (menu != last)
            isWritten = print((last.empty() ? "" : "\n") + menu);
        last = menu;
        if (!isFollowing || !isWritten)
            actor.stop();
    };
    const auto subscription = application.scenes().observe(show);
    const auto timer = actor.postAfter(longestWait, [&] {
        isTimeUp = true;
        show();
    });
    if (isFollowing)
        application.status().start();
    else
        application.status().refresh();
    actor.run();
    actor.cancel(timer);
    return isWritten;
}

} // namespace tarn
