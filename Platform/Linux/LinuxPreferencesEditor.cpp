#include "Platform/Linux/LinuxPreferencesEditor.h"

#include "Platform/Linux/RouteNetlink.h"
#include "TarnSystem/RouteMetrics.h"
#include "TarnSystem/ServiceErrors.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
#include <thread>

namespace tarn {
namespace {

using Kind = NetworkPreferencesEditor::Result::Kind;

constexpr const char *managerPath = "/org/freedesktop/NetworkManager";
constexpr const char *settingsPath = "/org/freedesktop/NetworkManager/Settings";
constexpr const char *managerInterface = "org.freedesktop.NetworkManager";
constexpr const char *settingsInterface = "org.freedesktop.NetworkManager.Settings";
constexpr const char *profileInterface = "org.freedesktop.NetworkManager.Settings.Connection";
constexpr const char *activeInterface = "org.freedesktop.NetworkManager.Connection.Active";
constexpr const char *deviceInterface = "org.freedesktop.NetworkManager.Device";
constexpr const char *propertiesInterface = "org.freedesktop.DBus.Properties";

constexpr std::uint32_t stateUnavailable = 20; // NM_DEVICE_STATE_UNAVAILABLE
constexpr std::uint32_t statePrepare = 40;     // NM_DEVICE_STATE_PREPARE
constexpr std::uint32_t stateActivated = 100;  // NM_DEVICE_STATE_ACTIVATED
constexpr std::uint32_t flagExternal = 0x80;   // NM_ACTIVATION_STATE_FLAG_EXTERNAL

constexpr std::array<std::pair<IPProtocol, std::string_view>, 2> settings = {
    {{IPProtocol::ipv4, "ipv4"}, {IPProtocol::ipv6, "ipv6"}}};

/// Calls `use` with each key of an entered dictionary, the message standing before the variant.
/// Stops and returns false when `use` does.
template <class Use> bool forEachEntry(sd_bus_message *message, Use use) {
    int found = 0;
    while ((found = sd_bus_message_enter_container(message, 'e', "sv")) > 0) {
        const char *key = nullptr;
        if (sd_bus_message_read(message, "s", &key) <= 0 || !use(std::string_view(key)) ||
            sd_bus_message_exit_container(message) < 0)
            return false;
    }
    return found == 0;
}

/// Goes into the setting `name` of a connection (a{sa{sv}}); false when it has none.
bool enterSetting(sd_bus_message *connection, std::string_view name) {
    sd_bus_message_rewind(connection, 1);
    if (sd_bus_message_enter_container(connection, 'a', "{sa{sv}}") <= 0)
        return false;
    while (sd_bus_message_enter_container(connection, 'e', "sa{sv}") > 0) {
        const char *setting = nullptr;
        if (sd_bus_message_read(connection, "s", &setting) <= 0)
            return false;
        if (setting == name)
            return sd_bus_message_enter_container(connection, 'a', "{sv}") > 0;
        sd_bus_message_skip(connection, "a{sv}");
        sd_bus_message_exit_container(connection);
    }
    return false;
}

bool readAddresses(sd_bus_message *message, std::vector<ManagedIPSettings::Address> &addresses) {
    if (sd_bus_message_enter_container(message, 'v', "aa{sv}") <= 0 ||
        sd_bus_message_enter_container(message, 'a', "a{sv}") <= 0)
        return false;
    while (sd_bus_message_enter_container(message, 'a', "{sv}") > 0) {
        std::optional<IPAddress> address;
        std::uint32_t prefix = 0;
        const bool isRead = forEachEntry(message, [&](std::string_view key) {
            const char *text = nullptr;
            if (key == "address" && sd_bus_message_read(message, "v", "s", &text) > 0)
                address = IPAddress::parse(text);
            else if (key == "prefix")
                return sd_bus_message_read(message, "v", "u", &prefix) > 0;
            else if (key != "address")
                return sd_bus_message_skip(message, "v") > 0;
            return address.has_value();
        });
        if (!isRead || !address || sd_bus_message_exit_container(message) < 0)
            return false;
        addresses.push_back({*address, prefix});
    }
    return sd_bus_message_exit_container(message) >= 0 && sd_bus_message_exit_container(message) >= 0;
}

/// One protocol's setting of a connection, and what beside it matters for a change.
struct Setting {
    ManagedIPSettings ip;
    std::optional<std::int64_t> metric;
    bool hasDNSData = false;
};

std::optional<Setting> readSetting(sd_bus_message *connection, std::string_view name) {
    Setting setting;
    if (!connection || !enterSetting(connection, name))
        return std::nullopt;
    const bool isRead = forEachEntry(connection, [&](std::string_view key) {
        const char *text = nullptr;
        if (key == "address-data")
            return readAddresses(connection, setting.ip.addresses);
        if (key == "method" && sd_bus_message_read(connection, "v", "s", &text) > 0) {
            setting.ip.method = text;
            return true;
        }
        if (key == "gateway" && sd_bus_message_read(connection, "v", "s", &text) > 0) {
            setting.ip.gateway = IPAddress::parse(text);
            return true;
        }
        if (key == "route-metric")
            return sd_bus_message_read(connection, "v", "x", &setting.metric.emplace()) > 0;
        setting.hasDNSData = setting.hasDNSData || key == "dns-data";
        return sd_bus_message_skip(connection, "v") > 0;
    });
    if (!isRead)
        return std::nullopt;
    return setting;
}

/// How a setting is to be, and the connection that has its entries.
struct Plan {
    ManagedIPChange change;
    Setting base;
    sd_bus_message *connection = nullptr;
    std::optional<std::int64_t> metric;
};

/// Takes results of sd-bus; one that is negative is a failure.
struct Steps {
    bool succeeded = true;
    void operator()(int result) { succeeded = succeeded && result >= 0; }
};

/// Appends a setting as planned. The plan's connection stands inside it.
void appendSetting(sd_bus_message *call, const Plan &plan, Steps &step) {
    const auto &change = plan.change;
    step(sd_bus_message_open_container(call, 'a', "{sv}"));
    const bool isCopied = forEachEntry(plan.connection, [&](std::string_view key) {
        if (!change.keeps(key, plan.base.hasDNSData))
            return sd_bus_message_skip(plan.connection, "v") >= 0;
        step(sd_bus_message_open_container(call, 'e', "sv"));
        step(sd_bus_message_append(call, "s", std::string(key).c_str()));
        step(sd_bus_message_copy(call, plan.connection, 0));
        step(sd_bus_message_close_container(call));
        return step.succeeded;
    });
    step(isCopied ? 0 : -1);
    if (change.method)
        step(sd_bus_message_append(call, "{sv}", "method", "s", change.method->c_str()));
    if (change.addresses) {
        step(sd_bus_message_open_container(call, 'e', "sv"));
        step(sd_bus_message_append(call, "s", "address-data"));
        step(sd_bus_message_open_container(call, 'v', "aa{sv}"));
        step(sd_bus_message_open_container(call, 'a', "a{sv}"));
        for (const auto &[address, length] : *change.addresses)
            step(sd_bus_message_append(call, "a{sv}", 2, "address", "s", address.text().c_str(), "prefix",
                                       "u", std::uint32_t{length}));
        for (int containers = 0; containers < 3; ++containers)
            step(sd_bus_message_close_container(call));
    }
    if (change.gateway)
        step(sd_bus_message_append(call, "{sv}", "gateway", "s", change.gateway->text().c_str()));
    if (plan.metric)
        step(sd_bus_message_append(call, "{sv}", "route-metric", "x", *plan.metric));
    step(sd_bus_message_close_container(call));
}

} // namespace

bool LinuxPreferencesEditor::Device::isActive() const {
    return state >= statePrepare && state <= stateActivated;
}

bool LinuxPreferencesEditor::Device::isManaged() const {
    return managed != 0 && (activationFlags & flagExternal) == 0;
}

void LinuxPreferencesEditor::synchronize() {
    network_.takePicture();
    bus_.update();
    applied_.clear();
}

std::optional<std::vector<std::string>> LinuxPreferencesEditor::currentServiceOrder() {
    const auto *picture = network_.picture();
    if (!picture)
        return std::nullopt;
    return picture->serviceOrder();
}

std::optional<NetworkService> LinuxPreferencesEditor::copyService(const std::string &serviceID) {
    const auto *picture = network_.picture();
    auto service = picture ? picture->service(serviceID) : std::nullopt;
    Result ignored;
    const auto device = service ? this->device(*service->bsdName, ignored) : std::nullopt;
    if (!device)
        return service;
    // Whoever disabled it, and in whichever process: it would not come back by itself.
    service->enabled = device->isActive() || device->autoconnect != 0 || !device->isManaged();
    if (device->isActive())
        disabled_.erase(device->name);
    return service;
}

NetworkPreferencesEditor::Result LinuxPreferencesEditor::lock() {
    bus_.update();
    return manager_.isRunning ? Result() : managerNotRunning();
}

void LinuxPreferencesEditor::unlock() {
    changes_.clear();
    order_.reset();
}

NetworkPreferencesEditor::Result
LinuxPreferencesEditor::setServiceOrder(const std::vector<std::string> &order) {
    order_ = order;
    return {};
}

NetworkPreferencesEditor::Result LinuxPreferencesEditor::setServiceEnabled(const std::string &serviceID,
                                                                           bool enabled) {
    const auto name = deviceName(serviceID);
    if (!name)
        return noSuchService(serviceID);
    changes_[*name].enabled = enabled;
    return {};
}

std::optional<ProtocolConfiguration> LinuxPreferencesEditor::copyProtocol(const std::string &serviceID,
                                                                          IPProtocol protocol) {
    Result failure;
    const auto name = deviceName(serviceID);
    const auto device = name ? this->device(*name, failure) : std::nullopt;
    auto *connection = device ? applied(*device, failure) : nullptr;
    const auto setting = readSetting(connection, protocol == IPProtocol::ipv6 ? "ipv6" : "ipv4");
    return setting ? configurationFromManaged(setting->ip, protocol) : std::nullopt;
}

NetworkPreferencesEditor::Result
LinuxPreferencesEditor::setProtocol(const std::string &serviceID, IPProtocol protocol,
                                    const ProtocolConfiguration &configuration) {
    const auto name = deviceName(serviceID);
    if (!name)
        return noSuchService(serviceID);
    Result failure;
    const auto device = managedDevice(*name, failure);
    // What is changed is what was there now, not what somebody else makes of it until the commit.
    if (!device || !applied(*device, failure))
        return failure;
    changes_[*name].protocols.insert_or_assign(protocol, configuration);
    return {};
}

NetworkPreferencesEditor::Result LinuxPreferencesEditor::commitChanges() {
    bus_.update();
    if (!manager_.isRunning)
        return managerNotRunning();
    if (order_)
        if (auto result = planMetrics(); result.kind != Kind::done)
            return result;
    for (const auto &[name, change] : changes_)
        if (auto result = commit(name, change); result.kind != Kind::done)
            return result;
    unlock();
    return {};
}

NetworkPreferencesEditor::Result LinuxPreferencesEditor::applyChanges() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    for (const auto &name : std::exchange(awaited_, {})) {
        Result failure;
        for (;;) {
            const auto device = this->device(name, failure);
            if (!device)
                return failure;
            if (device->isActive())
                break;
            if (std::chrono::steady_clock::now() > deadline)
                return notActivating(name);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    return {};
}

template <class... Arguments>
BusMessage LinuxPreferencesEditor::call(Result &failure, const char *path, const char *interface,
                                        const char *method, const char *types, Arguments... arguments) {
    const auto message = bus_.newCall(manager_, path, interface, method);
    if (message && sd_bus_message_append(message.get(), types, arguments...) < 0) {
        failure = {Kind::failed, {}};
        return nullptr;
    }
    return send(message, failure);
}

BusMessage LinuxPreferencesEditor::send(const BusMessage &call, Result &failure) {
    if (!call) {
        failure = managerNotRunning();
        return nullptr;
    }
    BusFailure reason;
    auto answer = bus_.send(call, &reason);
    if (!answer)
        failure = {managerErrorKind(reason.name), reason.message};
    return answer;
}

bool LinuxPreferencesEditor::read(const std::string &path, const char *interface,
                                  std::initializer_list<Property> wanted, Result &failure) {
    const auto answer = call(failure, path.c_str(), propertiesInterface, "GetAll", "s", interface);
    if (!answer)
        return false;
    sd_bus_message_enter_container(answer.get(), 'a', "{sv}");
    return forEachEntry(answer.get(), [&](std::string_view key) {
        const auto found = std::ranges::find(wanted, key, &Property::name);
        if (found == wanted.end())
            return sd_bus_message_skip(answer.get(), "v") >= 0;
        const char *text = nullptr;
        if (!found->text)
            return sd_bus_message_read(answer.get(), "v", found->type, found->number) > 0;
        const bool isRead = sd_bus_message_read(answer.get(), "v", found->type, &text) > 0;
        *found->text = isRead ? text : "";
        return isRead;
    });
}

std::optional<std::string> LinuxPreferencesEditor::deviceName(const std::string &serviceID) {
    const auto *picture = network_.picture();
    const auto service = picture ? picture->service(serviceID) : std::nullopt;
    return service ? service->bsdName : std::nullopt;
}

std::optional<LinuxPreferencesEditor::Device> LinuxPreferencesEditor::device(const std::string &name,
                                                                             Result &failure) {
    const auto answer = call(failure, managerPath, managerInterface, "GetDeviceByIpIface", "s", name.c_str());
    const char *path = nullptr;
    if (!answer || sd_bus_message_read(answer.get(), "o", &path) <= 0) {
        // The kernel has it; NetworkManager does not know of it.
        if (failure.kind == Kind::notFound)
            failure = deviceNotManaged(name);
        return std::nullopt;
    }
    Device device;
    device.name = name;
    device.path = path;
    const bool isRead = read(device.path, deviceInterface,
                             {{"State", "u", &device.state},
                              {"Managed", "b", &device.managed},
                              {"Autoconnect", "b", &device.autoconnect},
                              {"ActiveConnection", "o", nullptr, &device.active}},
                             failure);
    if (!isRead)
        return std::nullopt;
    // One that is gone by now has nothing to tell.
    Result gone;
    if (device.active != "/")
        read(device.active, activeInterface,
             {{"StateFlags", "u", &device.activationFlags},
              {"Connection", "o", nullptr, &device.profile},
              {"Uuid", "s", nullptr, &device.profileUUID}},
             gone);
    return device;
}

std::optional<LinuxPreferencesEditor::Device> LinuxPreferencesEditor::managedDevice(const std::string &name,
                                                                                    Result &failure) {
    auto device = this->device(name, failure);
    if (device && !device->isManaged()) {
        failure = deviceNotManaged(name);
        return std::nullopt;
    }
    return device;
}

sd_bus_message *LinuxPreferencesEditor::applied(const Device &device, Result &failure) {
    auto &connection = applied_[device.name];
    if (!connection)
        connection = call(failure, device.path.c_str(), deviceInterface, "GetAppliedConnection", "u", 0U);
    return connection.get();
}

NetworkPreferencesEditor::Result LinuxPreferencesEditor::planMetrics() {
    NetworkPicture picture;
    if (RouteNetlink::read(picture) == RouteNetlink::Result::failed)
        return {Kind::unavailable, {}};
    std::vector<ServiceMetric> services;
    for (const auto &serviceID : *order_) {
        const auto name = deviceName(serviceID);
        if (!name)
            continue;
        ServiceMetric service{serviceID, std::nullopt, false};
        const auto link = std::ranges::find(picture.links, *name, &NetworkPicture::Link::name);
        for (const auto &route : picture.defaultRoutes)
            if (link != picture.links.end() && route.link == link->index)
                service.metric = std::min(service.metric.value_or(UINT32_MAX), route.metric);
        Result failure;
        if (service.metric) {
            const auto device = managedDevice(*name, failure);
            service.isChangeable = device && device->isActive();
        }
        services.push_back(std::move(service));
    }
    const auto metrics = metricsForOrder(services, *order_);
    if (!metrics)
        return orderNotPossible();
    for (const auto &[serviceID, metric] : *metrics)
        changes_[*deviceName(serviceID)].metric = metric;
    return {};
}

NetworkPreferencesEditor::Result LinuxPreferencesEditor::commit(const std::string &name,
                                                                const Change &change) {
    Result failure;
    const auto device = managedDevice(name, failure);
    if (!device)
        return failure;
    if (change.metric || !change.protocols.empty())
        if (auto result = reapply(*device, change); result.kind != Kind::done)
            return result;
    if (change.enabled)
        return *change.enabled ? enable(*device) : disable(*device);
    return {};
}

NetworkPreferencesEditor::Result LinuxPreferencesEditor::reapply(const Device &device, const Change &change) {
    Result failure;
    auto *running = applied(device, failure);
    if (!running)
        return failure;
    BusMessage profile;
    Result gone;
    if (!change.protocols.empty() && device.profile != "/")
        profile = call(gone, device.profile.c_str(), profileInterface, "GetSettings", "");

    std::map<std::string_view, Plan> plans;
    for (const auto &[protocol, name] : settings) {
        const auto own = readSetting(running, name);
        const auto wanted = change.protocols.find(protocol);
        if (!own && wanted != change.protocols.end())
            return configurationNotUsable();
        if (!own)
            continue;
        auto &plan = plans[name] = {{}, *own, running, change.metric ? change.metric : own->metric};
        if (wanted == change.protocols.end())
            continue;
        const auto configured = readSetting(profile.get(), name);
        const auto how = managedChange(wanted->second, protocol, configured ? &configured->ip : nullptr);
        if (!how)
            return configurationNotUsable();
        plan.change = *how;
        if (how->isFromProfile) {
            plan.base = *configured;
            plan.connection = profile.get();
        }
    }

    const auto message = bus_.newCall(manager_, device.path.c_str(), deviceInterface, "Reapply");
    if (!message)
        return managerNotRunning();
    Steps step;
    step(sd_bus_message_rewind(running, 1));
    step(sd_bus_message_enter_container(running, 'a', "{sa{sv}}"));
    step(sd_bus_message_open_container(message.get(), 'a', "{sa{sv}}"));
    while (step.succeeded && sd_bus_message_enter_container(running, 'e', "sa{sv}") > 0) {
        const char *name = nullptr;
        step(sd_bus_message_read(running, "s", &name));
        step(sd_bus_message_open_container(message.get(), 'e', "sa{sv}"));
        step(sd_bus_message_append(message.get(), "s", name));
        const auto plan = plans.find(name ? name : "");
        if (plan == plans.end()) {
            step(sd_bus_message_copy(message.get(), running, 0));
        } else if (plan->second.connection == running) {
            step(sd_bus_message_enter_container(running, 'a', "{sv}"));
            appendSetting(message.get(), plan->second, step);
            step(sd_bus_message_exit_container(running));
        } else {
            step(sd_bus_message_skip(running, "a{sv}"));
            enterSetting(plan->second.connection, plan->first);
            appendSetting(message.get(), plan->second, step);
        }
        step(sd_bus_message_exit_container(running));
        step(sd_bus_message_close_container(message.get()));
    }
    step(sd_bus_message_exit_container(running));
    step(sd_bus_message_close_container(message.get()));
    std::uint64_t version = 0;
    step(sd_bus_message_read(running, "t", &version));
    step(sd_bus_message_append(message.get(), "tu", version, 0U));
    if (!step.succeeded)
        return {Kind::failed, {}};
    if (send(message, failure))
        applied_.erase(device.name);
    return failure;
}

NetworkPreferencesEditor::Result LinuxPreferencesEditor::enable(const Device &device) {
    const auto found = earlier_.find(device.name);
    const auto earlier = found == earlier_.end() ? Earlier() : found->second;
    Result failure;
    // Without a carrier it cannot be activated, but will be when one comes.
    if (!device.isActive() && device.state != stateUnavailable) {
        Result gone;
        const auto answer = earlier.profileUUID.empty()
                                ? nullptr
                                : call(gone, settingsPath, settingsInterface, "GetConnectionByUuid", "s",
                                       earlier.profileUUID.c_str());
        const char *profile = nullptr;
        if (!answer || sd_bus_message_read(answer.get(), "o", &profile) <= 0)
            profile = "/";
        if (call(failure, managerPath, managerInterface, "ActivateConnection", "ooo", profile,
                 device.path.c_str(), "/"))
            awaited_.push_back(device.name);
    }
    const auto result = setAutoconnect(device, earlier.autoconnect);
    if (failure.kind != Kind::done || result.kind != Kind::done)
        return failure.kind != Kind::done ? failure : result;
    earlier_.erase(device.name);
    disabled_.erase(device.name);
    return {};
}

NetworkPreferencesEditor::Result LinuxPreferencesEditor::disable(const Device &device) {
    // Disabled a second time it has nothing left to remember.
    if (device.isActive() || device.autoconnect != 0)
        earlier_.insert_or_assign(device.name, Earlier{device.profileUUID, device.autoconnect != 0});
    Result failure;
    if (!call(failure, device.path.c_str(), deviceInterface, "Disconnect", "")) {
        // Not active; nor shall it become so with the next carrier.
        if (failure.kind == Kind::notFound)
            failure = setAutoconnect(device, false);
        if (failure.kind != Kind::done)
            return failure;
    }
    disabled_.insert(device.name);
    return {};
}

NetworkPreferencesEditor::Result LinuxPreferencesEditor::setAutoconnect(const Device &device,
                                                                        bool autoconnect) {
    Result failure;
    call(failure, device.path.c_str(), propertiesInterface, "Set", "ssv", deviceInterface, "Autoconnect", "b",
         int{autoconnect});
    return failure;
}

} // namespace tarn
