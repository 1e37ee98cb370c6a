#include "Platform/Linux/SystemBus.h"

#include "Platform/Linux/ManagedDevice.h"
#include <cerrno>
#include <cstdint>
#include <string_view>

namespace tarn {
namespace {

// The interfaces are described in NetworkManager's "D-Bus API" documentation.
constexpr const char *managerPath = "/org/freedesktop/NetworkManager";
constexpr const char *managerInterface = "org.freedesktop.NetworkManager";

// Nothing is known to change without a signal, but others wrote the services.
constexpr std::chrono::seconds longestMemory{60};

/// Goes through an array of named values; false when there is none. `take` says whether it read
/// the value.
template <class Take> bool readEntries(sd_bus_message *message, Take take) {
    if (sd_bus_message_enter_container(message, 'a', "{sv}") <= 0)
        return false;
    while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
        const char *name = "";
        sd_bus_message_read(message, "s", &name);
        if (!take(std::string_view(name)))
            sd_bus_message_skip(message, "v");
        sd_bus_message_exit_container(message);
    }
    return sd_bus_message_exit_container(message) >= 0;
}

// Each reads a variant, and returns false and leaves it alone when it holds another type.

template <class Element> bool readVariant(sd_bus_message *message, char type, Element &value) {
    return sd_bus_message_read(message, "v", std::string(1, type).c_str(), &value) > 0;
}

/// Strings or, with the type 'o', object paths.
bool readVariant(sd_bus_message *message, char type, std::string &value) {
    const char *text = nullptr;
    if (!readVariant(message, type, text))
        return false;
    value = text;
    return true;
}

void readList(sd_bus_message *message, char type, std::vector<std::string> &list) {
    const char *text = nullptr;
    sd_bus_message_enter_container(message, 'a', std::string(1, type).c_str());
    while (sd_bus_message_read_basic(message, type, &text) > 0)
        list.emplace_back(text);
    sd_bus_message_exit_container(message);
}

bool readVariant(sd_bus_message *message, char type, std::vector<std::string> &list) {
    if (sd_bus_message_enter_container(message, 'v', (std::string("a") + type).c_str()) <= 0)
        return false;
    readList(message, type, list);
    return sd_bus_message_exit_container(message) >= 0;
}

} // namespace

void SystemBus::update(SystemVisibility &visibility) {
    using Source = SystemVisibility::Source;
    // Before the questions: what changes meanwhile is then asked again the next time.
    const auto news = news_.count();
    const int error = bus_.update();
    const unsigned serviceChanges = resolved_.changes + networkManager_.changes;
    const auto now = std::chrono::steady_clock::now();
    if (!news || news != memory_.news || serviceChanges != memory_.serviceChanges ||
        now - memory_.since > longestMemory) {
        forget();
        memory_.news = news;
        memory_.serviceChanges = serviceChanges;
        memory_.since = now;
    }
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
    if (memory_.resolvedServers)
        return memory_.resolvedServers;
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
            servers.push_back({index, {}, {}, {}});
        servers.back().addresses.push_back(address->text());
    }
    // Interface index, domain, and whether it serves for routing alone.
    const auto domains = bus_.property(resolved_, "/org/freedesktop/resolve1",
                                       "org.freedesktop.resolve1.Manager", "Domains", "a(isb)");
    if (domains)
        sd_bus_message_enter_container(domains.get(), 'a', "(isb)");
    std::int32_t link = 0;
    const char *domain = nullptr;
    int isForRouting = 0;
    while (domains && sd_bus_message_read(domains.get(), "(isb)", &link, &domain, &isForRouting) > 0)
        servers.push_back({static_cast<unsigned>(link), {}, {}, {domain}});
    if (domains)
        memory_.resolvedServers = servers;
    return servers;
}

std::optional<std::vector<NetworkPicture::Servers>>
SystemBus::networkManagerServers(SystemVisibility &visibility) {
    if (memory_.networkManagerServers)
        return memory_.networkManagerServers;
    const auto message =
        bus_.property(networkManager_, "/org/freedesktop/NetworkManager/DnsManager",
                      "org.freedesktop.NetworkManager.DnsManager", "Configuration", "aa{sv}");
    if (!message) {
        if (networkManager_.isRunning)
            visibility.networkManager = SystemVisibility::Source::notAnswering;
        return std::nullopt;
    }
    std::vector<NetworkPicture::Servers> servers;
    NetworkPicture::Servers entry;
    const auto take = [&](std::string_view name) {
        return (name == "nameservers" && readVariant(message.get(), 's', entry.addresses)) ||
               (name == "domains" && readVariant(message.get(), 's', entry.domains)) ||
               (name == "interface" && readVariant(message.get(), 's', entry.device));
    };
    sd_bus_message_enter_container(message.get(), 'a', "a{sv}");
    for (; readEntries(message.get(), take); entry = {})
        if (!entry.device.empty())
            servers.push_back(std::move(entry));
    memory_.networkManagerServers = servers;
    return servers;
}

std::optional<std::vector<NetworkPicture::Managed>> SystemBus::activeDevices(SystemVisibility &visibility) {
    if (memory_.activeDevices)
        return memory_.activeDevices;
    constexpr std::uint32_t deactivating = 3; // NM_ACTIVE_CONNECTION_STATE_DEACTIVATING
    const auto message =
        bus_.property(networkManager_, managerPath, managerInterface, "ActiveConnections", "ao");
    std::vector<std::string> connections;
    if (message)
        readList(message.get(), 'o', connections);
    std::vector<NetworkPicture::Managed> managed;
    for (const auto &path : connections) {
        const auto connection = bus_.properties(networkManager_, path.c_str(),
                                                "org.freedesktop.NetworkManager.Connection.Active");
        std::string profile;
        std::vector<std::string> devices;
        std::uint32_t state = deactivating;
        const auto takeConnection = [&](std::string_view name) {
            return (name == "Id" && readVariant(connection.get(), 's', profile)) ||
                   (name == "Devices" && readVariant(connection.get(), 'o', devices)) ||
                   (name == "State" && readVariant(connection.get(), 'u', state));
        };
        // What ends between two calls is no longer there.
        if (!connection || !readEntries(connection.get(), takeConnection) || state >= deactivating)
            continue;
        for (const auto &devicePath : devices) {
            const auto device =
                bus_.properties(networkManager_, devicePath.c_str(), "org.freedesktop.NetworkManager.Device");
            std::string name;
            std::string own;
            const auto takeDevice = [&](std::string_view key) {
                return (key == "Interface" && readVariant(device.get(), 's', name)) ||
                       (key == "ActiveConnection" && readVariant(device.get(), 'o', own));
            };
            // A VPN lists the device that it runs over, whose own profile is another one.
            if (device && readEntries(device.get(), takeDevice) && own == path)
                managed.push_back({name, profile, false});
        }
    }
    // What stays disconnected until somebody connects it is disabled, whichever process did that.
    std::vector<std::string> all;
    if (const auto devices = bus_.property(networkManager_, managerPath, managerInterface, "Devices", "ao"))
        readList(devices.get(), 'o', all);
    for (const auto &path : all) {
        const auto device =
            bus_.properties(networkManager_, path.c_str(), "org.freedesktop.NetworkManager.Device");
        std::string name;
        std::string own;
        int isManaged = 0;
        int connectsItself = 1;
        const auto take = [&](std::string_view key) {
            return (key == "Interface" && readVariant(device.get(), 's', name)) ||
                   (key == "ActiveConnection" && readVariant(device.get(), 'o', own)) ||
                   (key == "Managed" && readVariant(device.get(), 'b', isManaged)) ||
                   (key == "Autoconnect" && readVariant(device.get(), 'b', connectsItself));
        };
        if (device && readEntries(device.get(), take) && own == "/" && isManaged && !connectsItself)
            managed.push_back({name, {}, true});
    }
    if (message && !networkManager_.isSilent) {
        memory_.activeDevices = managed;
        return managed;
    }
    if (networkManager_.isRunning)
        visibility.networkManager = SystemVisibility::Source::notAnswering;
    return std::nullopt;
}

std::optional<SystemBus::AccessPoint> SystemBus::activeAccessPoint(const std::string &device) {
    const auto wireless = managedDevice(bus_, networkManager_, device);
    if (!wireless)
        return std::nullopt;
    const auto active =
        bus_.property(networkManager_, wireless->c_str(), "org.freedesktop.NetworkManager.Device.Wireless",
                      "ActiveAccessPoint", "o");
    const char *path = nullptr;
    if (!active || sd_bus_message_read(active.get(), "o", &path) <= 0 || path == std::string_view("/"))
        return std::nullopt;
    const auto message = bus_.properties(networkManager_, path, "org.freedesktop.NetworkManager.AccessPoint");
    AccessPoint point;
    std::uint8_t strength = 0;
    const auto take = [&](std::string_view name) {
        if (name == "Ssid" && sd_bus_message_enter_container(message.get(), 'v', "ay") > 0) {
            const void *bytes = nullptr;
            std::size_t size = 0;
            if (sd_bus_message_read_array(message.get(), 'y', &bytes, &size) > 0)
                point.ssid.assign(static_cast<const char *>(bytes), size);
            return sd_bus_message_exit_container(message.get()) >= 0;
        }
        return (name == "Frequency" && readVariant(message.get(), 'u', point.megahertz)) ||
               (name == "Strength" && readVariant(message.get(), 'y', strength));
    };
    if (!message || !readEntries(message.get(), take))
        return std::nullopt;
    point.strength = strength;
    return point;
}

std::optional<bool> SystemBus::networkManagerWiFiEnabled() {
    if (memory_.isWiFiEnabled)
        return memory_.isWiFiEnabled;
    int isEnabled = 0;
    for (const char *name : {"WirelessEnabled", "WirelessHardwareEnabled"}) {
        const auto message = bus_.property(networkManager_, managerPath, managerInterface, name, "b");
        if (!message || sd_bus_message_read(message.get(), "b", &isEnabled) <= 0)
            return std::nullopt;
        if (!isEnabled)
            break;
    }
    memory_.isWiFiEnabled = isEnabled != 0;
    return memory_.isWiFiEnabled;
}

} // namespace tarn
