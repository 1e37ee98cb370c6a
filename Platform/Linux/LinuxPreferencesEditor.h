#pragma once

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/DisabledServices.h"
#include "Platform/Linux/LinuxNetwork.h"
#include "TarnSystem/ManagedIPSettings.h"
#include "TarnSystem/NetworkPreferences.h"

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// Changes what NetworkManager does with its devices while it runs. No profile is written: its
/// own restart, or a reboot, undoes everything.
///
/// Service order is the metric of the default routes; a service that is not enabled is a device
/// that stays disconnected. Other changes than the last reapply a connection, and then
/// NetworkManager sets up the device's IPv6 anew.
///
/// Thread: as NetworkPreferencesEditor; nothing but `disabled` is shared with others.
/// Ownership: `disabled` must outlive the editor.
/// Errors: unavailable when NetworkManager does not run or does not manage the device. No answer
///   of NetworkManager is waited for longer than 5 seconds.
class LinuxPreferencesEditor final : public NetworkPreferencesEditor {
public:
    /// Devices are put into `disabled` and taken out as their services are disabled and enabled.
    explicit LinuxPreferencesEditor(DisabledServices &disabled) : disabled_(disabled) {}

    void synchronize() override;
    std::optional<std::vector<std::string>> currentServiceOrder() override;
    std::optional<NetworkService> copyService(const std::string &serviceID) override;

    Result lock() override;
    void unlock() override;
    Result setServiceOrder(const std::vector<std::string> &order) override;
    Result setServiceEnabled(const std::string &serviceID, bool enabled) override;
    std::optional<ProtocolConfiguration> copyProtocol(const std::string &serviceID,
                                                      IPProtocol protocol) override;
    Result setProtocol(const std::string &serviceID, IPProtocol protocol,
                       const ProtocolConfiguration &configuration) override;
    Result commitChanges() override;
    Result applyChanges() override;

private:
    /// A device as NetworkManager has it; paths are of objects on the bus, "/" for none.
    struct Device {
        std::string name;
        std::string path;
        std::string active = "/";
        std::string profile = "/";
        std::string profileUUID;
        /// NM_DEVICE_STATE_* and NM_ACTIVATION_STATE_FLAG_* of NetworkManager's D-Bus interface.
        std::uint32_t state = 0;
        std::uint32_t activationFlags = 0;
        std::uint32_t managed = 0;
        std::uint32_t autoconnect = 0;

        bool isActive() const;
        /// NetworkManager itself configures it, or would.
        bool isManaged() const;
    };
    struct Change {
        std::optional<bool> enabled;
        std::optional<std::int64_t> metric;
        std::map<IPProtocol, ProtocolConfiguration> protocols;
    };
    /// What a device was before its service was disabled.
    struct Earlier {
        /// The active profile; empty for none.
        std::string profileUUID;
        bool autoconnect = true;
    };
    /// A property and where its value goes: a text, or a number or flag.
    struct Property {
        std::string_view name;
        const char *type;
        std::uint32_t *number;
        std::string *text = nullptr;
    };

    /// The answer to a call; null with the reason in `failure`.
    template <class... Arguments>
    BusMessage call(Result &failure, const char *path, const char *interface, const char *method,
                    const char *types, Arguments... arguments);
    BusMessage send(const BusMessage &call, Result &failure);
    bool read(const std::string &path, const char *interface, std::initializer_list<Property> wanted,
              Result &failure);
    std::optional<std::string> deviceName(const std::string &serviceID);
    std::optional<Device> device(const std::string &name, Result &failure);
    std::optional<Device> managedDevice(const std::string &name, Result &failure);
    /// The connection with which the device runs, as it was at the first call since synchronize().
    sd_bus_message *applied(const Device &device, Result &failure);
    Result planMetrics();
    Result commit(const std::string &name, const Change &change);
    Result reapply(const Device &device, const Change &change);
    Result enable(const Device &device);
    Result disable(const Device &device);
    Result setAutoconnect(const Device &device, bool autoconnect);

    DisabledServices &disabled_;
    LinuxNetwork network_{disabled_};
    BusService manager_{"org.freedesktop.NetworkManager"};
    BusConnection bus_{{&manager_}, std::chrono::seconds(5)};
    /// By device.
    std::map<std::string, BusMessage> applied_;
    std::map<std::string, Earlier> earlier_;
    std::map<std::string, Change> changes_;
    std::optional<std::vector<std::string>> order_;
    /// Devices that were enabled and have to show it.
    std::vector<std::string> awaited_;
};

} // namespace tarn
