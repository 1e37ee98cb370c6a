#pragma once

#include "Simulation/VirtualTime.h"
#include "TarnSystem/DNSCacheFlusher.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/DynamicStore.h"
#include "TarnSystem/ProbeOutcome.h"
#include "TarnSystem/ServiceController.h"
#include "TarnSystem/SystemClock.h"
#include "TarnSystem/SystemStateReading.h"
#include "TarnSystem/TrafficCounters.h"
#include "TarnSystem/WiFiController.h"
#include "TarnlinkDaemon/Journal.h"
#include "TarnlinkDaemon/StateFolder.h"

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarn::sim {

/// A machine and what is around it: devices, name servers, disk and clocks, people and other programs.
/// Beside what is so it keeps what would be so without the daemon ("own"): what people and other
/// programs set last. What the daemon switches on counts as theirs, because nobody switches it off again.
class World final : public SystemClock,
                    public SystemStateReading,
                    public TrafficCounting,
                    public WiFiControlling,
                    public ServiceControlling,
                    public DNSCacheFlushing,
                    public StateFolder {
public:
    /// The process ends here. No standard exception, so that nothing on the way takes it for a failure.
    struct Crash {};
    class Observer {
    public:
        virtual ~Observer() = default;
        virtual void note(std::string line) = 0;
        virtual void changed(const std::string &key) = 0;
        /// The daemon has reason to act from now on.
        virtual void disturbed() = 0;
        /// The daemon switches something.
        virtual void switching(const std::string &what, bool takesAway) = 0;
        virtual void violated(std::string what) = 0;
    };
    enum class Server { answers, slow, flaky, closed, silent };
    struct Device {
        std::string name;
        InterfaceKind kind = InterfaceKind::wired;
        bool isTethering = false;
        /// A cable is in; for Wi-Fi its network is in reach.
        bool isInReach = false;
        bool hasDHCP = true;
        bool hasRouter = true;
        bool hasServers = true;
        Server server = Server::answers;
        unsigned network = 1;
        bool enabled = true;
        bool ownEnabled = true;
        bool isAddressed = false;
        /// The address that is waited for; 0 for none.
        std::uint64_t lease = 0;
        std::uint64_t received = 0;

        std::string service() const { return "service-" + name; }
    };

    World(VirtualTime &time, std::uint64_t seed, Observer &observer);

    /// Something happens that the daemon did not do.
    void happen();
    /// All run-time changes are lost, the time since boot begins anew.
    void cutPower();
    void sleep(Time length) { asleep_ += length; }
    /// False when there is none.
    bool damageJournal();
    void setClock();
    /// Some name server answers at random, or changes are refused: the daemon has no rest.
    bool isUnsteady() const;
    /// Since the beginning, asleep or not.
    Time trueNow() const { return time_.now() + asleep_; }

    std::pair<Time, ProbeOutcome> answer(const std::string &device, const std::string &server,
                                         double timeout);
    std::unique_ptr<DynamicStore> openStore();
    /// How long the next reading takes.
    Time readingTime();

    /// Wi-Fi can carry traffic; `own`: as it would be without the daemon.
    bool canWiFiCarry(bool own = false) const;
    /// Some path carries traffic, as far as anybody can tell.
    bool isOnline(const DaemonConfig &config) const;
    /// A path is there, or would be if the daemon let it.
    bool isAvailable(const DaemonConfig &config) const;
    /// A wired path that may count as verified.
    bool hasWiredPath(const DaemonConfig &config) const;
    std::size_t linkedCables() const;
    /// How the machine differs from what it would be without the daemon; empty when it does not.
    std::string leftovers() const;
    /// Of these, what is off of Wi-Fi.
    std::string wifiLeftovers() const;
    std::optional<Journal> journalOnDisk() const;
    /// Takes what is for everybody's own: nobody can tell any more what was the daemon's.
    void forgetOwnersOfWiFi();
    void forgetOwnersOfOthers();

    Moment now() override;
    std::string bootID() override { return "boot-" + std::to_string(boots_); }
    std::vector<InterfaceSnapshot> readInterfaces() override;
    std::optional<bool> wifiPowerOn() override { return powerOn(); }
    std::optional<KernelTables::ByteCounts> bytes(const std::string &device) override;
    void setPower(bool on) override;
    std::optional<bool> powerOn() override;
    void setEnabled(const std::string &serviceID, bool enabled) override;
    void reorder(const std::vector<std::string> &serviceIDs) override;
    ProtocolConfiguration configuration(const std::string &serviceID, IPProtocol protocol) override;
    void setConfiguration(const std::string &serviceID, IPProtocol protocol,
                          const ProtocolConfiguration &configuration) override;
    std::vector<std::int32_t> flush() override { return {1}; }
    ReadResult read(const std::string &name) override;
    std::optional<std::string> replace(const std::string &name, std::string_view contents) override;
    std::optional<std::string> append(const std::string &name, std::string_view contents) override;
    std::optional<std::string> remove(const std::string &name) override;
    std::optional<std::string> keepCopy(const std::string &name) override;

    Random random;
    std::map<std::string, std::string> files;
    /// How long the calls of the job under way took.
    Time busy{};
    /// The process has met its end; whatever it calls from now on throws Crash.
    bool isDead = false;
    bool isDiskFull = false;
    Time diskFullAt = seconds(-90);
    /// Every change fails until this is over.
    bool isRefusing = false;
    /// Every reading fails.
    bool isUnreadable = false;
    /// Whatever failed, was slow or only seemed to work; and the last kind alone.
    std::uint64_t faults = 0;
    Time faultAt = seconds(-60);
    std::uint64_t pretences = 0;
    /// When somebody last set what the daemon sets, too.
    Time ownChangedAt{};

private:
    class Store;
    enum class Luck { works, fails, pretends };

    Device &find(const std::string &serviceID);
    bool hasLink(const Device &device) const;
    bool isAddressLess(IPProtocol protocol, bool own = false) const;
    InterfaceSnapshot snapshot(const Device &device) const;
    bool mayWork(const Device &device, const DaemonConfig &config) const;
    /// Lets everything follow from what was changed, and tells of it.
    void settle();
    void disturb(const Device &device);
    void restartManager();
    void die();
    void addFault();
    Luck attempt(const std::string &what, bool takesAway);
    void attempted();
    void require(bool isWritten, const std::string &what);
    template <class Change> std::optional<std::string> write(const std::string &name, Change change);

    VirtualTime &time_;
    Observer &observer_;
    std::vector<Device> devices_; // the last is Wi-Fi
    bool hasRadio_;
    bool power_ = true;
    bool ownPower_ = true;
    std::array<ProtocolConfiguration, 2> protocols_;
    std::array<ProtocolConfiguration, 2> ownProtocols_;
    /// When the network could last not be read.
    Time unreadableAt_ = seconds(-100);
    /// When the daemon last changed something.
    Time switchedAt_ = seconds(-100);
    std::vector<std::string> order_;
    std::vector<std::string> ownOrder_;
    /// Of the VPN's resolver; empty without VPN.
    std::vector<std::string> servers_;
    std::vector<std::string> ownServers_;
    std::vector<InterfaceSnapshot> snapshots_;
    std::uint64_t leases_ = 0;
    Time asleep_{};
    Time bootAt_ = seconds(-60);
    Time wall_ = seconds(1.8e9);
    unsigned boots_ = 1;
};

} // namespace tarn::sim
