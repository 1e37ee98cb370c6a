#pragma once

#include "TarnCore/DateText.h"
#include "TarnCore/InterfaceSnapshot.h"
#include "TarnCore/Status.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What the daemon answers. Plain values; TarnXPCCoding turns them into bytes and back.
///
/// A record that lacks a key is still usable where that says something sensible about an older daemon:
/// the initial values here are what a missing or null key means, and keys without one are mandatory.
namespace tarn {

/// One network interface, for people.
struct InterfaceSummary {
    /// Interface name such as "en0". Mandatory, like the three after it.
    std::string device;
    std::string serviceName;
    InterfaceKind kind = InterfaceKind::other;
    bool linkActive = false;
    /// Routable; absent without one.
    std::optional<std::string> address;

    /// The address is the first routable IPv4 one, else the first routable IPv6 one.
    static InterfaceSummary of(const InterfaceSnapshot &snapshot);

    friend bool operator==(const InterfaceSummary &, const InterfaceSummary &) = default;
};

/// The daemon's whole state.
struct StatusReport {
    /// The daemon's version.
    std::string version = "?";
    /// Mandatory.
    Status status;
    /// One English line.
    std::string reason = {};
    /// Wi-Fi can carry traffic.
    bool wifiOn = true;
    /// Wi-Fi is off because the user switched it off, and that is respected.
    bool wifiManuallyOff = false;
    /// End of a pause; absent without one.
    std::optional<Date> pausedUntil = {};
    /// The protection is in force by configuration.
    bool enabled = true;
    std::vector<InterfaceSummary> interfaces = {};
    /// When the report was made; when it was read, where it does not say.
    Date generatedAt = {};
    bool tetheringWhileWiredAllowed = false;
    bool updateCheckAllowed = true;
    std::optional<std::string> updateFeedURL = {};
    bool tetheringDNSFix = true;
    /// The tunnel that is up; absent without one.
    std::optional<std::string> vpnDevice = {};
    std::optional<std::string> vpnAddress = {};

    friend bool operator==(const StatusReport &, const StatusReport &) = default;
};

/// The answer to a wish to pause or to go on.
struct PauseResult {
    /// It was carried out. Mandatory.
    bool granted = false;
    /// A word for programs, such as "denied.admin".
    std::string code = {};
    /// For people, from the daemon.
    std::string message = {};
    /// End of the pause now in force; absent without one.
    std::optional<Date> pausedUntil = {};
    /// A number that belongs to the code.
    std::optional<std::int64_t> argument = {};

    friend bool operator==(const PauseResult &, const PauseResult &) = default;
};

/// The answer to a change of a setting.
struct SettingResult {
    bool ok = false;
    std::string code = {};

    friend bool operator==(const SettingResult &, const SettingResult &) = default;
};

/// The answer to the hand-over of an update and to the question how it goes.
struct UpdateResult {
    bool ok = false;
    std::string code = {};
    std::string message = {};
    /// The build that is installed, or being installed.
    std::optional<std::int64_t> build = {};

    friend bool operator==(const UpdateResult &, const UpdateResult &) = default;
};

} // namespace tarn
