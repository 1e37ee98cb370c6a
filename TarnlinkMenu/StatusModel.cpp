#include "TarnlinkMenu/StatusModel.h"

#include "TarnCore/AppInfo.h"
#include "TarnCore/ApplicationID.h"
#include "TarnCore/StatusTitle.h"
#include "TarnCore/Text.h"
#include "TarnSystem/ConfigLoader.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace tarn {
namespace {

constexpr double statusTimeout = 1.5;
constexpr double settingTimeout = 3;
constexpr double diagnosticsTimeout = 3;
constexpr double probeTimeout = 2;
constexpr double locationDelay = 4;
constexpr double debounce = 0.3;

constexpr const char *category = "app";
constexpr const char *unreachable = "xpc";
/// A report names no services; any identifier says that there is one.
constexpr const char *reportedService = "xpc";

InterfaceSnapshot snapshotOf(const InterfaceSummary &summary) {
    InterfaceSnapshot snapshot;
    snapshot.device = summary.device;
    snapshot.kind = summary.kind;
    snapshot.serviceID = reportedService;
    snapshot.serviceName = summary.serviceName;
    snapshot.linkActive = summary.linkActive;
    if (summary.address && summary.address->find(':') != std::string::npos)
        snapshot.ipv6.push_back({*summary.address});
    else if (summary.address)
        snapshot.ipv4 = {*summary.address};
    return snapshot;
}

const InterfaceSnapshot *find(const std::vector<InterfaceSnapshot> &snapshots, const std::string &device) {
    const auto found = std::ranges::find(snapshots, device, &InterfaceSnapshot::device);
    return found == snapshots.end() ? nullptr : &*found;
}

std::string join(const std::vector<std::string> &parts, std::string_view separator) {
    std::string text;
    for (const auto &part : parts)
        text.append(text.empty() ? "" : separator).append(part);
    return text;
}

std::string describeInterface(const InterfaceSnapshot &snapshot) {
    std::vector<std::string> words = {snapshot.linkActive ? "link" : "no link"};
    if (const auto addresses = snapshot.routableIPv4(); !addresses.empty())
        words.push_back(join(addresses, ","));
    std::vector<std::string> addresses;
    for (const auto &entry : snapshot.routableIPv6())
        addresses.push_back(entry.address);
    if (!addresses.empty())
        words.push_back(join(addresses, ","));
    return (snapshot.serviceName.empty() ? snapshot.device : snapshot.serviceName) + " [" + join(words, " ") +
           "]";
}

// Every task below has a name: g++ 12 destroys twice what a temporary in a co_await expression holds.

/// The rest of the diagnostics, for which no model is needed any more.
Task<std::string> collect(std::string text, TarnXPCClient &daemon, RecentLog &log, WorkQueue &queue,
                          MainActor &actor) {
    try {
        auto call = daemon.diagnostics(diagnosticsTimeout);
        text += co_await call;
    } catch (const TarnXPCClientError &) {
        // The daemon's part is left out.
    }
    Callback<std::string> reading(actor, [&](Callback<std::string>::Resume resume) {
        const auto lines = std::make_shared<std::string>();
        queue.run(
            [&log, lines] {
                try {
                    *lines = text::withValidUTF8(log.read(AppInfo::identifier));
                    if (lines->empty())
                        *lines = "(no output)";
                } catch (const std::exception &error) {
                    *lines = std::string("log show failed: ") + error.what();
                }
            },
            [lines, resume = std::move(resume)] { resume(*lines); });
    });
    text += co_await reading;
    co_return text;
}

} // namespace

std::vector<InterfaceSnapshot> NullSystemStateReader::readInterfaces() {
    throw InitError();
}

std::optional<bool> NullSystemStateReader::wifiPowerOn() {
    return std::nullopt;
}

std::string_view StatusModel::rawValue(Source source) {
    return source == Source::daemon ? "Daemon" : "lokal (kein Daemon)";
}

StatusModel::StatusModel(const Services &services) : services_(services), lastUpdate_(now()) {
    // With the permission the name of the network can be read.
    locationSubscription_ =
        services_.location.observe([this] { publish(wifiDetails_, services_.wifiDetails.current()); });
}

StatusModel::~StatusModel() {
    services_.events.stop();
}

Date StatusModel::now() const {
    return Date(services_.clock.now().sinceEpoch);
}

UpdateChecker &StatusModel::updates() {
    if (!updates_)
        updates_ = services_.makeUpdates();
    return *updates_;
}

void StatusModel::start() {
    refresh();
    updates().start();
    services_.location.requestOnceAfterLaunch(locationDelay);
    services_.events.start(debounce, [this, isAlive = IsAlive(isAlive_)](const auto &) {
        if (!isAlive.expired())
            refresh();
    });
}

void StatusModel::refresh() {
    if (std::exchange(xpcRefreshInFlight_, true))
        return;
    services_.actor.post([this, isAlive = IsAlive(isAlive_)] {
        if (!isAlive.expired())
            detach(runRefresh(isAlive));
    });
}

Task<void> StatusModel::runRefresh(IsAlive isAlive) {
    std::optional<StatusReport> report;
    std::string failure;
    try {
        auto call = services_.daemon.status(statusTimeout);
        report = co_await call;
    } catch (const TarnXPCClientError &error) {
        failure = error.description();
    }
    if (isAlive.expired())
        co_return;
    readForced();
    if (report) {
        apply(*report);
    } else {
        services_.log.write(Log::Level::error, category, "xpc status failed: " + failure);
        refreshLocally();
        publish(xpcError_, failure);
    }
    xpcRefreshInFlight_ = false;
}

void StatusModel::readForced() {
    services_.preferences.refresh(ConfigLoader::applicationID);
    publish(isTetheringForced_, ConfigLoader::isTetheringWhileWiredForced(services_.preferences));
    publish(isTetheringDNSFixForced_, ConfigLoader::isTetheringDNSFixForced(services_.preferences));
}

void StatusModel::apply(const StatusReport &report) {
    publish(source_, Source::daemon);
    publish(xpcError_, std::nullopt);
    // It can be asked again; what it refused stays refused.
    if (settingError_ == unreachable)
        publish(settingError_, std::nullopt);
    publish(status_, report.status);
    publish(reason_, report.reason);
    publish(wifiOn_, report.wifiOn);
    publish(pausedUntil_, report.pausedUntil);

    std::vector<InterfaceSnapshot> reported;
    for (const auto &summary : report.interfaces)
        reported.push_back(snapshotOf(summary));
    publish(interfaces_, std::move(reported));

    tethering_.settled = report.tetheringWhileWiredAllowed;
    publish(tetheringAllowed_, report.tetheringWhileWiredAllowed);
    publish(vpn_, report.vpnDevice
                      ? std::optional(VPNDetector::Tunnel{*report.vpnDevice, report.vpnAddress.value_or("")})
                      : std::nullopt);
    dnsFix_.settled = report.tetheringDNSFix;
    publish(tetheringDNSFix_, report.tetheringDNSFix);

    updates().setUpdatesAllowed(report.updateCheckAllowed);
    if (const auto url = report.updateFeedURL ? URL::parse(*report.updateFeedURL) : std::nullopt)
        updates().setFeedURL(*url);

    publish(errorText_, std::nullopt);
    publish(lastUpdate_, report.generatedAt);
    publish(wifiDetails_, services_.wifiDetails.current());
}

void StatusModel::refreshLocally() {
    publish(source_, Source::local);
    publish(vpn_, VPNDetector::activeTunnel(services_.kernelTables));
    publish(pausedUntil_, std::nullopt);
    std::vector<InterfaceSnapshot> snapshots;
    try {
        snapshots = services_.reader.readInterfaces();
    } catch (const SystemStateError &error) {
        publish(errorText_, error.description());
        return;
    }
    publish(errorText_, std::nullopt);
    pruneProbes(snapshots);
    // A machine without Wi-Fi has none that is off.
    publish(wifiOn_, services_.wifi.powerOn().value_or(true));

    // The menu's own terms: the daemon's configuration is not to be had without it.
    const auto decision = Policy::decide(snapshots, ProbeStates(probes_.begin(), probes_.end()),
                                         {.enabled = true,
                                          .paused = false,
                                          .wifiPowerOn = wifiOn_,
                                          .wifiManuallyOff = false,
                                          .probeFailuresBeforeFallback = 3,
                                          .disableTetheringWhileWired = true});
    auto listed = snapshots;
    std::erase_if(listed, [](const auto &snapshot) { return !snapshot.serviceID; });
    publish(interfaces_, std::move(listed));
    publish(status_, decision.status);
    publish(reason_, decision.reason);
    publish(lastUpdate_, now());
    publish(wifiDetails_, services_.wifiDetails.current());
    // Whatever else the policy wants is for the daemon to do.
    for (const auto &action : decision.actions)
        if (action.kind == Action::Kind::probe)
            startProbe(action.device, snapshots);
}

void StatusModel::pruneProbes(const std::vector<InterfaceSnapshot> &snapshots) {
    std::erase_if(probes_, [&](const auto &entry) {
        const auto *snapshot = find(snapshots, entry.first);
        return !snapshot || !snapshot->hasRoutableAddress() || !snapshot->hasGateway();
    });
}

void StatusModel::startProbe(const std::string &device, const std::vector<InterfaceSnapshot> &snapshots) {
    if (probesInFlight_.contains(device))
        return;
    const auto *snapshot = find(snapshots, device);
    if (!snapshot)
        return;
    if (snapshot->dnsServers.empty()) {
        probes_[device] = ProbeState::notApplicable();
        return;
    }
    probesInFlight_.insert(device);
    services_.actor.post([this, probed = *snapshot, isAlive = IsAlive(isAlive_)] {
        if (!isAlive.expired())
            detach(runProbe(probed, isAlive));
    });
}

Task<void> StatusModel::runProbe(InterfaceSnapshot snapshot, IsAlive isAlive) {
    std::optional<std::string> source;
    if (const auto *address = snapshot.firstRoutableIPv4())
        source = *address;
    else if (const auto *other = snapshot.firstRoutableIPv6())
        source = other->address;
    auto probe = services_.prober.probe(snapshot.device, snapshot.dnsServers.front(), source, probeTimeout);
    auto &actor = services_.actor;
    const auto earliest = actor.now() + fromSeconds(probeTimeout);
    const auto outcome = co_await probe;
    const bool isReachable = outcome.kind == ProbeOutcome::Kind::reachable;
    if (!isReachable && actor.now() < earliest) {
        Callback<bool> pause(actor, [&](Callback<bool>::Resume resume) {
            actor.postAfter(earliest - actor.now(), [resume = std::move(resume)] { resume(true); });
        });
        co_await pause;
    }
    if (isAlive.expired())
        co_return;
    probesInFlight_.erase(snapshot.device);
    auto &state = probes_[snapshot.device];
    if (isReachable)
        state = ProbeState::ok();
    else
        // Of every other state the count is 0.
        state = ProbeState::failing(state.consecutive + 1);
    refresh();
}

void StatusModel::setTetheringAllowed(bool allowed) {
    set(tethering_, allowed);
}

void StatusModel::setTetheringDNSFix(bool enabled) {
    set(dnsFix_, enabled);
}

void StatusModel::set(Setting &setting, bool value) {
    // One that is changed again before the daemon has answered goes back to what the daemon has, not to
    // what was merely wished for.
    if (setting.underWay++ == 0)
        setting.settled = this->*setting.field;
    const auto attempt = ++setting.attempt;
    publish(settingError_, std::nullopt);
    publish(this->*setting.field, value);
    detach(runSetting(setting, value, attempt, isAlive_));
}

Task<void> StatusModel::runSetting(Setting &setting, bool value, std::uint64_t attempt, IsAlive isAlive) {
    SettingResult result;
    bool isAnswered = false;
    try {
        auto call = (services_.daemon.*setting.send)(value, settingTimeout);
        result = co_await call;
        isAnswered = true;
    } catch (const TarnXPCClientError &) {
        result.code = unreachable;
    }
    if (isAlive.expired())
        co_return;
    --setting.underWay;
    if (result.ok) {
        setting.settled = value;
    } else if (attempt == setting.attempt) {
        publish(this->*setting.field, setting.settled);
        publish(settingError_, result.code);
    }
    if (isAnswered)
        refresh();
}

Task<std::string> StatusModel::diagnostics() {
    std::string text = "TarnlinkMenu " + std::string(AppInfo::version) + " (" +
                       std::to_string(AppInfo::build) + ") — " + describe() + "\n\n";
    if (const auto &events = updates().events(); !events.empty())
        text += join(events, "\n") + "\n\n";
    return collect(std::move(text), services_.daemon, services_.recentLog, services_.queue, services_.actor);
}

std::string StatusModel::describe() const {
    std::vector<std::string> wired;
    for (const auto &snapshot : interfaces_)
        if (snapshot.isWiredCandidate())
            wired.push_back(describeInterface(snapshot));
    return join({statusTitle(status_), wifiOn_ ? "Wi-Fi on" : "Wi-Fi off",
                 wired.empty() ? "no wired service" : join(wired, "; ")},
                " — ");
}

} // namespace tarn
