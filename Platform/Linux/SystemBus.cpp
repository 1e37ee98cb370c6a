#include "Platform/Linux/SystemBus.h"

#include <cerrno>
#include <cstdint>
#include <string_view>

namespace tarn {
namespace {

constexpr const char *networkManagerPath = "/org/freedesktop/NetworkManager";

/// One element of an array of dictionaries; false at the end or when it cannot be read.
bool readEntry(sd_bus_message *message, NetworkPicture::Servers &entry) {
    if (sd_bus_message_enter_container(message, 'a', "{sv}") <= 0)
        return false;
    while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
        const char *key = nullptr;
        sd_bus_message_read(message, "s", &key);
        const std::string_view name = key ? key : "";
        const char *text = nullptr;
        if (name == "nameservers" && sd_bus_message_enter_container(message, 'v', "as") > 0) {
            sd_bus_message_enter_container(message, 'a', "s");
            while (sd_bus_message_read(message, "s", &text) > 0)
                entry.addresses.emplace_back(text);
            sd_bus_message_exit_container(message);
            sd_bus_message_exit_container(message);
        } else if (name == "interface" && sd_bus_message_read(message, "v", "s", &text) > 0) {
            entry.device = text;
        } else {
            sd_bus_message_skip(message, "v");
        }
        sd_bus_message_exit_container(message);
    }
    return sd_bus_message_exit_container(message) >= 0;
}

} // namespace

void SystemBus::update(SystemVisibility &visibility) {
    using Source = SystemVisibility::Source;
    const int error = bus_.update();
    const auto sourceOf = [](const BusService &service) {
        return service.isRunning ? Source::answered : Source::notRunning;
    };
    visibility.systemBus = error == 0                                 ? Source::answered
                           : error == ENOENT || error == ECONNREFUSED ? Source::notRunning
                                                                      : Source::notAnswering;
    visibility.networkManager = error == 0 ? sourceOf(networkManager_) : Source::notRunning;
    visibility.resolved = error == 0 ? sourceOf(resolved_) : Source::notRunning;
}

std::optional<std::vector<NetworkPicture::Servers>> SystemBus::resolvedServers(SystemVisibility &visibility) {
    // org.freedesktop.resolve1(5): interface index, family, address.
    const auto message = bus_.property(resolved_, "/org/freedesktop/resolve1",
                                       "org.freedesktop.resolve1.Manager", "DNS", "a(iiay)");
    if (!message) {
        if (resolved_.isRunning)
            visibility.resolved = SystemVisibility::Source::notAnswering;
        return std::nullopt;
    }
    std::vector<NetworkPicture::Servers> servers;
    sd_bus_message_enter_container(message.get(), 'a', "(iiay)");
    while (sd_bus_message_enter_container(message.get(), 'r', "iiay") > 0) {
        std::int32_t link = 0;
        std::int32_t family = 0;
        const void *bytes = nullptr;
        std::size_t size = 0;
        sd_bus_message_read(message.get(), "ii", &link, &family);
        sd_bus_message_read_array(message.get(), 'y', &bytes, &size);
        sd_bus_message_exit_container(message.get());
        const auto address = IPAddress::fromBytes({static_cast<const std::uint8_t *>(bytes), size});
        if (!address)
            continue;
        const auto index = static_cast<unsigned>(link);
        if (servers.empty() || servers.back().link != index)
            servers.push_back({index, {}, {}});
        servers.back().addresses.push_back(address->text());
    }
    return servers;
}

std::optional<std::vector<NetworkPicture::Servers>>
SystemBus::networkManagerServers(SystemVisibility &visibility) {
    const auto message =
        bus_.property(networkManager_, "/org/freedesktop/NetworkManager/DnsManager",
                      "org.freedesktop.NetworkManager.DnsManager", "Configuration", "aa{sv}");
    if (!message) {
        if (networkManager_.isRunning)
            visibility.networkManager = SystemVisibility::Source::notAnswering;
        return std::nullopt;
    }
    std::vector<NetworkPicture::Servers> servers;
    sd_bus_message_enter_container(message.get(), 'a', "a{sv}");
    for (NetworkPicture::Servers entry; readEntry(message.get(), entry); entry = {})
        if (!entry.device.empty())
            servers.push_back(std::move(entry));
    return servers;
}

std::optional<bool> SystemBus::networkManagerWiFiEnabled() {
    int isEnabled = 0;
    for (const char *name : {"WirelessEnabled", "WirelessHardwareEnabled"}) {
        const auto message =
            bus_.property(networkManager_, networkManagerPath, "org.freedesktop.NetworkManager", name, "b");
        if (!message || sd_bus_message_read(message.get(), "b", &isEnabled) <= 0)
            return std::nullopt;
        if (!isEnabled)
            return false;
    }
    return true;
}

} // namespace tarn
