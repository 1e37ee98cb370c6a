#include "Platform/Linux/BusSignals.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace tarn {
namespace {

using namespace std::chrono_literals;

constexpr auto firstPause = 1s;
constexpr auto longestPause = 60s;

constexpr const char *properties = "type='signal',interface='org.freedesktop.DBus.Properties',"
                                   "member='PropertiesChanged',";
constexpr const char *owners = "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                               "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='";

int addMatch(sd_bus *bus, const std::string &rule, sd_bus_message_handler_t handler, void *data) {
    // What changed before the rule was in force is told when it is.
    return sd_bus_add_match_async(bus, nullptr, rule.c_str(), handler, handler, data);
}

} // namespace

BusSignals::BusSignals(EventLoop &loop, BusNews &news, std::function<void()> changed)
    : loop_(loop), news_(news), changed_(std::move(changed)), pause_(firstPause) {}

BusSignals::~BusSignals() {
    setListening(false);
    loop_.cancel(retry_);
}

std::string BusSignals::socketPath() {
    const char *address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (!address)
        return "/run/dbus/system_bus_socket";
    constexpr std::string_view prefix = "unix:path=";
    const std::string_view text(address);
    if (!text.starts_with(prefix))
        return {};
    return std::string(text.substr(prefix.size(), text.find_first_of(",;") - prefix.size()));
}

void BusSignals::open() {
    if (bus_)
        return;
    loop_.cancel(std::exchange(retry_, 0));
    const auto told = [](sd_bus_message *, void *self, sd_bus_error *) {
        auto &signals = *static_cast<BusSignals *>(self);
        signals.pause_ = firstPause;
        signals.news_.arrive();
        signals.changed_();
        return 0;
    };
    const auto gone = [](sd_bus_message *, void *self, sd_bus_error *) {
        // The connection cannot be dropped while it calls.
        auto &signals = *static_cast<BusSignals *>(self);
        signals.loop_.cancel(std::exchange(signals.retry_, 0));
        signals.retry_ = signals.loop_.postAfter(0s, [&signals] {
            signals.retry_ = 0;
            signals.lost();
        });
        return 0;
    };
    sd_bus *bus = nullptr;
    int result = sd_bus_open_system(&bus);
    if (result == -ENOENT)
        return;
    if (result >= 0) {
        bus_.reset(bus);
        result = sd_bus_attach_event(bus, loop_.event(), SD_EVENT_PRIORITY_NORMAL);
    }
    if (result >= 0)
        result = sd_bus_match_signal_async(bus, nullptr, "org.freedesktop.DBus.Local", nullptr,
                                           "org.freedesktop.DBus.Local", "Disconnected", gone, nullptr, this);
    for (const char *path : {"/org/freedesktop/resolve1", "/org/freedesktop/NetworkManager",
                             "/org/freedesktop/NetworkManager/DnsManager"})
        if (result >= 0)
            result = addMatch(bus, properties + ("path='" + std::string(path) + "'"), told, this);
    // That a connection ends, and whose it is, shows on objects that come and go.
    for (const char *interface : {"Connection.Active", "Device"})
        if (result >= 0)
            result = addMatch(bus,
                              properties + ("path_namespace='/org/freedesktop/NetworkManager',"
                                            "arg0='org.freedesktop.NetworkManager." +
                                            std::string(interface) + "'"),
                              told, this);
    for (const char *name : {"org.freedesktop.resolve1", "org.freedesktop.NetworkManager"})
        if (result >= 0)
            result = addMatch(bus, owners + std::string(name) + "'", told, this);
    if (result < 0)
        lost();
    else
        setListening(true);
}

void BusSignals::setListening(bool isListening) {
    if (std::exchange(isListening_, isListening) == isListening)
        return;
    if (isListening)
        news_.beginListening();
    else
        news_.endListening();
}

void BusSignals::lost() {
    const bool wasOpen = bus_ != nullptr;
    setListening(false);
    bus_.reset();
    retry_ = loop_.postAfter(pause_, [this] {
        retry_ = 0;
        open();
    });
    pause_ = std::min<std::chrono::seconds>(pause_ * 2, longestPause);
    if (wasOpen)
        changed_();
}

} // namespace tarn
