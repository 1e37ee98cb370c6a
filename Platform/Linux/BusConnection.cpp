#include "Platform/Linux/BusConnection.h"

#include <cerrno>
#include <cstdint>
#include <string_view>

namespace tarn {

int BusConnection::update() {
    for (auto *service : services_)
        service->isSilent = false;
    if (bus_) {
        // Names that came or went since the last time.
        int progress = 0;
        while ((progress = sd_bus_process(bus_.get(), nullptr)) > 0) {
        }
        if (progress < 0)
            close();
    }
    return bus_ ? 0 : open();
}

int BusConnection::open() {
    sd_bus *bus = nullptr;
    const int result = sd_bus_open_system(&bus);
    if (result < 0)
        return -result;
    bus_.reset(bus);
    sd_bus_set_method_call_timeout(bus, limit_);
    int error = becomeReady();
    for (auto *service : services_)
        if (error == 0)
            error = watch(*service);
    if (error != 0)
        close();
    return error;
}

int BusConnection::becomeReady() {
    // A call would wait for the greeting without a limit.
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::microseconds(limit_);
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

void BusConnection::close() {
    bus_.reset();
    for (auto *service : services_) {
        service->isRunning = false;
        ++service->changes;
    }
}

int BusConnection::watch(BusService &service) {
    const std::string rule =
        std::string("type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                    "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='") +
        service.name + "'";
    const auto ownerChanged = [](sd_bus_message *signal, void *data, sd_bus_error *) {
        const char *name = nullptr;
        const char *before = nullptr;
        const char *after = nullptr;
        auto &changed = *static_cast<BusService *>(data);
        if (sd_bus_message_read(signal, "sss", &name, &before, &after) > 0) {
            changed.isRunning = *after != '\0';
            ++changed.changes;
        }
        return 0;
    };
    int result = sd_bus_add_match(bus_.get(), nullptr, rule.c_str(), ownerChanged, &service);
    if (result >= 0) {
        sd_bus_message *reply = nullptr;
        int owned = 0;
        result =
            sd_bus_call_method(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "NameHasOwner", nullptr, &reply, "s", service.name);
        const BusMessage owner(reply);
        if (result >= 0)
            result = sd_bus_message_read(owner.get(), "b", &owned);
        service.isRunning = owned != 0;
    }
    return result < 0 ? -result : 0;
}

BusMessage BusConnection::newCall(const BusService &service, const char *path, const char *interface,
                                  const char *method) {
    if (!bus_ || !(service.isRunning || service.startsOnDemand) || service.isSilent)
        return nullptr;
    sd_bus_message *message = nullptr;
    if (sd_bus_message_new_method_call(bus_.get(), &message, service.name, path, interface, method) < 0)
        return nullptr;
    BusMessage call(message);
    if (sd_bus_message_set_auto_start(message, service.startsOnDemand) < 0)
        return nullptr;
    return call;
}

BusMessage BusConnection::send(const BusMessage &call, BusFailure *failure) {
    return send(call, std::chrono::microseconds(limit_), failure);
}

BusMessage BusConnection::send(const BusMessage &call, std::chrono::microseconds limit, BusFailure *failure) {
    sd_bus_error error{};
    sd_bus_message *reply = nullptr;
    const int result =
        sd_bus_call(bus_.get(), call.get(), static_cast<std::uint64_t>(limit.count()), &error, &reply);
    if (result < 0 && failure)
        *failure = {error.name ? error.name : "", error.message ? error.message : ""};
    sd_bus_error_free(&error);
    const std::string_view destination = sd_bus_message_get_destination(call.get());
    for (auto *service : services_)
        if (result == -ETIMEDOUT && service->name == destination)
            service->isSilent = true;
    return BusMessage(result < 0 ? nullptr : reply);
}

BusMessage BusConnection::property(const BusService &service, const char *path, const char *interface,
                                   const char *property, const char *type) {
    const auto call = newCall(service, path, "org.freedesktop.DBus.Properties", "Get");
    if (!call || sd_bus_message_append(call.get(), "ss", interface, property) < 0)
        return nullptr;
    auto answer = send(call);
    if (!answer || sd_bus_message_enter_container(answer.get(), 'v', type) <= 0)
        return nullptr;
    return answer;
}

BusMessage BusConnection::properties(const BusService &service, const char *path, const char *interface) {
    const auto call = newCall(service, path, "org.freedesktop.DBus.Properties", "GetAll");
    if (!call || sd_bus_message_append(call.get(), "s", interface) < 0)
        return nullptr;
    return send(call);
}

} // namespace tarn
