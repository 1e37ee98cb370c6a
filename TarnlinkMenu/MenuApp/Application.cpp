#include "TarnlinkMenu/MenuApp/Application.h"

#include "Platform/HTTP.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/SystemStateReader.h"

#include <chrono>
#include <unistd.h>
#include <utility>

namespace tarn {
namespace {

std::unique_ptr<SystemStateReading> makeReader(Platform &platform) {
    const std::string client = SystemStateReader::clientName;
    try {
        return std::make_unique<SystemStateReader>(platform.openDynamicStore(client),
                                                   platform.openNetworkPreferences(client), platform.wifi());
    } catch (const SystemStateError &) {
        return std::make_unique<NullSystemStateReader>();
    }
}

Date wallClock() {
    return std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now());
}

} // namespace

Application::Application(Platform &platform, Desktop &desktop, Role role,
                         std::function<void(const std::string &id)> openWindow,
                         std::unique_ptr<HTTPClient> http, std::string feedKey)
    : platform_(platform), actor_(platform.mainActor()), role_(role), reader_(makeReader(platform)),
      events_(
          [&platform](const std::string &client, DynamicStoreWatch::Callback callback) {
              return platform.watchDynamicStore(client, std::move(callback));
          },
          actor_),
      wifi_(platform.wifi(), platform.processes(), platform.wifiPowerTool(), platform.log()),
      wifiDetails_(platform.wifi()),
      prober_(DaemonConfig().probeName,
              {actor_, platform.interfaceLookup(), platform.datagrams(), platform.random()}),
      http_(http ? std::move(http) : makeHTTPClient(platform)), feed_(*http_, actor_, std::move(feedKey)),
      guestDefaults_(platform.userDefaults()),
      defaults_(role == Role::owner ? platform.userDefaults() : guestDefaults_),
      authorization_(platform.authorizations(), platform.log()), logQueue_(actor_), hashQueue_(actor_),
      promptQueue_(actor_), client_(platform.connector(), actor_), location_(desktop, defaults_, actor_),
      status_({.daemon = client_,
               .actor = actor_,
               .clock = platform.clock(),
               .log = platform.log(),
               .kernelTables = platform.kernelTables(),
               .reader = *reader_,
               .events = events_,
               .wifi = wifi_,
               .prober = prober_,
               .wifiDetails = wifiDetails_,
               .location = location_,
               .recentLog = platform.recentLog(),
               .queue = logQueue_,
               .preferences = platform.preferences(),
               .makeUpdates = [this] { return makeUpdates(); }}),
      admin_({client_, authorization_, promptQueue_, actor_, platform.strings()}), startupQueue_(actor_),
      startup_({platform.daemonRegistration(), platform.loginItem(), desktop.modifiers(), startupQueue_}),
      modifiers_(desktop.modifiers()), scenes_({.status = status_,
                                                .admin = admin_,
                                                .modifiers = modifiers_,
                                                .desktop = desktop,
                                                .actor = actor_,
                                                .strings = platform.strings(),
                                                .now = wallClock,
                                                .openWindow = std::move(openWindow),
                                                .startup = &startup_}),
      // No event of the network tells of a pause.
      pauseSubscription_(admin_.observe([this, last = admin_.pausedUntil()]() mutable {
          if (std::exchange(last, admin_.pausedUntil()) != admin_.pausedUntil())
              status_.refresh();
      })),
      // Nor of a daemon that may run from now on.
      startupSubscription_(startup_.observe([this, last = startup_.daemon()]() mutable {
          const auto before = std::exchange(last, startup_.daemon());
          if (before && before != last)
              status_.refresh();
      })) {}

std::unique_ptr<UpdateChecker> Application::makeUpdates() {
    // The folder is one checker's alone.
    const auto own = role_ == Role::owner ? "/updates" : "/updates-" + std::to_string(getpid());
    UpdateChecker::Setup setup;
    setup.downloadFolder = platform_.cacheFolder() + own;
    setup.system = platform_.systemVersion();
    return std::make_unique<UpdateChecker>(UpdateChecker::Services{client_, feed_, defaults_, actor_,
                                                                   platform_.clock(), platform_.log(),
                                                                   hashQueue_},
                                           std::move(setup));
}

} // namespace tarn
