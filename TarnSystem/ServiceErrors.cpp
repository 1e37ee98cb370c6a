#include "TarnSystem/ServiceErrors.h"

#include <array>
#include <utility>

namespace tarn {
namespace {

using Result = NetworkPreferencesEditor::Result;
using Kind = Result::Kind;

} // namespace

Kind managerErrorKind(std::string_view name) {
    constexpr std::array<std::pair<std::string_view, Kind>, 15> table = {{
        {"org.freedesktop.NetworkManager.Device.VersionIdMismatch", Kind::stale},
        {"org.freedesktop.DBus.Error.AccessDenied", Kind::denied},
        {"org.freedesktop.DBus.Error.InteractiveAuthorizationRequired", Kind::denied},
        {"org.freedesktop.DBus.Error.ServiceUnknown", Kind::unavailable},
        {"org.freedesktop.DBus.Error.NameHasNoOwner", Kind::unavailable},
        {"org.freedesktop.DBus.Error.NoReply", Kind::unavailable},
        {"org.freedesktop.DBus.Error.Timeout", Kind::unavailable},
        {"org.freedesktop.DBus.Error.Disconnected", Kind::unavailable},
        // What sd-bus makes of a connection that broke.
        {"System.Error.ENOTCONN", Kind::unavailable},
        {"org.freedesktop.NetworkManager.UnknownDevice", Kind::notFound},
        {"org.freedesktop.NetworkManager.UnknownConnection", Kind::notFound},
        {"org.freedesktop.NetworkManager.Device.NotActive", Kind::notFound},
        {"org.freedesktop.NetworkManager.ConnectionNotActive", Kind::notFound},
        {"org.freedesktop.DBus.Error.UnknownObject", Kind::notFound},
        // NetworkManager's answer for an object that is gone.
        {"org.freedesktop.DBus.Error.UnknownMethod", Kind::notFound},
    }};
    for (const auto &[error, kind] : table)
        if (error == name)
            return kind;
    // Each interface of NetworkManager has a refusal of its own.
    const bool isRefusal =
        name.starts_with("org.freedesktop.NetworkManager.") && name.ends_with(".PermissionDenied");
    return isRefusal ? Kind::denied : Kind::failed;
}

Kind scStatusKind(int status) {
    switch (status) {
    case 3002: // kSCStatusPrefsBusy
    case 1006: // kSCStatusLocked
        return Kind::busy;
    case 3005: // kSCStatusStale
        return Kind::stale;
    case 1004: // kSCStatusNoKey
        return Kind::notFound;
    case 1003: // kSCStatusAccessError
        return Kind::denied;
    case 2001: // kSCStatusNoStoreSession
    case 2002: // kSCStatusNoStoreServer
    case 3001: // kSCStatusNoPrefsSession
        return Kind::unavailable;
    default:
        return Kind::failed;
    }
}

Result managerNotRunning() {
    return {Kind::unavailable, "NetworkManager is not running."};
}

Result deviceNotManaged(const std::string &device) {
    return {Kind::unavailable, "NetworkManager does not manage " + device + "."};
}

Result noSuchService(const std::string &serviceID) {
    return {Kind::notFound, "There is no service " + serviceID + "."};
}

Result notActivating(const std::string &device) {
    return {Kind::failed, "NetworkManager does not activate " + device + "."};
}

Result orderNotPossible() {
    return {Kind::failed, "The metrics of routes that cannot be changed stand in the way of this order."};
}

Result configurationNotUsable() {
    return {Kind::failed, "The configuration is not usable on this system."};
}

} // namespace tarn
