#include "Platform/Linux/SystemBus.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string_view>

namespace tarn {
namespace {

constexpr std::uint64_t callLimit = 250'000; // microseconds

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

SystemBus::~SystemBus() = default;

void SystemBus::update(SystemVisibility &visibility) {
    using Source = SystemVisibility::Source;
    const auto reportAll = [&](Source source) {
        visibility.systemBus = source;
        visibility.networkManager = visibility.resolved = Source::notRunning;
    };
    if (bus_) {
        // Names that came or went since the last reading.
        int progress = 0;
        while ((progress = sd_bus_process(bus_.get(), nullptr)) > 0) {
        }
        if (progress < 0)
            close();
    }
    if (!bus_)
        if (const int error = open(); error != 0) {
            reportAll(error == ENOENT || error == ECONNREFUSED ? Source::notRunning : Source::notAnswering);
            return;
        }
    visibility.systemBus = Source::answered;
    visibility.networkManager = networkManager_.isRunning ? Source::answered : Source::notRunning;
    visibility.resolved = resolved_.isRunning ? Source::answered : Source::notRunning;
}

int SystemBus::open() {
    sd_bus *bus = nullptr;
    const int result = sd_bus_open_system(&bus);
    if (result < 0)
        return -result;
    bus_.reset(bus);
    sd_bus_set_method_call_timeout(bus, callLimit);
    int error = becomeReady();
    for (auto *service : {&resolved_, &networkManager_})
        if (error == 0)
            error = watch(*service);
    if (error != 0)
        close();
    return error;
}

int SystemBus::becomeReady() {
    // A call would wait for the greeting without a limit.
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::microseconds(callLimit);
    while (sd_bus_is_ready(bus_.get()) == 0) {
        int result = sd_bus_process(bus_.get(), nullptr);
        if (result == 0) {
            const auto rest = std::chrono::ceil<std::chrono::microseconds>(deadline - Clock::now()).count();
            if (rest <= 0)
                return ETIMEDOUT;
            result = sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(rest));
        }
        if (result < 0 && result != -EINTR)
            return -result;
    }
    return 0;
}

void SystemBus::close() {
    bus_.reset();
    resolved_.isRunning = networkManager_.isRunning = false;
}

int SystemBus::watch(Service &service) {
    const std::string rule =
        std::string("type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                    "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='") +
        service.name + "'";
    const auto changed = [](sd_bus_message *signal, void *data, sd_bus_error *) {
        const char *name = nullptr;
        const char *before = nullptr;
        const char *after = nullptr;
        if (sd_bus_message_read(signal, "sss", &name, &before, &after) > 0)
            static_cast<Service *>(data)->isRunning = *after != '\0';
        return 0;
    };
    int result = sd_bus_add_match(bus_.get(), nullptr, rule.c_str(), changed, &service);
    if (result >= 0) {
        sd_bus_message *reply = nullptr;
        int owned = 0;
        result =
            sd_bus_call_method(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "NameHasOwner", nullptr, &reply, "s", service.name);
        const Message owner(reply);
        if (result >= 0)
            result = sd_bus_message_read(owner.get(), "b", &owned);
        service.isRunning = owned != 0;
    }
    return result < 0 ? -result : 0;
}

SystemBus::Message SystemBus::property(const Service &service, const char *path, const char *interface,
                                       const char *property, const char *type) {
    if (!bus_ || !service.isRunning)
        return nullptr;
    sd_bus_message *call = nullptr;
    if (sd_bus_message_new_method_call(bus_.get(), &call, service.name, path,
                                       "org.freedesktop.DBus.Properties", "Get") < 0)
        return nullptr;
    const Message request(call);
    sd_bus_message *reply = nullptr;
    if (sd_bus_message_set_auto_start(call, 0) < 0 ||
        sd_bus_message_append(call, "ss", interface, property) < 0 ||
        sd_bus_call(bus_.get(), call, callLimit, nullptr, &reply) < 0)
        return nullptr;
    Message answer(reply);
    if (sd_bus_message_enter_container(reply, 'v', type) <= 0)
        return nullptr;
    return answer;
}

std::optional<std::vector<NetworkPicture::Servers>> SystemBus::resolvedServers(SystemVisibility &visibility) {
    // org.freedesktop.resolve1(5): interface index, family, address.
    const auto message = property(resolved_, "/org/freedesktop/resolve1", "org.freedesktop.resolve1.Manager",
                                  "DNS", "a(iiay)");
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
    const auto message = property(networkManager_, "/org/freedesktop/NetworkManager/DnsManager",
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
            property(networkManager_, networkManagerPath, "org.freedesktop.NetworkManager", name, "b");
        if (!message || sd_bus_message_read(message.get(), "b", &isEnabled) <= 0)
            return std::nullopt;
        if (!isEnabled)
            return false;
    }
    return true;
}

} // namespace tarn
