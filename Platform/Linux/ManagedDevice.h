#pragma once

#include "Platform/Linux/BusConnection.h"

#include <optional>
#include <string>

namespace tarn {

/// The object path of a network device, by its interface's name ("eth0"), as NetworkManager has it
/// (org.freedesktop.NetworkManager, GetDeviceByIpIface); none without an answer. Thread: the connection's.
std::optional<std::string> managedDevice(BusConnection &bus, const BusService &networkManager,
                                         const std::string &interface);

} // namespace tarn
