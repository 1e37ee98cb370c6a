#include "Platform/Platform.h"
#include "TarnCore/AppInfo.h"
#include "TarnCore/Text.h"
#include "TarnSystem/AdminAuthorization.h"
#include "TarnSystem/SystemStateReader.h"
#include "TarnlinkCtl/Controller.h"
#include "TarnlinkCtl/Examination.h"

#include <cstdio>
#include <unistd.h>

namespace {

using namespace tarn;

bool print(const std::string &text) {
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    return std::fflush(stdout) == 0 && isWritten;
}

void complain(const std::string &line) {
    std::fprintf(stderr, "tarnlinkctl: %s\n", line.c_str());
}

std::string authorize(Platform &platform, const std::string &right) {
    // Where no desktop asks for the password.
    const auto agent = platform.openTerminalAgent();
    AdminAuthorization authorization(platform.authorizations(), platform.log(), right);
    return authorization.acquireInteractively();
}

std::unique_ptr<SystemStateReading> openReader(Platform &platform) {
    constexpr auto name = SystemStateReader::clientName;
    return std::make_unique<SystemStateReader>(platform.openDynamicStore(name),
                                               platform.openNetworkPreferences(name), platform.wifi());
}

Task<void> carryOut(Controller &controller, CtlCommand command, MainActor &actor, int &status) {
    status = co_await controller.run(command);
    actor.post([&actor] { actor.stop(); });
}

int carryOut(const CtlCommand &command) {
    const auto platform = makePlatform();
    auto &actor = platform->mainActor();
    TarnXPCClient client(platform->connector(), actor);
    WorkerThread queue(actor);
    Examination examination{client,
                            platform->hostSurvey(),
                            platform->authorizations(),
                            platform->kernelTables(),
                            platform->clock(),
                            platform->userDefaults(),
                            [&] { return openReader(*platform); },
                            [&] { return platform->visibility(); },
                            [&](const std::string &name) { return platform->openDynamicStore(name); },
                            platform->stateFolder()};
    Controller controller(
        {client, actor, queue, [&](const std::string &right) { return authorize(*platform, right); },
         [] { return std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now()); }, print,
         complain, [&] { return examination.run(); }});
    int status = Controller::failed;
    detach(carryOut(controller, command, actor, status));
    actor.run();
    // The system takes back faster what is left.
    _exit(status);
}

} // namespace

int main(int count, char **values) {
    try {
        const auto command = parseCtlCommand({values + 1, values + count});
        const std::string version(AppInfo::version);
        if (command.verb == CtlCommand::Verb::help)
            return print(ctlHelp(makePlatform()->hostSurvey().system())) ? Controller::done
                                                                         : Controller::failed;
        if (command.verb == CtlCommand::Verb::version)
            return print("tarnlinkctl " + version + " (" + std::to_string(AppInfo::build) + ")\n")
                       ? Controller::done
                       : Controller::failed;
        return carryOut(command);
    } catch (const CtlUsageError &error) {
        complain(text::printable(error.what()) + "; see tarnlinkctl --help");
        return Controller::wrongUse;
    } catch (const std::exception &error) {
        complain(text::printable(error.what()));
        return Controller::failed;
    }
}
