#pragma once

#include "TarnSystem/URL.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// How a wired path is verified.
enum class ProbeMode {
    dns, ///< By a DNS query through the interface.
    off, ///< Not at all: every addressed wired path counts as verified.
};
std::string_view rawValue(ProbeMode mode);
std::optional<ProbeMode> probeMode(std::string_view rawValue);

/// What "Wi-Fi off" does.
enum class WiFiOffMode {
    address, ///< The Wi-Fi service loses its addresses; the radio stays on.
    service, ///< The Wi-Fi network service is disabled.
    radio,   ///< The radio loses its power.
};
std::string_view rawValue(WiFiOffMode mode);
std::optional<WiFiOffMode> wifiOffMode(std::string_view rawValue);

/// Every tunable of the protection. A new one holds the defaults.
struct DaemonConfig {
    bool enabled = true;
    ProbeMode probeMode = ProbeMode::dns;
    /// Name that the probe asks for. Nobody can own a name below "invalid" (RFC 6761, section 6.4).
    std::string probeName = "tarnlink.probe.invalid";
    /// Seconds allowed for one probe.
    double probeTimeout = 2.0;
    /// Seconds between probes of a path.
    double probeInterval = 10.0;
    /// Failed probes in a row before a wired path counts as broken.
    std::int64_t probeFailuresBeforeFallback = 3;
    /// Seconds of sending without receiving before a probe is sent at once.
    double trafficStallSeconds = 30.0;
    /// Seconds over which network changes are gathered.
    double eventDebounce = 0.3;
    /// Wi-Fi that the user switched off stays off while there is no wired path.
    bool respectManualWiFiOff = true;
    bool flushDNSCacheOnSwitch = true;
    /// Longest pause that an administrator may ask for, in minutes.
    std::int64_t maxPauseMinutes = 240;
    bool disableTetheringWhileWired = true;
    WiFiOffMode wifiOffMode = WiFiOffMode::address;
    /// Move a tethering device's resolver behind the others where it shadows a domain.
    bool fixShadowedDNS = true;
    URL updateFeedURL = defaultUpdateFeedURL();
    bool updateCheckAllowed = true;
    /// Decide without carrying anything out.
    bool dryRun = false;
    /// Stop after a single evaluation.
    bool once = false;

    /// The manifest address on the vendor's download host, set when the build is configured.
    static URL defaultUpdateFeedURL();

    /// One line of name=value pairs for the log.
    std::string describe() const;

    friend bool operator==(const DaemonConfig &, const DaemonConfig &) = default;
};

} // namespace tarn
