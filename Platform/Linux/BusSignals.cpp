#include "Platform/Linux/BusSignals.h"

#include <utility>

namespace tarn {
namespace {

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
    : news_(news), changed_(std::move(changed)), bus_(
                                                     loop, [this](sd_bus *bus) { return subscribe(bus); },
                                                     [this](const std::string &) {
                                                         if (setListening(false))
                                                             changed_();
                                                     }) {}

BusSignals::~BusSignals() {
    setListening(false);
}

int BusSignals::subscribe(sd_bus *bus) {
    const auto told = [](sd_bus_message *, void *self, sd_bus_error *) {
        auto &signals = *static_cast<BusSignals *>(self);
        signals.bus_.succeeded();
        signals.news_.arrive();
        signals.changed_();
        return 0;
    };
    int result = 0;
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
    if (result >= 0)
        setListening(true);
    return result;
}

bool BusSignals::setListening(bool isListening) {
    if (std::exchange(isListening_, isListening) == isListening)
        return false;
    if (isListening)
        news_.beginListening();
    else
        news_.endListening();
    return true;
}

} // namespace tarn
