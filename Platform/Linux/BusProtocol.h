#pragma once

#include "TarnXPC/TarnXPCProtocol.h"

#include <array>
#include <optional>
#include <string>
#include <systemd/sd-bus.h>
#include <variant>

/// What both ends of the daemon's link on the system bus must agree on. The interface has the name of
/// the service.
namespace tarn::BusProtocol {

/// A method; it returns one "s". The signature is as in sd_bus_message_append(3). Bytes that are not
/// there are an empty array.
struct Method {
    const char *name;
    const char *signature;
    /// Of the arguments, then of what is returned, each with a NUL behind it.
    const char *argumentNames;
    /// What it stands for, without arguments.
    TarnXPCProtocol::Call call;
};
/// In the order of TarnXPCProtocol::Call.
extern const std::array<Method, std::variant_size_v<TarnXPCProtocol::Call>> methods;

/// Names of the errors with which the service refuses a call.
inline constexpr const char *busy = "com.veltrion.tarnlink.daemon.Error.Busy";
inline constexpr const char *notAuthorized = "com.veltrion.tarnlink.daemon.Error.NotAuthorized";

/// The only object of a service.
std::string objectPath(const std::string &serviceName);

/// Appends a call's arguments. Returns as sd-bus does; text that the bus would not carry is EINVAL.
int append(sd_bus_message *message, const TarnXPCProtocol::Call &call);
/// The call that a message of one of the methods, of the right signature, asks for.
std::optional<TarnXPCProtocol::Call> read(sd_bus_message *message);

} // namespace tarn::BusProtocol
