#include "Platform/Linux/ResolvedLink.h"

#include "TarnSystem/IPAddress.h"

#include <net/if.h>
#include <sys/socket.h>

namespace tarn {

std::optional<std::string> ResolvedLink::setServers(const std::string &device,
                                                    const std::vector<std::string> &servers) {
    const unsigned index = if_nametoindex(device.c_str());
    if (index == 0)
        return "There is no device " + device + ".";
    bus_.update();
    const auto call = bus_.newCall(resolved_, "/org/freedesktop/resolve1", "org.freedesktop.resolve1.Manager",
                                   "SetLinkDNS");
    if (!call)
        return "systemd-resolved is not running.";
    sd_bus_message_append(call.get(), "i", static_cast<int>(index));
    sd_bus_message_open_container(call.get(), 'a', "(iay)");
    for (const auto &server : servers) {
        // The device says what is behind a link-local address.
        const auto percent = server.find('%');
        const auto zone = percent == std::string::npos ? device : server.substr(percent + 1);
        const auto address = IPAddress::parse(server.substr(0, percent));
        if (!address || (zone != device && zone != std::to_string(index)))
            return server + " is not the address of a name server on " + device + ".";
        sd_bus_message_open_container(call.get(), 'r', "iay");
        sd_bus_message_append(call.get(), "i", address->isIPv6 ? AF_INET6 : AF_INET);
        sd_bus_message_append_array(call.get(), 'y', address->bytes.data(), address->isIPv6 ? 16 : 4);
        sd_bus_message_close_container(call.get());
    }
    sd_bus_message_close_container(call.get());
    BusFailure failure;
    const bool isDone = bus_.send(call, &failure) != nullptr;
    // Also after a failure: an answer that comes too late does not say what was done.
    news_.arrive();
    if (isDone)
        return std::nullopt;
    return failure.message.empty() ? failure.name : failure.message;
}

} // namespace tarn
