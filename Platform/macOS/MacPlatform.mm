#include "Platform/Platform.h"

#include "Platform/macOS/BundleStrings.h"
#include "Platform/macOS/CFPreferences.h"
#include "Platform/macOS/CoreWLANClient.h"
#include "Platform/macOS/DispatchMainActor.h"
#include "Platform/macOS/LaunchdSupervisor.h"
#include "Platform/macOS/MacAuthorizations.h"
#include "Platform/macOS/MacDatagramNetwork.h"
#include "Platform/macOS/MacDynamicStore.h"
#include "Platform/macOS/MacDynamicStoreWatch.h"
#include "Platform/macOS/MacHostEvents.h"
#include "Platform/macOS/MacHostSurvey.h"
#include "Platform/macOS/MacInterfaceLookup.h"
#include "Platform/macOS/MacKernelTables.h"
#include "Platform/macOS/MacMachine.h"
#include "Platform/macOS/MacNetworkPreferences.h"
#include "Platform/macOS/MacPackages.h"
#include "Platform/macOS/MacProcessLauncher.h"
#include "Platform/macOS/MacSecureRandom.h"
#include "Platform/macOS/MacStartup.h"
#include "Platform/macOS/MacSystemClock.h"
#include "Platform/macOS/MacUpdaterStarter.h"
#include "Platform/macOS/MacUserDefaults.h"
#include "Platform/macOS/UnifiedLog.h"
#include "Platform/macOS/UnifiedLogReader.h"
#include "Platform/macOS/XPCConnector.h"
#include "Platform/macOS/XPCListener.h"
#include "TarnCore/ApplicationID.h"
#include "TarnXPC/TarnXPC.h"

#import <Foundation/Foundation.h>

#include <utility>

namespace tarn {
namespace {

/// Where the system keeps our preferences: managed, the user's, the machine's.
std::vector<std::string> preferenceFiles() {
    const auto name = "/" + std::string(AppInfo::identifier) + ".plist";
    const std::string home = NSHomeDirectory().UTF8String;
    return {"/Library/Managed Preferences" + name, home + "/Library/Preferences" + name,
            "/Library/Preferences" + name};
}

class MacPlatform final : public Platform {
public:
    MainActor &mainActor() override { return mainActor_; }
    Log &log() override { return log_; }
    RecentLog &recentLog() override { return recentLog_; }
    SecureRandom &random() override { return random_; }
    Preferences &preferences() override { return preferences_; }
    std::unique_ptr<Preferences> openPreferences() override { return std::make_unique<CFPreferences>(); }
    WiFiClient &wifi() override { return wifi_; }
    std::optional<std::string> wifiPowerTool() override { return "/usr/sbin/networksetup"; }
    KernelTables &kernelTables() override { return kernelTables_; }
    ProcessLauncher &processes() override { return processes_; }
    InterfaceLookup &interfaceLookup() override { return interfaceLookup_; }
    DatagramNetwork &datagrams() override { return datagrams_; }
    const LocalizedStrings &strings() override { return strings_; }
    SystemClock &clock() override { return clock_; }
    HostEvents &hostEvents() override { return hostEvents_; }
    HostSurvey &hostSurvey() override { return hostSurvey_; }
    Supervisor &supervisor() override { return supervisor_; }
    std::unique_ptr<AuthenticationAgent> openTerminalAgent() override { return nullptr; }
    AuthorizationServices &authorizations() override { return authorizations_; }
    RemoteConnector &connector() override { return connector_; }
    std::unique_ptr<RemoteListener> makeListener() override {
        return std::make_unique<XPCListener>(mainActor_, log_);
    }
    std::string stateFolder() override { return "/Library/Application Support/Tarnlink"; }
    std::string updaterFolder() override { return "/Library/Application Support/Tarnlink Updater"; }
    UpdaterStarter &updaterStarter() override { return updaterStarter_; }
    PackageTool &packages() override { return packages_; }

    UserDefaults &userDefaults() override {
        if (!userDefaults_)
            userDefaults_ = std::make_unique<MacUserDefaults>(log_);
        return *userDefaults_;
    }
    std::string cacheFolder() override {
        return std::string(NSHomeDirectory().UTF8String) + "/Library/Caches/" + TarnXPC::clientIdentifier;
    }
    SystemVersion systemVersion() override { return macSystemVersion(); }
    std::optional<std::string> serialNumber() override { return macSerialNumber(); }
    std::optional<std::int64_t> installedBuild(const std::string &appPath) override {
        return macInstalledBuild(appPath);
    }

    DaemonRegistration &daemonRegistration() override { return daemonRegistration_; }
    LoginItem &loginItem() override { return loginItem_; }
    void rememberDisabled(const std::vector<std::string> &) override {}
    std::unique_ptr<DynamicStore> openDynamicStore(const std::string &clientName) override {
        return openMacDynamicStore(clientName);
    }
    std::unique_ptr<DynamicStore> openDynamicStoreEditor(const std::string &clientName) override {
        return openMacDynamicStore(clientName);
    }
    std::unique_ptr<NetworkPreferences> openNetworkPreferences(const std::string &clientName) override {
        return openMacNetworkPreferences(clientName);
    }
    std::unique_ptr<NetworkPreferencesEditor>
    openNetworkPreferencesEditor(const std::string &clientName) override {
        return openMacNetworkPreferencesEditor(clientName);
    }
    std::unique_ptr<DynamicStoreWatch> watchDynamicStore(const std::string &clientName,
                                                         DynamicStoreWatch::Callback callback) override {
        return openMacDynamicStoreWatch(clientName, std::move(callback));
    }

    SystemVisibility visibility() const override { return {}; }

private:
    UnifiedLog log_;
    UnifiedLogReader recentLog_;
    MacSecureRandom random_;
    CFPreferences preferences_;
    /// Since they were asked for: the daemon has no user.
    std::unique_ptr<MacUserDefaults> userDefaults_;
    CoreWLANClient wifi_;
    MacKernelTables kernelTables_;
    MacProcessLauncher processes_;
    MacUpdaterStarter updaterStarter_;
    MacPackages packages_{processes_};
    MacInterfaceLookup interfaceLookup_;
    MacDatagramNetwork datagrams_;
    BundleStrings strings_;
    MacSystemClock clock_;
    MacHostEvents hostEvents_{preferenceFiles()};
    MacHostSurvey hostSurvey_{processes_};
    LaunchdSupervisor supervisor_;
    MacAuthorizations authorizations_;
    XPCConnector connector_;
    MacDaemonRegistration daemonRegistration_;
    MacLoginItem loginItem_;
    // The last, and so the first to go: jobs that still wait may hold what uses the other parts.
    DispatchMainActor mainActor_;
};

} // namespace

std::unique_ptr<Platform> makePlatform() {
    return std::make_unique<MacPlatform>();
}

} // namespace tarn
