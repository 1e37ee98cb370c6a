#include "Platform/Linux/SystemdRegistration.h"

#include "Platform/Linux/BusConnection.h"

#include <cerrno>
#include <chrono>
#include <system_error>

namespace tarn {
namespace {

constexpr const char *unit = "tarnlink.service";
constexpr std::chrono::milliseconds limit{250};

} // namespace

std::optional<RegistrationState> SystemdRegistration::state() {
    // Seldom asked, and on any thread: a connection for each call.
    BusService systemd{.name = "org.freedesktop.systemd1"};
    BusConnection bus({&systemd}, limit);
    if (bus.update() != 0)
        return std::nullopt;
    // org.freedesktop.systemd1(5).
    const auto call = bus.newCall(systemd, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager",
                                  "GetUnitFileState");
    if (!call || sd_bus_message_append(call.get(), "s", unit) < 0)
        return std::nullopt;
    BusFailure failure;
    const auto answer = bus.send(call, &failure);
    if (!answer)
        return failure.name == "org.freedesktop.DBus.Error.FileNotFound"
                   ? std::optional(RegistrationState::notFound)
                   : std::nullopt;
    const char *word = nullptr;
    return sd_bus_message_read(answer.get(), "s", &word) > 0 ? std::optional(registrationOfUnit(word))
                                                             : std::nullopt;
}

std::optional<std::string> SystemdRegistration::registerDaemon() {
    return std::generic_category().message(EPERM);
}

std::optional<std::string> SystemdRegistration::unregisterDaemon() {
    return std::generic_category().message(EPERM);
}

std::optional<std::string> SystemdRegistration::administratorCommand(RegistrationState state) const {
    return commandForUnit(state, unit);
}

} // namespace tarn
