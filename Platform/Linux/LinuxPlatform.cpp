#include "Platform/Linux/AutostartItem.h"
#include "Platform/Linux/BusConnector.h"
#include "Platform/Linux/BusListener.h"
#include "Platform/Linux/DebianPackages.h"
#include "Platform/Linux/DisabledServices.h"
#include "Platform/Linux/EventLoop.h"
#include "Platform/Linux/JournalLog.h"
#include "Platform/Linux/LinuxClock.h"
#include "Platform/Linux/LinuxHostEvents.h"
#include "Platform/Linux/LinuxHostSurvey.h"
#include "Platform/Linux/LinuxKernelTables.h"
#include "Platform/Linux/LinuxLog.h"
#include "Platform/Linux/LinuxNetwork.h"
#include "Platform/Linux/LinuxPreferencesEditor.h"
#include "Platform/Linux/LinuxProcessLauncher.h"
#include "Platform/Linux/LinuxRandom.h"
#include "Platform/Linux/LinuxStoreWatch.h"
#include "Platform/Linux/LinuxWiFi.h"
#include "Platform/Linux/PolkitAuthorizations.h"
#include "Platform/Linux/ResourceStrings.h"
#include "Platform/Linux/SystemdRegistration.h"
#include "Platform/Linux/SystemdSupervisor.h"
#include "Platform/Linux/TerminalAgent.h"
#include "Platform/Linux/UdpNetwork.h"
#include "Platform/Platform.h"
#include "TarnCore/Text.h"
#include "TarnSystem/Files.h"
#include "TarnSystem/JsonPreferences.h"
#include "TarnSystem/JsonUserDefaults.h"

#include <cstdlib>
#include <sstream>
#include <sys/utsname.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarn {
namespace {

std::string environment(const char *name) {
    const char *value = std::getenv(name);
    return value ? value : "";
}

std::string ownFolder() {
    // systemd lists several folders with colons between them; the first is ours.
    const auto state = environment("STATE_DIRECTORY");
    return state.empty() ? "/var/lib/tarnlink" : state.substr(0, state.find(':'));
}

/// A file below the user's configuration; empty for a process without a home.
std::string configurationFile(const std::string &name) {
    const auto configuration = environment("XDG_CONFIG_HOME");
    const auto home = environment("HOME");
    // A relative path in the variable is to be ignored (freedesktop.org, basedir).
    if (configuration.starts_with('/'))
        return configuration + "/" + name;
    return home.empty() ? "" : home + "/.config/" + name;
}

/// A file of the user's settings.
std::string userFile(const std::string &name) {
    return configurationFile("tarnlink/" + name);
}

/// The application's name for the desktop, in one autostart folder of each.
constexpr const char *autostartFile = "autostart/com.veltrion.tarnlink.menu.desktop";

std::vector<std::string> systemAutostartFiles() {
    const auto folders = environment("XDG_CONFIG_DIRS");
    std::istringstream list(folders.empty() ? "/etc/xdg" : folders);
    std::vector<std::string> files;
    for (std::string folder; std::getline(list, folder, ':');)
        if (folder.starts_with('/'))
            files.push_back(folder + "/" + autostartFile);
    return files;
}

/// Where the user's programs keep what can be had again; below the system's temporary files for a process
/// without a home.
std::string userCache() {
    const auto cache = environment("XDG_CACHE_HOME");
    const auto home = environment("HOME");
    if (cache.starts_with('/'))
        return cache + "/tarnlink";
    return home.empty() ? "/tmp/tarnlink-" + std::to_string(geteuid()) : home + "/.cache/tarnlink";
}

/// Managed over user over machine. A process without a home has no user's layer.
std::vector<std::string> preferenceLayers() {
    std::vector<std::string> layers = {"/etc/tarnlink/managed.json"};
    if (const auto own = userFile("preferences.json"); !own.empty())
        layers.push_back(own);
    layers.push_back(ownFolder() + "/preferences.json");
    return layers;
}

/// A unit of systemd looks out for the request (systemd.path(5)).
class PathUnit final : public UpdaterStarter {
public:
    std::optional<std::string> start(const std::string &) override { return std::nullopt; }
};

/// A line of a small file, counted from 0, without its end; empty when there is none.
std::string lineOf(const std::string &path, std::size_t number) {
    std::istringstream lines(files::read(path, 4096).contents.value_or(""));
    std::string line;
    for (std::size_t i = 0; i <= number; ++i)
        if (!std::getline(lines, line))
            return {};
    return line;
}

class LinuxPlatform final : public Platform {
public:
    MainActor &mainActor() override { return loop_; }
    Log &log() override { return log_; }
    RecentLog &recentLog() override { return recentLog_; }
    SecureRandom &random() override { return random_; }
    Preferences &preferences() override { return preferences_; }
    std::unique_ptr<Preferences> openPreferences() override {
        return std::make_unique<JsonPreferences>(preferenceLayers(), log_);
    }
    WiFiClient &wifi() override { return wifi_; }
    std::optional<std::string> wifiPowerTool() override { return std::nullopt; }
    KernelTables &kernelTables() override { return kernelTables_; }
    ProcessLauncher &processes() override { return processes_; }
    InterfaceLookup &interfaceLookup() override { return lookup_; }
    DatagramNetwork &datagrams() override { return datagrams_; }
    const LocalizedStrings &strings() override { return strings_; }
    SystemClock &clock() override { return clock_; }
    HostEvents &hostEvents() override { return hostEvents_; }
    HostSurvey &hostSurvey() override { return hostSurvey_; }
    Supervisor &supervisor() override { return supervisor_; }
    AuthorizationServices &authorizations() override { return authorizations_; }
    std::unique_ptr<AuthenticationAgent> openTerminalAgent() override { return TerminalAgent::open(); }
    RemoteConnector &connector() override { return connector_; }
    std::unique_ptr<RemoteListener> makeListener() override {
        return std::make_unique<BusListener>(loop_, log_);
    }
    std::string stateFolder() override { return ownFolder(); }
    std::string updaterFolder() override { return "/var/lib/tarnlink-updater"; }
    UpdaterStarter &updaterStarter() override { return updaterStarter_; }
    PackageTool &packages() override { return packages_; }

    UserDefaults &userDefaults() override { return userDefaults_; }
    std::string cacheFolder() override { return userCache(); }
    SystemVersion systemVersion() override {
        utsname system{};
        if (uname(&system) != 0)
            return {};
        // Such as "6.5.6-300.fc39": what follows the numbers is the distribution's.
        const std::string_view release = system.release;
        return SystemVersion::parse(release.substr(0, release.find_first_not_of("0123456789.")));
    }
    std::optional<std::string> serialNumber() override {
        auto number = lineOf("/sys/class/dmi/id/product_serial", 0);
        return number.empty() ? std::nullopt : std::optional(std::move(number));
    }
    std::optional<std::int64_t> installedBuild(const std::string &appPath) override {
        return text::parseInteger(lineOf(appPath + "/VERSION", 1));
    }
    DaemonRegistration &daemonRegistration() override { return daemonRegistration_; }
    LoginItem &loginItem() override { return loginItem_; }
    void rememberDisabled(const std::vector<std::string> &serviceIDs) override {
        for (const auto &serviceID : serviceIDs)
            if (auto device = deviceForServiceID(serviceID))
                disabled_.insert(*device);
    }
    std::unique_ptr<DynamicStore> openDynamicStore(const std::string &) override {
        return network_.openStore();
    }
    std::unique_ptr<DynamicStore> openDynamicStoreEditor(const std::string &) override {
        return network_.openOwnStore();
    }
    std::unique_ptr<NetworkPreferences> openNetworkPreferences(const std::string &) override {
        return network_.openPreferences();
    }
    std::unique_ptr<NetworkPreferencesEditor> openNetworkPreferencesEditor(const std::string &) override {
        return std::make_unique<LinuxPreferencesEditor>(disabled_);
    }
    std::unique_ptr<DynamicStoreWatch> watchDynamicStore(const std::string &,
                                                         DynamicStoreWatch::Callback callback) override {
        try {
            return std::make_unique<LinuxStoreWatch>(loop_, network_.news(), std::move(callback));
        } catch (const std::system_error &) {
            return nullptr;
        }
    }
    SystemVisibility visibility() const override { return network_.visibility(); }

private:
    EventLoop loop_;
    LinuxLog log_;
    LinuxRandom random_;
    JsonPreferences preferences_{preferenceLayers(), log_};
    JsonUserDefaults userDefaults_{userFile("menu.json"), log_};
    DisabledServices disabled_;
    LinuxNetwork network_{disabled_};
    LinuxWiFi wifi_{network_};
    LinuxKernelTables kernelTables_;
    LinuxProcessLauncher processes_;
    JournalLog recentLog_{processes_};
    PathUnit updaterStarter_;
    DebianPackages packages_{processes_};
    LinuxInterfaceLookup lookup_;
    UdpNetwork datagrams_{loop_};
    ResourceStrings strings_;
    LinuxClock clock_;
    LinuxHostEvents hostEvents_{loop_, preferenceLayers()};
    LinuxHostSurvey hostSurvey_;
    SystemdSupervisor supervisor_;
    PolkitAuthorizations authorizations_;
    BusConnector connector_{loop_};
    SystemdRegistration daemonRegistration_;
    AutostartItem loginItem_{configurationFile(autostartFile), systemAutostartFiles()};
};

} // namespace

std::unique_ptr<Platform> makePlatform() {
    return std::make_unique<LinuxPlatform>();
}

} // namespace tarn
