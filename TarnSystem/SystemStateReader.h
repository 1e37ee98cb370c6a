#pragma once

#include "TarnSystem/DynamicStore.h"
#include "TarnSystem/NetworkPreferences.h"
#include "TarnSystem/SystemStateReading.h"
#include "TarnSystem/WiFiClient.h"

#include <memory>
#include <string>

namespace tarn {

/// Makes snapshots from the dynamic store and the configured services. Keeps nothing between
/// calls but its two sessions, which it owns.
class SystemStateReader final : public SystemStateReading {
public:
    /// The client name under which both sessions are opened.
    static constexpr const char *clientName = "TarnlinkDaemon";

    /// Throws SystemStateError when either session could not be opened, that is, is null.
    /// `wifi` must outlive the reader.
    SystemStateReader(std::unique_ptr<DynamicStore> store, std::unique_ptr<NetworkPreferences> prefs,
                      WiFiClient &wifi);

    std::vector<InterfaceSnapshot> readInterfaces() override;
    std::optional<bool> wifiPowerOn() override;

private:
    struct ServiceInfo;

    InterfaceSnapshot snapshot(const std::string &device, const ServiceInfo *service);

    std::unique_ptr<DynamicStore> store_;
    std::unique_ptr<NetworkPreferences> prefs_;
    WiFiClient &wifi_;
};

} // namespace tarn
