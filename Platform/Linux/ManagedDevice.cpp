#include "Platform/Linux/ManagedDevice.h"

namespace tarn {

std::optional<std::string> managedDevice(BusConnection &bus, const BusService &networkManager,
                                         const std::string &interface) {
    const auto call = bus.newCall(networkManager, "/org/freedesktop/NetworkManager",
                                  "org.freedesktop.NetworkManager", "GetDeviceByIpIface");
    if (!call || sd_bus_message_append(call.get(), "s", interface.c_str()) < 0)
        return std::nullopt;
    const auto answer = bus.send(call);
    const char *path = nullptr;
    if (!answer || sd_bus_message_read(answer.get(), "o", &path) <= 0)
        return std::nullopt;
    return path;
}

} // namespace tarn
