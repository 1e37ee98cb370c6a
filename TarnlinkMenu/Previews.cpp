#include "TarnlinkMenu/Previews.h"

#include "TarnXPC/TarnXPCCoding.h"
#include "TarnlinkMenu/AdminPanelModel.h"
#include "TarnlinkMenu/ModifierWatcher.h"
#include "TarnlinkMenu/Scenes.h"
#include "TarnlinkMenu/StartupModel.h"
#include "TarnlinkMenu/StatusModel.h"

#include <algorithm>
#include <any>
#include <array>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <unistd.h>
#include <utility>

namespace tarn::previews {
namespace {

using namespace std::chrono_literals;

/// 14 January 2026, 13:20 UTC.
constexpr std::chrono::nanoseconds sampleTime = 1'768'396'800s;
constexpr Date now{sampleTime};

/// An offer signed with a key that exists nowhere any more.
constexpr const char *offerKey = "3FBM1hpMXsDBpgadw9tbochaJenqWjwDKgiDy/NVsqU=";
constexpr const char *offerSignature =
    "XugQ53OzbY87MjljaXaZzEg40NaNCaUl9f7PV7r/UZFR0v4kHLdwkfCLgpALuJOaOszKshA5YjtADUZcr3zDCA==";
constexpr const char *offer =
    R"({"version":"0.2.0","build":1000000,"minOS":"0","url":"https://linux.download.veltrion.example/package","sha256":"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855","size":1000,"published":"2026-01-12T08:00:00Z","notes":"https://support.veltrion.example/notes/"})";
constexpr std::size_t offerSize = 1000;

/// Time stands still: what waits for it never comes.
class SampleActor final : public MainActor {
public:
    bool isCurrent() const override { return true; }
    TimePoint now() const override { return {}; }
    void post(Job job) override { jobs_.push_back(std::move(job)); }
    TimerID postAfter(Duration, Job job) override {
        timers_[++lastTimer_] = std::move(job);
        return lastTimer_;
    }
    void cancel(TimerID timer) override { const auto dropped = timers_.extract(timer); }
    void run() override {
        while (!jobs_.empty()) {
            const auto job = std::move(jobs_.front());
            jobs_.pop_front();
            job();
        }
    }
    void stop() override { std::exchange(jobs_, {}).clear(); }
    /// All that waits comes after all.
    void finish() {
        for (run(); !timers_.empty(); run()) {
            const auto due = timers_.extract(timers_.begin());
            due.mapped()();
        }
    }

private:
    std::deque<Job> jobs_;
    std::map<TimerID, Job> timers_;
    TimerID lastTimer_ = 0;
};

struct SampleDefaults final : UserDefaults {
    std::map<std::string, std::any> values;

    template <class Kind> std::optional<Kind> get(const std::string &key) const {
        const auto found = values.find(key);
        const auto *value = found == values.end() ? nullptr : std::any_cast<Kind>(&found->second);
        return value ? std::optional(*value) : std::nullopt;
    }
    std::optional<bool> boolean(const std::string &key) override { return get<bool>(key); }
    std::optional<std::int64_t> integer(const std::string &key) override { return get<std::int64_t>(key); }
    std::optional<std::string> string(const std::string &key) override { return get<std::string>(key); }
    std::optional<Date> date(const std::string &key) override { return get<Date>(key); }
    std::optional<std::string> data(const std::string &key) override { return get<std::string>(key); }
    void setBoolean(const std::string &key, bool value) override { values[key] = value; }
    void setInteger(const std::string &key, std::int64_t value) override { values[key] = value; }
    void setString(const std::string &key, const std::string &value) override { values[key] = value; }
    void setDate(const std::string &key, Date value) override { values[key] = value; }
    void setData(const std::string &key, const std::string &value) override { values[key] = value; }
    void remove(const std::string &key) override { values.erase(key); }
};

struct SampleRegistration final : DaemonRegistration {
    RegistrationState is = RegistrationState::enabled;
    bool isOurs = true;
    std::string command;

    std::optional<RegistrationState> state() override { return is; }
    bool canRegister() const override { return isOurs; }
    std::optional<std::string> registerDaemon() override { return std::nullopt; }
    std::optional<std::string> unregisterDaemon() override { return std::nullopt; }
    std::optional<std::string> administratorCommand(RegistrationState) const override {
        return command.empty() ? std::nullopt : std::optional(command);
    }
    void openSystemSettings() override {}
};

struct SampleLoginItem final : LoginItem {
    RegistrationState is = RegistrationState::enabled;

    std::optional<RegistrationState> state() override { return is; }
    std::optional<std::string> set(bool) override { return std::nullopt; }
};

/// A download that stops in its midst.
struct SampleSession final : HTTPSession {
    explicit SampleSession(std::function<void()> &end) : end_(end) {}
    void get(const URL &, std::function<bool(std::string_view)> received,
             std::function<void(Result)> ended) override {
        end_ = [ended = std::move(ended)] { ended(HTTPError{}); };
        received(std::string(offerSize * 42 / 100, '\0'));
    }

private:
    std::function<void()> &end_;
};

/// A computer as a scenario wants it: daemon, network, permissions and keys.
struct Sample final : RemoteConnector,
                      RemoteConnection,
                      SystemClock,
                      Log,
                      KernelTables,
                      SystemStateReading,
                      NetworkEventSource,
                      WiFiControlling,
                      Probing,
                      WiFiDetailsReading,
                      RecentLog,
                      WorkQueue,
                      Preferences,
                      HTTPClient,
                      Desktop,
                      LocationManager,
                      ModifierEvents,
                      Authorizing {
    StatusReport report{.status = {}, .generatedAt = previews::now - 4s};
    bool isDaemonThere = true;
    bool isOptionDown = false;
    bool isPauseRefused = false;
    bool isManaged = false;
    std::vector<InterfaceSnapshot> local;
    std::optional<WiFiDetails> details;
    LocationStatus permission = LocationStatus::authorized;
    SampleDefaults defaults;
    SampleRegistration registration;
    SampleLoginItem loginItem;
    SampleActor actor;

    std::shared_ptr<RemoteConnection> connect(const std::string &, const std::string &) override {
        return {std::shared_ptr<void>(), static_cast<RemoteConnection *>(this)};
    }
    void setInvalidationHandler(RemoteConnection::Handler) override {}
    void setInterruptionHandler(RemoteConnection::Handler) override {}
    void resume() override {}
    void invalidate() override {}
    bool invoke(const TarnXPCProtocol::Call &call, Reply reply, ErrorHandler failed) override {
        const auto encoder = TarnXPCCoding::encoder();
        if (!isDaemonThere)
            failed({"org.freedesktop.DBus.Error.ServiceUnknown", 0, "The daemon is not running"});
        else if (std::holds_alternative<TarnXPCProtocol::Status>(call))
            reply(encoder.encode(report));
        else if (isPauseRefused)
            reply(encoder.encode(PauseResult{.code = "denied.admin"}));
        return true;
    }
    Moment now() override { return {0s, sampleTime}; }
    std::string bootID() override { return {}; }
    void write(Level, std::string_view, std::string_view) override {}
    std::vector<InterfaceAddress> interfaceAddresses() override { return {}; }
    std::optional<ByteCounts> byteCounts(const std::string &) override { return std::nullopt; }
    std::vector<Process> processes() override { return {}; }
    std::int32_t sendSignal(std::int32_t, std::int32_t) override { return 0; }
    std::vector<InterfaceSnapshot> readInterfaces() override { return local; }
    std::optional<bool> wifiPowerOn() override { return true; }
    void start(double, NetworkEventSource::Handler) override {}
    void stop() override {}
    void setPower(bool) override {}
    std::optional<bool> powerOn() override { return true; }
    Task<ProbeOutcome> probe(std::string, std::string, std::optional<std::string>, double) override {
        co_return isOptionDown ? ProbeOutcome::reachable(0.012) : ProbeOutcome::timeout();
    }
    Task<DNSVerdict> ask(std::string, std::string, std::string, std::optional<std::string>, double) override {
        co_return DNSVerdict();
    }
    std::optional<WiFiDetails> current() override { return details; }
    std::string read(const std::string &) override { return {}; }
    void run(Job work, Job done) override {
        actor.post([work = std::move(work), done = std::move(done)] {
            work();
            done();
        });
    }
    void refresh(const std::string &) override {}
    std::optional<Value> copyAppValue(const std::string &, const std::string &) override { return {}; }
    bool isForced(const std::string &, const std::string &) override { return isManaged; }
    void setMachineValue(const std::string &, const Value &, const std::string &) override {}
    bool synchronizeMachine(const std::string &) override { return false; }
    std::unique_ptr<HTTPSession> ephemeral(double) override {
        return std::make_unique<SampleSession>(endDownload);
    }
    LocationManager &location() override { return *this; }
    ModifierEvents &modifiers() override { return *this; }
    void activate() override {}
    void copy(const std::string &) override {}
    void open(const std::string &) override {}
    void quit() override {}
    LocationStatus authorizationStatus() override { return permission; }
    void setHandler(std::function<void()>) override {}
    void requestWhenInUseAuthorization() override {}
    Token monitorFlags(std::function<void(bool)> changed) override {
        changed(isOptionDown);
        return nullptr;
    }
    Token observeWindowBecameKey(std::function<void()>) override { return nullptr; }
    Token observeWindowResignedKey(std::function<void()>) override { return nullptr; }
    bool isOptionHeld() override { return isOptionDown; }
    std::string rightName() const override { return {}; }
    void ensureRightExists() override {}
    bool verify(const std::string &) override { return true; }
    std::string acquireInteractively() override { return std::string(32, '\0'); }

    std::function<void()> endDownload;
};

const InterfaceSummary wiredInterface{"en7", "USB 10/100/1000 LAN", InterfaceKind::wired, true,
                                      "10.48.11.168"};
const InterfaceSummary idleInterface{"en3", "Ethernet Adapter (en3)", InterfaceKind::wired, false, {}};
const InterfaceSummary wifiInterface{"en0", "Wi-Fi", InterfaceKind::wifi, true, "192.168.178.31"};
const InterfaceSummary wifiWithoutPower{"en0", "Wi-Fi", InterfaceKind::wifi, false, {}};

void onWire(Sample &sample, Status::Kind kind, std::string reason) {
    const bool isVerified = kind == Status::Kind::wired;
    sample.report.status = {kind, wiredInterface.device, wiredInterface.serviceName};
    sample.report.reason = std::move(reason);
    sample.report.wifiOn = !isVerified;
    sample.report.interfaces = {wiredInterface, idleInterface, isVerified ? wifiWithoutPower : wifiInterface};
}

void onWiFi(Sample &sample, Status::Kind kind = Status::Kind::wifi) {
    sample.report.status = {kind, {}, {}};
    sample.report.reason = "no wired link";
    sample.report.interfaces = {idleInterface, wifiInterface};
    sample.details = {"Kontor 7", WiFiDetails::Band::ghz5, 44, -52};
}

void alone(Sample &sample, Status::Kind kind, std::string reason) {
    sample.report.status = {kind, {}, {}};
    sample.report.reason = std::move(reason);
    sample.report.wifiOn = kind != Status::Kind::wifiOff;
    sample.report.interfaces = {idleInterface, wifiWithoutPower};
}

void wired(Sample &sample) {
    onWire(sample, Status::Kind::wired, "en7 verified: link, IPv4 10.48.11.168, gateway, probe ok");
}

void paused(Sample &sample) {
    onWiFi(sample, Status::Kind::paused);
    sample.report.reason = "paused by an administrator";
    sample.report.interfaces.insert(sample.report.interfaces.begin(), wiredInterface);
    sample.report.pausedUntil = now + 45min;
}

void withoutDaemon(Sample &sample) {
    sample.isDaemonThere = false;
    InterfaceSnapshot adapter;
    adapter.device = wiredInterface.device;
    adapter.kind = InterfaceKind::wired;
    adapter.serviceID = "a";
    adapter.serviceName = wiredInterface.serviceName;
    adapter.linkActive = true;
    adapter.ipv4 = {*wiredInterface.address};
    adapter.ipv4Router = "10.48.11.1";
    adapter.dnsServers = {"10.48.11.1"};
    InterfaceSnapshot wifi = adapter;
    wifi.device = "en0";
    wifi.kind = InterfaceKind::wifi;
    wifi.serviceID = "b";
    wifi.serviceName = "Wi-Fi";
    wifi.ipv4 = {*wifiInterface.address};
    sample.local = {adapter, wifi};
}

void unregistered(Sample &sample, RegistrationState state) {
    withoutDaemon(sample);
    sample.registration.is = state;
}

void offered(Sample &sample) {
    wired(sample);
    sample.defaults.setData("UpdateAvailableManifest", offer);
    sample.defaults.setData("UpdateAvailableSignature", offerSignature);
}

struct Models {
    StatusModel &status;
    AdminPanelModel &admin;
};

struct Scenario {
    const char *name;
    const char *window;
    std::function<void(Sample &)> arrange;
    /// What a person does then.
    std::function<void(Models)> act = {};
};

const std::vector<Scenario> &scenarios() {
    using Kind = Status::Kind;
    static const std::vector<Scenario> all = {
        {"wired", "menu", wired},
        {"wired-vpn", "menu",
         [](Sample &sample) {
             wired(sample);
             sample.report.vpnDevice = "utun4";
             sample.report.vpnAddress = "10.8.0.6";
         }},
        {"wired-pending", "menu",
         [](Sample &sample) { onWire(sample, Kind::wiredPending, "en7 has link and address, probing"); }},
        {"wired-unreachable", "menu",
         [](Sample &sample) { onWire(sample, Kind::wiredUnreachable, "en7 failed 3 probes"); }},
        {"wifi", "menu", [](Sample &sample) { onWiFi(sample); }},
        {"wifi-location-denied", "menu",
         [](Sample &sample) {
             onWiFi(sample);
             sample.permission = LocationStatus::denied;
             sample.details->ssid.reset();
         }},
        {"wifi-location-asked", "menu",
         [](Sample &sample) {
             onWiFi(sample);
             sample.permission = LocationStatus::notDetermined;
             sample.details->ssid.reset();
         }},
        {"wifi-off", "menu",
         [](Sample &sample) { alone(sample, Kind::wifiOff, "Wi-Fi switched off by the user"); }},
        {"offline", "menu",
         [](Sample &sample) { alone(sample, Kind::offline, "no wired link, no Wi-Fi connection"); }},
        {"paused", "menu", paused},
        {"disabled", "menu", [](Sample &sample) { onWiFi(sample, Kind::disabled); }},
        {"local", "menu", withoutDaemon},
        {"option-key", "menu",
         [](Sample &sample) {
             withoutDaemon(sample);
             sample.isOptionDown = true;
         },
         [](Models models) { models.status.refresh(); }},
        {"update-available", "menu", offered},
        {"update-downloading", "menu", offered,
         [](Models models) { models.status.updates().downloadAndInstall(); }},
        {"update-installed", "menu",
         [](Sample &sample) {
             wired(sample);
             sample.defaults.setInteger("UpdatePendingBuild", 1);
             sample.defaults.setString("UpdatePendingVersion", "0.2.0");
         }},
        {"update-failed", "menu",
         [](Sample &sample) {
             wired(sample);
             sample.defaults.setInteger("UpdatePendingBuild", 1'000'000);
         }},
        {"admin", "admin", wired, [](Models models) { models.admin.setSelectedMinutes(60); }},
        {"admin-refused", "admin",
         [](Sample &sample) {
             wired(sample);
             sample.isPauseRefused = true;
         },
         [](Models models) { models.admin.pauseAsAdmin(); }},
        {"admin-paused", "admin", paused, [](Models models) { models.admin.refreshStatus(); }},
        {"settings", "settings", wired},
        {"settings-local", "settings", withoutDaemon},
        {"settings-managed", "settings",
         [](Sample &sample) {
             wired(sample);
             sample.isManaged = true;
         }},
        {"settings-update", "settings", offered},
        {"settings-unregistered", "settings",
         [](Sample &sample) { unregistered(sample, RegistrationState::notRegistered); }},
        {"settings-not-found", "settings",
         [](Sample &sample) { unregistered(sample, RegistrationState::notFound); }},
        {"settings-uninstalled", "settings",
         [](Sample &sample) {
             unregistered(sample, RegistrationState::notFound);
             sample.registration.isOurs = false;
         }},
        {"settings-approval", "settings",
         [](Sample &sample) {
             unregistered(sample, RegistrationState::requiresApproval);
             sample.loginItem.is = RegistrationState::requiresApproval;
         }},
        {"settings-command", "settings",
         [](Sample &sample) {
             unregistered(sample, RegistrationState::notRegistered);
             sample.registration.command =
                 *commandForUnit(RegistrationState::notRegistered, "tarnlink.service");
             sample.loginItem.is = RegistrationState::notRegistered;
         }},
        {"help", "help", wired},
    };
    return all;
}

WindowContent make(const Scenario &scenario, const LocalizedStrings &strings) {
    Sample sample;
    sample.defaults.setDate("UpdateLastCheck", now - 2h);
    scenario.arrange(sample);
    TarnXPCClient client(sample, sample.actor);
    UpdateFeed feed(sample, sample.actor, offerKey);
    LocationAuthorizer location(sample, sample.defaults, sample.actor);
    const auto makeUpdates = [&] {
        const auto folder = std::filesystem::temp_directory_path() / ("tarnlink-" + std::to_string(getpid()));
        return std::make_unique<UpdateChecker>(
            UpdateChecker::Services{client, feed, sample.defaults, sample.actor, sample, sample, sample},
            UpdateChecker::Setup{.downloadFolder = folder.string(), .system = {}, .installedBuild = 1});
    };
    std::optional<WindowContent> content;
    {
        StatusModel status({client, sample.actor, sample, sample, sample, sample, sample, sample, sample,
                            sample, location, sample, sample, sample, makeUpdates});
        AdminPanelModel admin({client, sample, sample, sample.actor, strings});
        ModifierWatcher modifiers(sample);
        StartupModel startup({sample.registration, sample.loginItem, sample, sample});
        Scenes scenes({status, admin, modifiers, sample, sample.actor, strings, [] { return now; },
                       [](const std::string &) {}, &startup});
        modifiers.start();
        startup.watch();
        status.start();
        sample.actor.run();
        if (scenario.act) {
            scenario.act({status, admin});
            sample.actor.run();
        }
        content = scenes.window(scenario.window);
    }
    // Tasks under way see that their models are gone.
    if (sample.endDownload)
        sample.endDownload();
    sample.actor.finish();
    return *std::move(content);
}

} // namespace

std::vector<std::string> names() {
    std::vector<std::string> found;
    for (const auto &scenario : scenarios())
        found.emplace_back(scenario.name);
    return found;
}

std::optional<WindowContent> make(const std::string &name, const LocalizedStrings &strings) {
    const auto found = std::ranges::find(scenarios(), name, &Scenario::name);
    return found == scenarios().end() ? std::nullopt : std::optional(make(*found, strings));
}

} // namespace tarn::previews
