#pragma once

#include "TarnSystem/DNSCacheFlusher.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/NetworkPreferences.h"
#include "TarnSystem/ServiceController.h"
#include "TarnSystem/VPNSplitDNS.h"
#include "TarnSystem/WiFiController.h"
#include "TarnlinkDaemon/Journal.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// One thing to be changed on the machine.
struct Command {
    enum class Kind {
        wifiOff,         ///< In `mode`: the radio; or `services` disabled; or `protocols` changed.
        wifiOn,          ///< The radio if `power`; `services` enabled; `protocols` changed.
        enableService,   ///< `services`.
        disableService,  ///< `services`.
        reorderServices, ///< `order` first.
        setServers,      ///< The servers of the dynamic store's resolver `key` get this `order`.
        flushCache,      ///< The system's resolver drops its cache.
    };
    struct ProtocolChange {
        std::string serviceID;
        IPProtocol protocol = IPProtocol::ipv4;
        /// When the protocol is configured otherwise by now, it is left alone and the change has failed.
        /// Without it the change is made whatever is there, and has nothing to do where the service is gone.
        std::optional<ProtocolConfiguration> expected;
        ProtocolConfiguration wanted;

        friend bool operator==(const ProtocolChange &, const ProtocolChange &) = default;
    };

    Kind kind = Kind::wifiOn;
    WiFiOffMode mode = WiFiOffMode::radio;
    bool power = false;
    std::vector<ServiceName> services = {};
    std::vector<ProtocolChange> protocols = {};
    std::vector<std::string> order = {};
    std::string key = {};

    friend bool operator==(const Command &, const Command &) = default;
};

/// For logs: "Wi-Fi off (radio)", "enable Wi-Fi 2", "order a, b".
std::string describe(const Command &command);

/// Carries commands out. Thread: one at a time; blocks for as long as the system takes.
class Switching {
public:
    virtual ~Switching() = default;
    /// Every step of the command is tried, also after one that failed. Returns what failed first, as
    /// its typed error describes it and with the system's own words; none when all is as wanted. A
    /// service that does not exist needs no enabling, a resolver that does not run no flushing, and one
    /// that is gone or has other servers no order.
    virtual std::optional<std::string> carryOut(const Command &command) = 0;
};

/// Through the controllers of Wi-Fi and services.
///
/// Ownership: what is handed over must outlive this.
class Switcher final : public Switching {
public:
    Switcher(WiFiControlling &wifi, ServiceControlling &services, DNSCacheFlushing &cache,
             VPNSplitDNS::StoreOpener openStore)
        : wifi_(wifi), services_(services), cache_(cache), openStore_(std::move(openStore)) {}

    std::optional<std::string> carryOut(const Command &command) override;

private:
    void change(const Command::ProtocolChange &change);
    void setServers(const std::string &key, const std::vector<std::string> &servers);

    WiFiControlling &wifi_;
    ServiceControlling &services_;
    DNSCacheFlushing &cache_;
    VPNSplitDNS::StoreOpener openStore_;
};

} // namespace tarn
