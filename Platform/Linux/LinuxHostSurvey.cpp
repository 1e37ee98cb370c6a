#include "Platform/Linux/LinuxHostSurvey.h"

#include "Platform/Linux/ManagedDevice.h"
#include "TarnCore/Text.h"
#include "TarnSystem/Files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <systemd/sd-login.h>
#include <unistd.h>

namespace tarn {
namespace {

// Where the system bus looks for policies (dbus-daemon(1)): the vendor's, and the administrator's.
constexpr std::array policyFolders = {"/usr/share/dbus-1/system.d/", "/etc/dbus-1/system.d/"};

using Owned = std::unique_ptr<char, decltype(&std::free)>;

/// The session of this process, else the one that its user sees; empty without one. polkit goes by the same.
std::string ownSession() {
    char *session = nullptr;
    if (sd_pid_get_session(0, &session) < 0 && sd_uid_get_display(geteuid(), &session) < 0)
        return {};
    const Owned owned(session, std::free);
    return session;
}

bool isGraphical(const std::string &session) {
    char *type = nullptr;
    if (sd_session_get_type(session.c_str(), &type) < 0)
        return false;
    const Owned owned(type, std::free);
    return std::string_view(type) == "x11" || std::string_view(type) == "wayland";
}

std::int64_t filterOf(const std::string &device) {
    const auto file = files::read("/proc/sys/net/ipv4/conf/" + device + "/rp_filter", 16);
    return file.contents ? std::atoi(file.contents->c_str()) : 0;
}

} // namespace

bool LinuxHostSurvey::hasBus() {
    // One that does not answer, or not this user, is there.
    const int error = bus_.update();
    return error != ENOENT && error != ECONNREFUSED;
}

bool LinuxHostSurvey::isRegistered() {
    return std::ranges::any_of(policyFolders, [](const std::string folder) {
        return access((folder + TarnXPC::machServiceName + ".conf").c_str(), F_OK) == 0;
    });
}

std::optional<bool> LinuxHostSurvey::isPublished() {
    return bus_.update() == 0 ? std::optional(daemon_.isRunning) : std::nullopt;
}

std::optional<bool> LinuxHostSurvey::isManaged(const std::string &device) {
    bus_.update();
    const auto path = managedDevice(bus_, manager_, device);
    if (!path)
        return std::nullopt;
    const auto managed =
        bus_.property(manager_, path->c_str(), "org.freedesktop.NetworkManager.Device", "Managed", "b");
    int isManaged = 0;
    if (!managed || sd_bus_message_read(managed.get(), "b", &isManaged) <= 0)
        return std::nullopt;
    return isManaged != 0;
}

bool LinuxHostSurvey::isReversePathStrict(const std::string &device) {
    // The higher of the two counts: 0 none, 1 strict, 2 loose.
    return std::max(filterOf("all"), filterOf(device)) == 1;
}

std::optional<bool> LinuxHostSurvey::hasAuthenticationAgent() {
    const auto session = ownSession();
    if (session.empty() || !isGraphical(session) || bus_.update() != 0)
        return std::nullopt;
    // polkit tells of agents to nobody, but refuses a second one, and after that one whose object has no
    // valid path. So this registers nothing.
    const auto call = bus_.newCall(polkit_, "/org/freedesktop/PolicyKit1/Authority",
                                   "org.freedesktop.PolicyKit1.Authority", "RegisterAuthenticationAgent");
    if (!call || sd_bus_message_append(call.get(), "(sa{sv})ss", "unix-session", 1, "session-id", "s",
                                       session.c_str(), "C", "no path") < 0)
        return std::nullopt;
    BusFailure failure;
    if (bus_.send(call, std::chrono::milliseconds(900), &failure))
        return std::nullopt;
    if (failure.message.find("already exists") != std::string::npos)
        return true;
    return failure.message.find("object path") != std::string::npos ? std::optional(false) : std::nullopt;
}

} // namespace tarn
