#pragma once

#include "TarnCore/DateText.h"
#include "TarnCore/InterfaceSnapshot.h"
#include "TarnCore/Policy.h"
#include "TarnCore/Status.h"
#include "TarnSystem/KernelTables.h"
#include "TarnSystem/Log.h"
#include "TarnSystem/NetworkEventSource.h"
#include "TarnSystem/Preferences.h"
#include "TarnSystem/Probing.h"
#include "TarnSystem/RecentLog.h"
#include "TarnSystem/SystemClock.h"
#include "TarnSystem/SystemStateReading.h"
#include "TarnSystem/VPNDetector.h"
#include "TarnSystem/WiFiController.h"
#include "TarnSystem/WiFiDetails.h"
#include "TarnSystem/WorkQueue.h"
#include "TarnXPC/TarnXPCClient.h"
#include "TarnlinkMenu/LocationAuthorizer.h"
#include "TarnlinkMenu/Observable.h"
#include "TarnlinkMenu/UpdateChecker.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// Stands in where the real reader cannot be made: reading always fails, and Wi-Fi's power is unknown.
class NullSystemStateReader final : public SystemStateReading {
public:
    /// "SystemStateReader failed to initialize"
    class InitError : public SystemStateError {
    public:
        InitError() : SystemStateError("SystemStateReader failed to initialize") {}
    };
    std::vector<InterfaceSnapshot> readInterfaces() override;
    std::optional<bool> wifiPowerOn() override;
};

/// What every view shows: the daemon's status, or, while the daemon does not answer, what the same policy
/// says of what this process reads itself. It never changes anything on the machine.
///
/// There is no clock that refreshes it: a refresh follows start(), every batch of network changes, the
/// refresh buttons, a setting that was changed and a probe that ended. One that is asked for while another is
/// under way is dropped. A probe that fails sooner than its time limit ends only then: it asks for the next,
/// and failures that come at once must not chase each other.
///
/// Thread: main thread. Ownership: the services must outlive this and every task under way; the model
///   may go at any time. Errors: none; what fails is a field.
class StatusModel final : public Observable {
public:
    enum class Source { daemon, local };
    /// "Daemon" and "lokal (kein Daemon)".
    static std::string_view rawValue(Source source);

    struct Services {
        TarnXPCClient &daemon;
        MainActor &actor;
        SystemClock &clock;
        Log &log;
        KernelTables &kernelTables;
        SystemStateReading &reader;
        NetworkEventSource &events;
        WiFiControlling &wifi;
        Probing &prober;
        WiFiDetailsReading &wifiDetails;
        LocationAuthorizer &location;
        RecentLog &recentLog;
        /// Where the log is read.
        WorkQueue &queue;
        /// Which settings management forces.
        Preferences &preferences;
        /// Makes the update checker, once, when it is first asked for.
        std::function<std::unique_ptr<UpdateChecker>()> makeUpdates;
    };

    explicit StatusModel(const Services &services);
    ~StatusModel();

    // Published.
    const Status &status() const { return status_; }
    const std::string &reason() const { return reason_; }
    const std::vector<InterfaceSnapshot> &interfaces() const { return interfaces_; }
    bool wifiOn() const { return wifiOn_; }
    /// When the status was last taken.
    Date lastUpdate() const { return lastUpdate_; }
    /// Why the interfaces could not be read here.
    const std::optional<std::string> &errorText() const { return errorText_; }
    Source source() const { return source_; }
    const std::optional<Date> &pausedUntil() const { return pausedUntil_; }
    /// Why the daemon's status could not be had the last time.
    const std::optional<std::string> &xpcError() const { return xpcError_; }
    const std::optional<WiFiDetails> &wifiDetails() const { return wifiDetails_; }
    bool tetheringAllowed() const { return tetheringAllowed_; }
    bool tetheringDNSFix() const { return tetheringDNSFix_; }
    const std::optional<VPNDetector::Tunnel> &vpn() const { return vpn_; }
    /// Whether management forces the setting, as this process reads its preferences; then nobody else can
    /// change it.
    bool isTetheringForced() const { return isTetheringForced_; }
    bool isTetheringDNSFixForced() const { return isTetheringDNSFixForced_; }
    /// The daemon's code when it refused a setting, "xpc" when it could not be asked and has not answered
    /// since.
    const std::optional<std::string> &settingError() const { return settingError_; }

    UpdateChecker &updates();
    LocationAuthorizer &location() { return services_.location; }
    /// Of the local evaluation, by device.
    const std::map<std::string, ProbeState> &probes() const { return probes_; }

    /// Called once, when the menu-bar item is first shown.
    void start();
    void refresh();
    /// The new value shows at once, and goes again when the daemon does not take it.
    void setTetheringAllowed(bool allowed);
    void setTetheringDNSFix(bool enabled);

    /// The text for the pasteboard, UTF-8. What cannot be had is left out or said in it; the model may go
    /// before the text is there.
    Task<std::string> diagnostics();
    /// One line of plain English.
    std::string describe() const;

private:
    using IsAlive = std::weak_ptr<bool>;
    using SetterTask = Task<SettingResult> (TarnXPCClient::*)(bool value, double timeout);
    struct Setting {
        bool StatusModel::*field;
        SetterTask send;
        /// Of the latest attempt; what belongs to an earlier one changes nothing any more.
        std::uint64_t attempt = 0;
        /// As the daemon is known to have it, while attempts are under way.
        bool settled = false;
        unsigned underWay = 0;
    };

    Task<void> runRefresh(IsAlive isAlive);
    void apply(const StatusReport &report);
    void refreshLocally();
    void readForced();
    void pruneProbes(const std::vector<InterfaceSnapshot> &snapshots);
    void startProbe(const std::string &device, const std::vector<InterfaceSnapshot> &snapshots);
    Task<void> runProbe(InterfaceSnapshot snapshot, IsAlive isAlive);
    void set(Setting &setting, bool value);
    Task<void> runSetting(Setting &setting, bool value, std::uint64_t attempt, IsAlive isAlive);
    Date now() const;

    Services services_;
    Status status_;
    std::string reason_;
    std::vector<InterfaceSnapshot> interfaces_;
    bool wifiOn_ = true;
    Date lastUpdate_;
    std::optional<std::string> errorText_;
    Source source_ = Source::local;
    std::optional<Date> pausedUntil_;
    std::optional<std::string> xpcError_;
    std::optional<WiFiDetails> wifiDetails_;
    bool tetheringAllowed_ = false;
    bool tetheringDNSFix_ = true;
    bool isTetheringForced_ = false;
    bool isTetheringDNSFixForced_ = false;
    std::optional<VPNDetector::Tunnel> vpn_;
    std::optional<std::string> settingError_;
    Setting tethering_{&StatusModel::tetheringAllowed_, &TarnXPCClient::setTetheringWhileWired};
    Setting dnsFix_{&StatusModel::tetheringDNSFix_, &TarnXPCClient::setTetheringDNSFix};
    bool xpcRefreshInFlight_ = false;
    std::unique_ptr<UpdateChecker> updates_;
    Subscription locationSubscription_;
    std::map<std::string, ProbeState> probes_;
    std::set<std::string> probesInFlight_;
    std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

} // namespace tarn
