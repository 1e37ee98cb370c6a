#pragma once

#include "TarnCore/LocalizedStrings.h"
#include "TarnSystem/AuthenticationAgent.h"
#include "TarnSystem/AuthorizationServices.h"
#include "TarnSystem/DaemonRegistration.h"
#include "TarnSystem/DatagramConnection.h"
#include "TarnSystem/DynamicStore.h"
#include "TarnSystem/DynamicStoreWatch.h"
#include "TarnSystem/HostEvents.h"
#include "TarnSystem/HostSurvey.h"
#include "TarnSystem/KernelTables.h"
#include "TarnSystem/Log.h"
#include "TarnSystem/LoginItem.h"
#include "TarnSystem/MainActor.h"
#include "TarnSystem/NetworkPreferences.h"
#include "TarnSystem/PackageTool.h"
#include "TarnSystem/Preferences.h"
#include "TarnSystem/ProcessLauncher.h"
#include "TarnSystem/RecentLog.h"
#include "TarnSystem/SecureRandom.h"
#include "TarnSystem/Supervisor.h"
#include "TarnSystem/SystemClock.h"
#include "TarnSystem/SystemVersion.h"
#include "TarnSystem/SystemVisibility.h"
#include "TarnSystem/UpdaterStarter.h"
#include "TarnSystem/UserDefaults.h"
#include "TarnSystem/WiFiClient.h"
#include "TarnXPC/RemoteConnection.h"
#include "TarnXPC/RemoteListener.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// The operating system's half of every seam. Entry points make one and hand its parts down;
/// it outlives everything that was made from it.
///
/// Thread: the main thread, except where a part says otherwise.
class Platform {
public:
    virtual ~Platform() = default;

    virtual MainActor &mainActor() = 0;
    virtual Log &log() = 0;
    virtual RecentLog &recentLog() = 0;
    virtual SecureRandom &random() = 0;
    virtual Preferences &preferences() = 0;
    /// The same settings for whoever changes them. May be opened and used on any one thread.
    virtual std::unique_ptr<Preferences> openPreferences() = 0;
    virtual WiFiClient &wifi() = 0;
    /// Path of the program that switches Wi-Fi where `wifi` does not do it, as WiFiController takes
    /// it; absent on a system without one.
    virtual std::optional<std::string> wifiPowerTool() = 0;
    virtual KernelTables &kernelTables() = 0;
    virtual ProcessLauncher &processes() = 0;
    virtual InterfaceLookup &interfaceLookup() = 0;
    virtual DatagramNetwork &datagrams() = 0;
    virtual const LocalizedStrings &strings() = 0;
    virtual SystemClock &clock() = 0;
    virtual HostEvents &hostEvents() = 0;
    virtual HostSurvey &hostSurvey() = 0;
    virtual Supervisor &supervisor() = 0;
    virtual AuthorizationServices &authorizations() = 0;
    /// Lets a person at a terminal be asked where nothing else asks them. Waits until the agent is ready,
    /// for at most a few seconds; null where none is needed or can be had.
    virtual std::unique_ptr<AuthenticationAgent> openTerminalAgent() = 0;
    virtual RemoteConnector &connector() = 0;
    virtual std::unique_ptr<RemoteListener> makeListener() = 0;
    /// Path of the folder in which the daemon keeps what must survive it; it need not be there yet.
    virtual std::string stateFolder() = 0;
    /// Path of the folder in which the updater tells what became of an update. Only root writes there.
    virtual std::string updaterFolder() = 0;
    virtual UpdaterStarter &updaterStarter() = 0;
    virtual PackageTool &packages() = 0;

    /// What the menu application remembers for the user who runs this process.
    virtual UserDefaults &userDefaults() = 0;
    /// Path of a folder of the user who runs this process, for what can be had again; it need not be there
    /// yet.
    virtual std::string cacheFolder() = 0;
    /// Of the running system: on macOS its own, on Linux the kernel's release (uname(2)).
    virtual SystemVersion systemVersion() = 0;
    /// The machine's; absent when it has none or does not show it to this process.
    virtual std::optional<std::string> serialNumber() = 0;
    /// Build number of the application installed at `appPath`; absent when there is none, or it does not say
    /// a whole number.
    virtual std::optional<std::int64_t> installedBuild(const std::string &appPath) = 0;

    /// Whether the system starts the daemon by itself, and the menu application at login.
    virtual DaemonRegistration &daemonRegistration() = 0;
    virtual LoginItem &loginItem() = 0;

    /// Tells, before the first reading, which services an earlier run of this program disabled. A system
    /// that keeps such a state itself need not be told.
    virtual void rememberDisabled(const std::vector<std::string> &serviceIDs) = 0;

    /// Opens a session under the client's name; null when the system refuses one.
    virtual std::unique_ptr<DynamicStore> openDynamicStore(const std::string &clientName) = 0;
    /// The same for changes. May be opened and used on any one thread.
    virtual std::unique_ptr<DynamicStore> openDynamicStoreEditor(const std::string &clientName) = 0;
    virtual std::unique_ptr<NetworkPreferences> openNetworkPreferences(const std::string &clientName) = 0;
    /// The same for changes. May be opened and used on any one thread.
    virtual std::unique_ptr<NetworkPreferencesEditor>
    openNetworkPreferencesEditor(const std::string &clientName) = 0;
    virtual std::unique_ptr<DynamicStoreWatch> watchDynamicStore(const std::string &clientName,
                                                                 DynamicStoreWatch::Callback callback) = 0;

    /// What could be asked in the last reading of a store or of preferences. Any thread.
    virtual SystemVisibility visibility() const = 0;
};

/// Each operating system has one implementation; the build picks it.
std::unique_ptr<Platform> makePlatform();

} // namespace tarn
