#include "TarnlinkMenu/MenuApp/RegistrationCommand.h"

#include "Platform/Platform.h"
#include "TarnCore/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace tarn {
namespace {

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;
constexpr const char *show = "--registration";
constexpr const char *enter = "--register";
constexpr const char *leave = "--unregister";

const char *inWords(std::optional<RegistrationState> state) {
    if (!state)
        return "the system does not tell";
    switch (*state) {
    case RegistrationState::enabled:
        return "started by the system";
    case RegistrationState::notRegistered:
        return "not started by the system";
    case RegistrationState::requiresApproval:
        return "waits for an administrator to allow it";
    case RegistrationState::notFound:
        break;
    }
    return "not known to the system";
}

void complain(const std::string &what) {
    std::fprintf(stderr, "TarnlinkMenu: %s\n", text::printable(what).c_str());
}

bool isRegistered(std::optional<RegistrationState> state) {
    return state == RegistrationState::enabled || state == RegistrationState::requiresApproval;
}

} // namespace

int runRegistrationCommand(const std::string &word, DaemonRegistration &daemon, LoginItem &item) {
    bool isDone = true;
    const auto report = [&](const std::optional<std::string> &error, bool isAsWanted) {
        // Asking for what is so already is no failure.
        if (isAsWanted)
            return;
        isDone = false;
        if (error)
            complain(*error);
    };
    const auto before = daemon.state();
    const auto command = before ? daemon.administratorCommand(*before) : std::nullopt;
    if (word == enter && command) {
        complain("this takes an administrator: " + *command);
        isDone = false;
    } else if (word == enter) {
        const auto error = daemon.registerDaemon();
        report(error, isRegistered(daemon.state()));
    } else if (word == leave) {
        const auto loginError = item.set(false);
        report(loginError, !isRegistered(item.state()));
        const auto error = daemon.unregisterDaemon();
        report(error, !isRegistered(daemon.state()));
    }
    const bool isShown = std::printf("daemon: %s\napplication at login: %s\n", inWords(daemon.state()),
                                     inWords(item.state())) > 0 &&
                         std::fflush(stdout) == 0;
    return isDone && isShown ? 0 : exitFailed;
}

std::optional<int> runRegistrationCommand(const std::vector<std::string> &words) {
    const std::array<std::string_view, 3> known = {show, enter, leave};
    if (std::ranges::find_first_of(words, known) == words.end())
        return std::nullopt;
    if (words.size() != 1) {
        complain(std::string(show) + ", " + enter + " and " + leave + " stand alone");
        return exitUsage;
    }
    const auto platform = makePlatform();
    return runRegistrationCommand(words.front(), platform->daemonRegistration(), platform->loginItem());
}

} // namespace tarn
