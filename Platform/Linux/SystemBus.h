#pragma once

#include "TarnSystem/NetworkPicture.h"
#include "TarnSystem/SystemVisibility.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <systemd/sd-bus.h>
#include <vector>

namespace tarn {

/// What systemd-resolved and NetworkManager tell over the system bus. Nothing is activated:
/// a service that does not run is left alone.
///
/// Thread: one at a time. No answer is waited for longer than a quarter of a second.
class SystemBus {
public:
    SystemBus() = default;
    SystemBus(const SystemBus &) = delete;
    SystemBus &operator=(const SystemBus &) = delete;
    ~SystemBus();

    /// Opens the bus when it is not open and learns which of the two services run. Fills the
    /// three bus fields of the visibility.
    void update(SystemVisibility &visibility);

    /// Name servers by interface. None when the service does not run or does not answer; the
    /// visibility then says which.
    std::optional<std::vector<NetworkPicture::Servers>> resolvedServers(SystemVisibility &visibility);
    std::optional<std::vector<NetworkPicture::Servers>> networkManagerServers(SystemVisibility &visibility);

    /// Whether NetworkManager lets Wi-Fi have power; absent when it does not run or answer.
    std::optional<bool> networkManagerWiFiEnabled();

private:
    struct Release {
        void operator()(sd_bus *bus) const { sd_bus_close_unref(bus); }
        void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
    };
    using Message = std::unique_ptr<sd_bus_message, Release>;
    struct Service {
        const char *name;
        bool isRunning = false;
    };

    /// These two return 0 or the system's error number.
    int open();
    int becomeReady();
    void close();
    int watch(Service &service);
    /// A property's value, positioned inside the variant; null without an answer.
    Message property(const Service &service, const char *path, const char *interface, const char *property,
                     const char *type);

    std::unique_ptr<sd_bus, Release> bus_;
    Service resolved_{"org.freedesktop.resolve1"};
    Service networkManager_{"org.freedesktop.NetworkManager"};
};

} // namespace tarn
