#include "Platform/Linux/BusConnector.h"
#include "Platform/Linux/BusListener.h"
#include "Platform/Linux/DisabledServices.h"
#include "Platform/Linux/EventLoop.h"
#include "Platform/Linux/LinuxClock.h"
#include "Platform/Linux/LinuxHostEvents.h"
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
#include "Platform/Linux/SystemdSupervisor.h"
#include "Platform/Linux/TerminalAgent.h"
#include "Platform/Linux/UdpNetwork.h"
#include "Platform/Platform.h"
#include "TarnSystem/JsonPreferences.h"

#include <cstdlib>
#include <system_error>
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

/// Managed over user over machine. A process without a home has no user's layer.
std::vector<std::string> preferenceLayers() {
    std::vector<std::string> layers = {"/etc/tarnlink/managed.json"};
    const auto configuration = environment("XDG_CONFIG_HOME");
    const auto home = environment("HOME");
    // A relative path in the variable is to be ignored (freedesktop.org, basedir).
    if (configuration.starts_with('/'))
        layers.push_back(configuration + "/tarnlink/preferences.json");
    else if (!home.empty())
        layers.push_back(home + "/.config/tarnlink/preferences.json");
    layers.push_back(ownFolder() + "/preferences.json");
    return layers;
}

class LinuxPlatform final : public Platform {
public:
    MainActor &mainActor() override { return loop_; }
    Log &log() override { return log_; }
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
    Supervisor &supervisor() override { return supervisor_; }
    AuthorizationServices &authorizations() override { return authorizations_; }
    std::unique_ptr<AuthenticationAgent> openTerminalAgent() override { return TerminalAgent::open(); }
    RemoteConnector &connector() override { return connector_; }
    std::unique_ptr<RemoteListener> makeListener() override {
        return std::make_unique<BusListener>(loop_, log_);
    }
    std::string stateFolder() override { return ownFolder(); }
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
    DisabledServices disabled_;
    LinuxNetwork network_{disabled_};
    LinuxWiFi wifi_{network_};
    LinuxKernelTables kernelTables_;
    LinuxProcessLauncher processes_;
    LinuxInterfaceLookup lookup_;
    UdpNetwork datagrams_{loop_};
    ResourceStrings strings_;
    LinuxClock clock_;
    LinuxHostEvents hostEvents_{loop_, preferenceLayers()};
    SystemdSupervisor supervisor_;
    PolkitAuthorizations authorizations_;
    BusConnector connector_{loop_};
};

} // namespace

std::unique_ptr<Platform> makePlatform() {
    return std::make_unique<LinuxPlatform>();
}

} // namespace tarn
