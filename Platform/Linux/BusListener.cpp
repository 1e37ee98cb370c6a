#include "Platform/Linux/BusListener.h"

#include "Platform/Linux/BusProtocol.h"
#include "Platform/Linux/ProcessStart.h"

#include <cerrno>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using Told = std::function<void(std::optional<ProcessIdentity>)>;

/// A caller that has gone by now, or a bus, costs nothing: what cannot be sent is dropped.
void send(sd_bus_message *call, const RemoteAnswer &answer) {
    int result = 0;
    switch (answer.refusal) {
    case RemoteAnswer::Refusal::none:
        result = sd_bus_reply_method_return(call, "s", answer.bytes.c_str());
        break;
    case RemoteAnswer::Refusal::busy:
        result = sd_bus_reply_method_errorf(call, BusProtocol::busy, "%s", answer.message.c_str());
        break;
    case RemoteAnswer::Refusal::notAuthorized:
        result = sd_bus_reply_method_errorf(call, BusProtocol::notAuthorized, "%s", answer.message.c_str());
        break;
    }
    if (result < 0)
        sd_bus_reply_method_errno(call, result, nullptr);
}

/// Who the bus says has the connection, a{sv} (dbus-daemon, GetConnectionCredentials).
std::optional<ProcessIdentity> identityIn(sd_bus_message *credentials) {
    ProcessIdentity identity;
    bool hasUser = false;
    if (sd_bus_message_is_method_error(credentials, nullptr) > 0 ||
        sd_bus_message_enter_container(credentials, 'a', "{sv}") <= 0)
        return std::nullopt;
    while (sd_bus_message_enter_container(credentials, 'e', "sv") > 0) {
        const char *key = "";
        std::uint32_t number = 0;
        if (sd_bus_message_read(credentials, "s", &key) <= 0)
            return std::nullopt;
        const std::string_view name = key;
        const bool isUser = name == "UnixUserID";
        if (!isUser && name != "ProcessID") {
            if (sd_bus_message_skip(credentials, "v") < 0)
                return std::nullopt;
        } else if (sd_bus_message_read(credentials, "v", "u", &number) <= 0) {
            return std::nullopt;
        } else if (isUser) {
            identity.uid = number;
            hasUser = true;
        } else {
            identity.pid = static_cast<std::int32_t>(number);
        }
        sd_bus_message_exit_container(credentials);
    }
    // The bus does not know processes of other process namespaces.
    if (!hasUser || identity.pid <= 0)
        return std::nullopt;
    const auto started = processStart(identity.pid);
    if (!started)
        return std::nullopt;
    identity.startTime = *started;
    return identity;
}

/// Somebody waits to be told who called.
struct Asked {
    Told told;
    std::weak_ptr<BusListener *> listener;
    EventLoop &loop;
};

void tellNothing(Asked &asked) {
    asked.loop.post([listener = asked.listener, told = std::move(asked.told)] {
        if (!listener.expired())
            told(std::nullopt);
    });
}

} // namespace

int BusListener::take(sd_bus_message *message, void *self, sd_bus_error *) {
    const auto call = BusProtocol::read(message);
    if (!call)
        return -EBADMSG;
    const Message kept(sd_bus_message_ref(message), sd_bus_message_unref);
    auto &listener = *static_cast<BusListener *>(self);
    listener.service_->call(listener.callerOf(kept), *call,
                            [kept](const RemoteAnswer &answer) { send(kept.get(), answer); });
    return 1;
}

void BusListener::start(const std::string &serviceName, const std::string &, RemoteService &service) {
    name_ = serviceName;
    service_ = &service;
    bus_.emplace(
        loop_, [this](sd_bus *bus) { return publish(bus); },
        [this](const std::string &reason) {
            if (!std::exchange(isFailureSaid_, true))
                log_.write(Log::Level::error, "link",
                           "no clients, " + name_ + " is not on the system bus: " + reason +
                               "; is tried again");
        });
    if (const auto path = LoopBus::socketPath(); !path.empty())
        socket_.emplace(
            loop_, std::vector{path}, [](std::string_view) { return false; },
            [this] {
                // The file comes a moment before the bus listens.
                bus_->succeeded();
                bus_->open();
            });
    bus_->open();
}

int BusListener::publish(sd_bus *bus) {
    static const auto table = [] {
        std::vector<sd_bus_vtable> entries = {SD_BUS_VTABLE_START(0)};
        // Whom the bus lets through may call; the service itself says what they may.
        for (const auto &method : BusProtocol::methods)
            entries.push_back(SD_BUS_METHOD_WITH_NAMES(method.name, method.signature, method.argumentNames,
                                                       "s", , take, SD_BUS_VTABLE_UNPRIVILEGED));
        entries.push_back(SD_BUS_VTABLE_END);
        return entries;
    }();
    const int result = sd_bus_add_object_vtable(bus, nullptr, BusProtocol::objectPath(name_).c_str(),
                                                name_.c_str(), table.data(), this);
    if (result < 0)
        return result;
    return sd_bus_request_name_async(bus, nullptr, name_.c_str(), 0, named, this);
}

int BusListener::named(sd_bus_message *reply, void *self, sd_bus_error *) {
    constexpr std::uint32_t primaryOwner = 1; // DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER
    auto &listener = *static_cast<BusListener *>(self);
    std::uint32_t outcome = 0;
    if (const auto *error = sd_bus_message_get_error(reply))
        listener.bus_->giveUp(error->message ? error->message : error->name);
    else if (sd_bus_message_read(reply, "u", &outcome) <= 0 || outcome != primaryOwner)
        listener.bus_->giveUp("another program has the name");
    else {
        listener.bus_->succeeded();
        if (std::exchange(listener.isFailureSaid_, false))
            listener.log_.write(Log::Level::info, "link", listener.name_ + " is on the system bus now");
    }
    return 0;
}

RemoteCaller BusListener::callerOf(const Message &call) {
    RemoteCaller caller;
    caller.client = sd_bus_message_get_sender(call.get());
    caller.identify = [self = std::weak_ptr(self_), call](Told told) {
        if (const auto listener = self.lock())
            (*listener)->identify(call.get(), std::move(told));
    };
    return caller;
}

void BusListener::identify(sd_bus_message *call, Told told) {
    const auto answered = [](sd_bus_message *reply, void *data, sd_bus_error *) {
        std::exchange(static_cast<Asked *>(data)->told, {})(identityIn(reply));
        return 0;
    };
    // Also when the connection ends before an answer.
    const auto forget = [](void *data) {
        const std::unique_ptr<Asked> ended(static_cast<Asked *>(data));
        if (ended->told)
            tellNothing(*ended);
    };
    auto asked = std::make_unique<Asked>(Asked{std::move(told), self_, loop_});
    sd_bus_slot *slot = nullptr;
    // Another bus gives the same names to others.
    if (bus_->get() == sd_bus_message_get_bus(call) &&
        sd_bus_call_method_async(bus_->get(), &slot, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus", "GetConnectionCredentials", answered, asked.get(),
                                 "s", sd_bus_message_get_sender(call)) >= 0) {
        // Freed when it was answered, and with the connection when it never is.
        sd_bus_slot_set_destroy_callback(slot, forget);
        sd_bus_slot_set_floating(slot, 1);
        sd_bus_slot_unref(slot);
        [[maybe_unused]] const auto *kept = asked.release();
        return;
    }
    tellNothing(*asked);
}

} // namespace tarn
