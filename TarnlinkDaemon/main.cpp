#include "Platform/Platform.h"
#include "TarnCore/AppInfo.h"
#include "TarnSystem/AdminAuthorization.h"
#include "TarnSystem/ConfigLoader.h"
#include "TarnSystem/DNSCacheFlusher.h"
#include "TarnSystem/DNSProbe.h"
#include "TarnSystem/SCDynamicStoreEventSource.h"
#include "TarnSystem/ServiceController.h"
#include "TarnSystem/SystemStateReader.h"
#include "TarnSystem/TrafficCounters.h"
#include "TarnSystem/WiFiController.h"
#include "TarnXPC/TarnXPC.h"
#include "TarnlinkDaemon/Daemon.h"
#include "TarnlinkDaemon/DaemonService.h"
#include "TarnlinkDaemon/Evaluation.h"
#include "TarnlinkDaemon/Recording.h"
#include "TarnlinkDaemon/Report.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;
constexpr int exitTaken = 3;

constexpr const char *help =
    R"(Usage: TarnlinkDaemon [OPTION]...
Watches the network: Wi-Fi goes off while a wired path works, and comes back when it does not.
When it is asked to stop (SIGTERM, SIGINT), it undoes what it has changed and ends.

  --dry-run           decide, but carry nothing out
  --disabled          as if the protection were switched off
  --probe-mode MODE   "dns": ask a name server through each wired interface that needs it;
                      "off": take every wired path with an address and a router as good
  --probe-name NAME   the name to ask for
  --record FILE       write everything that is decided upon to a new file, decisions too

Other uses:
  --once --dry-run    show what Tarnlink would do on this machine now, and why; change nothing
    --json            as one JSON object instead of text
  --undo              undo what a daemon that was killed left behind
  --replay FILE       decide once more upon what --record wrote, print the decisions
  --help, --version

Exit status: 0 done, 1 failed (--undo: something is left to be undone; --replay: a decision
differs from the recorded one), 2 wrong use, 3 another daemon is running.
)";

bool print(const std::string &text) {
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    return std::fflush(stdout) == 0 && isWritten;
}

void complain(const std::string &message) {
    std::fprintf(stderr, "TarnlinkDaemon: %s\n", message.c_str());
}

/// Runs one evaluation and ends the main actor's loop; a failure is left in `error`.
tarn::Task<void> runOnce(tarn::Platform &platform, tarn::SystemStateReading &reader, tarn::Probing &prober,
                         tarn::Evaluation &evaluation, std::exception_ptr &error) {
    try {
        const tarn::DaemonConfig config = evaluation.config;
        evaluation = co_await tarn::evaluateOnce(reader, prober, config);
        // Of the reading that was judged: the name servers open one of their own.
        evaluation.visibility = platform.visibility();
        evaluation.wifi = tarn::CoreWLANDetails(platform.wifi()).current();
        evaluation.vpn = tarn::VPNDetector::activeTunnel(platform.kernelTables());
        evaluation.shadowedResolvers = tarn::VPNSplitDNS::suspects(tarn::VPNSplitDNS::scopedResolvers(
            [&](const std::string &client) { return platform.openDynamicStore(client); }));
    } catch (...) {
        error = std::current_exception();
    }
    platform.mainActor().post([&platform] { platform.mainActor().stop(); });
}

int evaluate(tarn::Platform &platform, const tarn::DaemonConfig &config, bool wantsJson) {
    tarn::Evaluation evaluation;
    evaluation.config = config;
    const std::string client = tarn::SystemStateReader::clientName;
    tarn::SystemStateReader reader(platform.openDynamicStore(client), platform.openNetworkPreferences(client),
                                   platform.wifi());
    tarn::DNSProbe prober(evaluation.config.probeName, {platform.mainActor(), platform.interfaceLookup(),
                                                        platform.datagrams(), platform.random()});
    std::exception_ptr error;
    tarn::detach(runOnce(platform, reader, prober, evaluation, error));
    platform.mainActor().run();
    if (error)
        std::rethrow_exception(error);
    if (!print(wantsJson ? tarn::report::asJson(evaluation) : tarn::report::asText(evaluation))) {
        complain("the report could not be written");
        return exitFailed;
    }
    return 0;
}

/// The daemon's parts on this system, in the order in which they need each other.
class Running {
public:
    Running(tarn::Platform &platform, tarn::StateFolder &folder, std::vector<std::string> arguments,
            tarn::Daemon::Options options)
        : platform_(platform), arguments_(std::move(arguments)),
          daemon_({
                      .actor = platform_.mainActor(),
                      .clock = platform_.clock(),
                      .log = platform_.log(),
                      .events = events_,
                      .host = platform_.hostEvents(),
                      .supervisor = platform_.supervisor(),
                      .makeProber = [this](const std::string &name) { return makeProber(name); },
                      .counters = counters_,
                      .reader = reader_,
                      .readQueue = readQueue_,
                      .switcher = switcher_,
                      .switchQueue = switchQueue_,
                      .folder = folder,
                      .diskQueue = diskQueue_,
                      .rememberDisabled =
                          [this](const std::vector<std::string> &serviceIDs) {
                              platform_.rememberDisabled(serviceIDs);
                          },
                      .loadConfig =
                          [this] { return tarn::ConfigLoader::load(platform_.preferences(), arguments_); },
                  },
                  std::move(options),
                  [this](bool isUndone) {
                      isUndone_ = isUndone;
                      platform_.mainActor().stop();
                  }),
          updates_({
              .folder = folder,
              .updaterFolder = platform_.updaterFolder(),
              .starter = platform_.updaterStarter(),
              .requestPath = platform_.stateFolder() + "/" + tarn::UpdateRequest::fileName,
              .clock = platform_.clock(),
          }) {}

    /// Returns whether everything was undone in the end.
    bool run(bool isServing) {
        daemon_.start();
        if (isServing) {
            serve(std::chrono::seconds(2));
            if (!daemon_.guard().config().dryRun)
                registerRight();
        }
        platform_.mainActor().run();
        return isUndone_;
    }

private:
    std::unique_ptr<tarn::Probing> makeProber(const std::string &name) {
        return std::make_unique<tarn::DNSProbe>(
            name, tarn::DNSProbe::Services{platform_.mainActor(), platform_.interfaceLookup(),
                                           platform_.datagrams(), platform_.random()});
    }
    /// Opens the door when there is something to tell; whoever shows it asks once and not again.
    void serve(std::chrono::milliseconds longestWait) {
        static constexpr std::chrono::milliseconds step{10};
        if (daemon_.guard().decision() || longestWait < step)
            return listener_->start(tarn::TarnXPC::machServiceName, tarn::TarnXPC::clientRequirement,
                                    service_);
        platform_.mainActor().postAfter(step, [this, longestWait] { serve(longestWait - step); });
    }
    void registerRight() {
        authorizationQueue_.run(
            [this] {
                try {
                    pausing_.ensureRightExists();
                } catch (const tarn::AdminAuthorizationError &error) {
                    // Where rights come with the installation, nothing has failed.
                    const bool isRefused = error.status() == tarn::AuthorizationStatus::denied;
                    platform_.log().write(
                        isRefused ? tarn::Log::Level::info : tarn::Log::Level::error, "authorization",
                        isRefused ? "the system does not know the right to pause: only root may"
                                  : error.description());
                }
            },
            [] {});
    }
    tarn::ServiceController::Opener servicesOpener() {
        return [this] { return platform_.openNetworkPreferencesEditor(client_); };
    }

    tarn::Platform &platform_;
    const std::vector<std::string> arguments_;
    const std::string client_ = tarn::SystemStateReader::clientName;
    bool isUndone_ = false;

    // On the reading thread.
    tarn::SystemStateReader state_{platform_.openDynamicStore(client_),
                                   platform_.openNetworkPreferences(client_), platform_.wifi()};
    tarn::ServiceController readServices_{servicesOpener()};
    tarn::SystemReading reader_{state_, readServices_,
                                [this](const std::string &name) { return platform_.openDynamicStore(name); }};
    // On the switching thread.
    tarn::WiFiController wifi_{platform_.wifi(), platform_.processes(), platform_.wifiPowerTool(),
                               platform_.log()};
    tarn::ServiceController switchServices_{servicesOpener()};
    tarn::DNSCacheFlusher cache_{platform_.kernelTables()};
    tarn::Switcher switcher_{wifi_, switchServices_, cache_, [this](const std::string &name) {
                                 return platform_.openDynamicStoreEditor(name);
                             }};

    tarn::TrafficCounters counters_{platform_.kernelTables()};
    tarn::SCDynamicStoreEventSource events_{
        [this](const std::string &name, tarn::DynamicStoreWatch::Callback callback) {
            return platform_.watchDynamicStore(name, std::move(callback));
        },
        platform_.mainActor()};
    tarn::WorkerThread readQueue_{platform_.mainActor()};
    tarn::WorkerThread switchQueue_{platform_.mainActor()};
    tarn::WorkerThread diskQueue_{platform_.mainActor()};
    tarn::Daemon daemon_;

    // For clients, on two threads of their own: nobody's connection waits for them.
    tarn::AdminAuthorization pausing_{platform_.authorizations(), platform_.log()};
    tarn::AdminAuthorization managing_{platform_.authorizations(), platform_.log(),
                                       tarn::AdminAuthorization::manageRight};
    const std::unique_ptr<tarn::Preferences> settings_ = platform_.openPreferences();
    tarn::WorkerThread authorizationQueue_{platform_.mainActor()};
    tarn::WorkerThread settingsQueue_{platform_.mainActor()};
    tarn::UpdateRequests updates_;
    tarn::DaemonService service_{{
        .daemon = daemon_,
        .clock = platform_.clock(),
        .kernelTables = platform_.kernelTables(),
        .pausing = pausing_,
        .managing = managing_,
        .authorizationQueue = authorizationQueue_,
        .settings = *settings_,
        .settingsQueue = settingsQueue_,
        .updates = updates_,
    }};
    const std::unique_ptr<tarn::RemoteListener> listener_ = platform_.makeListener();
};

int watch(tarn::Platform &platform, const std::vector<std::string> &arguments, bool isDryRun, bool undoOnly,
          const std::optional<std::string> &recordPath) {
    tarn::DiskFolder folder(platform.stateFolder());
    if (!isDryRun) {
        const auto lock = folder.lock();
        if (lock == tarn::DiskFolder::Lock::taken) {
            complain("another daemon is running; it has " + folder.path());
            return exitTaken;
        }
        if (lock == tarn::DiskFolder::Lock::denied) {
            complain(folder.path() + " cannot be used: it is not there, or belongs to somebody else");
            return exitFailed;
        }
        if (lock == tarn::DiskFolder::Lock::unavailable)
            platform.log().write(tarn::Log::Level::error, "daemon",
                                 folder.path() + " cannot be used: nothing can be written down there");
    }
    tarn::Daemon::Options options;
    options.undoOnly = undoOnly;
    std::optional<tarn::Descriptor> recording;
    if (recordPath) {
        recording.emplace(
            open(recordPath->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
        if (!*recording) {
            complain(*recordPath + ": " + std::strerror(errno));
            return exitFailed;
        }
        options.record = [&recording, &platform](const std::string &line) {
            const auto text = line + "\n";
            if (!*recording ||
                write(recording->get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()))
                return;
            platform.log().write(tarn::Log::Level::error, "daemon",
                                 std::string("the recording ends here: ") + std::strerror(errno));
            *recording = tarn::Descriptor();
        };
    }
    const auto running = std::make_unique<Running>(platform, folder, arguments, std::move(options));
    const int status = running->run(!undoOnly) ? 0 : exitFailed;
    // A probe may be under way. Nobody waits for it, and its end has nowhere to go.
    std::fflush(nullptr);
    _exit(status);
}

int replay(const std::string &path) {
    std::ifstream file(path);
    if (!file) {
        complain(path + ": " + std::strerror(errno));
        return exitFailed;
    }
    bool isPrinted = true;
    tarn::recording::Replay replay(
        [&](const std::string &line) { isPrinted = print(line + "\n") && isPrinted; });
    std::string line;
    for (std::size_t number = 1; std::getline(file, line); ++number) {
        // A daemon that was killed may have left half a line.
        if (file.eof())
            break;
        try {
            replay.take(line);
        } catch (const tarn::DecodingError &error) {
            complain(path + ", line " + std::to_string(number) + ": " + error.description());
            return exitFailed;
        }
    }
    if (replay.differences() > 0)
        complain(std::to_string(replay.differences()) + " decisions differ from the recorded ones");
    return isPrinted && replay.differences() == 0 ? 0 : exitFailed;
}

} // namespace

int main(int count, char **values) {
    const std::vector<std::string> arguments(values, values + count);
    const auto find = [&](const std::string &option) {
        std::size_t i = 1;
        // The word after some options is a value, whatever it looks like.
        for (; i < arguments.size() && arguments[i] != option; ++i)
            if (arguments[i] == "--probe-name" || arguments[i] == "--record" || arguments[i] == "--replay")
                ++i;
        return i < arguments.size() ? std::optional(i) : std::nullopt;
    };
    const auto has = [&](const char *option) { return find(option).has_value(); };
    if (has("--help"))
        return print(help) ? 0 : exitFailed;
    if (has("--version")) {
        const std::string version(tarn::AppInfo::version);
        return print("TarnlinkDaemon " + version + " (" + std::to_string(tarn::AppInfo::build) + ")\n")
                   ? 0
                   : exitFailed;
    }
    std::optional<std::string> recordPath;
    std::optional<std::string> replayPath;
    for (auto &[option, path] : {std::pair("--record", &recordPath), std::pair("--replay", &replayPath)})
        if (const auto place = find(option)) {
            if (*place + 1 >= arguments.size()) {
                complain(std::string(option) + " needs the name of a file");
                return exitUsage;
            }
            *path = arguments[*place + 1];
        }
    try {
        if (replayPath)
            return replay(*replayPath);
        const auto platform = tarn::makePlatform();
        const auto config = tarn::ConfigLoader::load(platform->preferences(), arguments);
        if (config.once && !config.dryRun) {
            complain("--once goes with --dry-run: one look changes nothing");
            return exitUsage;
        }
        if (config.once)
            return evaluate(*platform, config, has("--json"));
        return watch(*platform, arguments, config.dryRun, has("--undo"), recordPath);
    } catch (const std::exception &error) {
        complain(error.what());
        return exitFailed;
    }
}
