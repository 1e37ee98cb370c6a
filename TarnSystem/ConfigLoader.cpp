#include "TarnSystem/ConfigLoader.h"

#include <cmath>
#include <limits>

namespace tarn::ConfigLoader {
namespace {

constexpr const char *tetheringKey = "TetheringWhileWired";
// Two names for one setting; the second is read later and wins.
constexpr const char *dnsFixKey = "TetheringDNSFix";
constexpr const char *splitDNSFixKey = "SplitDNSFix";

std::int64_t wholeNumber(double number) {
    using Limits = std::numeric_limits<std::int64_t>;
    // 2^63 is the first double that does not fit.
    constexpr double bound = 9223372036854775808.0;
    if (std::isnan(number))
        return 0;
    if (number >= bound)
        return Limits::max();
    if (number < -bound)
        return Limits::min();
    return static_cast<std::int64_t>(number);
}

/// The preferences of the domain, one key at a time; what has another type is absent.
class Reader {
public:
    explicit Reader(Preferences &preferences) : preferences_(preferences) {}

    std::optional<std::string> text(const char *key) const {
        const auto value = preferences_.copyAppValue(key, applicationID);
        if (!value || !value->string())
            return std::nullopt;
        return *value->string();
    }

    void truth(const char *key, bool &field) const {
        const auto value = preferences_.copyAppValue(key, applicationID);
        if (!value)
            return;
        if (const bool *flag = value->boolean())
            field = *flag;
        else if (const auto *integer = value->integer())
            field = *integer != 0;
        else if (const double *real = value->real())
            field = *real != 0;
    }

    void number(const char *key, double &field) const {
        const auto value = preferences_.copyAppValue(key, applicationID);
        if (!value)
            return;
        if (const double *real = value->real())
            field = *real;
        else if (const auto *integer = value->integer())
            field = static_cast<double>(*integer);
    }

    std::optional<std::int64_t> integer(const char *key) const {
        const auto value = preferences_.copyAppValue(key, applicationID);
        if (value && value->integer())
            return *value->integer();
        if (value && value->real())
            return wholeNumber(*value->real());
        return std::nullopt;
    }

private:
    Preferences &preferences_;
};

void applyPreferences(Preferences &preferences, DaemonConfig &config) {
    const Reader reader(preferences);
    reader.truth("Enabled", config.enabled);
    reader.truth("RespectManualWiFiOff", config.respectManualWiFiOff);
    reader.truth("FlushDNSCacheOnSwitch", config.flushDNSCacheOnSwitch);
    if (const auto word = reader.text(tetheringKey)) {
        if (*word == "allow")
            config.disableTetheringWhileWired = false;
        else if (*word == "disable")
            config.disableTetheringWhileWired = true;
    }
    reader.truth(dnsFixKey, config.fixShadowedDNS);
    reader.truth(splitDNSFixKey, config.fixShadowedDNS);
    if (const auto word = reader.text("WiFiOffMode"))
        config.wifiOffMode = wifiOffMode(*word).value_or(config.wifiOffMode);
    if (const auto address = reader.text("UpdateFeedURL"))
        if (auto url = URL::parse(*address); url && url->scheme() == "https")
            config.updateFeedURL = *std::move(url);
    reader.truth("UpdateCheck", config.updateCheckAllowed);
    if (const auto word = reader.text("ProbeMode"))
        config.probeMode = probeMode(*word).value_or(config.probeMode);
    if (auto name = reader.text("ProbeName"))
        config.probeName = *std::move(name);
    reader.number("ProbeTimeoutSeconds", config.probeTimeout);
    reader.number("ProbeIntervalSeconds", config.probeInterval);
    if (const auto count = reader.integer("ProbeFailuresBeforeFallback"))
        config.probeFailuresBeforeFallback = *count;
    reader.number("TrafficStallSeconds", config.trafficStallSeconds);
    reader.number("EventDebounceSeconds", config.eventDebounce);
    if (const auto minutes = reader.integer("MaxPauseMinutes"); minutes && *minutes >= 1 && *minutes <= 1440)
        config.maxPauseMinutes = *minutes;
}

void applyArguments(const std::vector<std::string> &arguments, DaemonConfig &config) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const auto &argument = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (argument == "--dry-run") {
            config.dryRun = true;
        } else if (argument == "--once") {
            config.once = true;
        } else if (argument == "--disabled") {
            config.enabled = false;
        } else if (argument == "--probe-mode" && hasValue) {
            // Another word is no value of this option and is looked at as the next argument.
            if (const auto mode = probeMode(arguments[i + 1])) {
                config.probeMode = *mode;
                ++i;
            }
        } else if (argument == "--probe-name" && hasValue) {
            config.probeName = arguments[++i];
        }
    }
}

} // namespace

DaemonConfig load(Preferences &preferences, const std::vector<std::string> &arguments) {
    DaemonConfig config;
    preferences.refresh(applicationID);
    applyPreferences(preferences, config);
    applyArguments(arguments, config);
    return config;
}

bool writeLocalBool(Preferences &preferences, bool value, const std::string &forKey) {
    preferences.setMachineValue(forKey, value, applicationID);
    return preferences.synchronizeMachine(applicationID);
}

bool writeLocalTetheringWhileWired(Preferences &preferences, bool allow) {
    preferences.setMachineValue(tetheringKey, allow ? "allow" : "disable", applicationID);
    return preferences.synchronizeMachine(applicationID);
}

bool writeLocalTetheringDNSFix(Preferences &preferences, bool enabled) {
    if (preferences.copyAppValue(splitDNSFixKey, applicationID))
        preferences.setMachineValue(splitDNSFixKey, enabled, applicationID);
    return writeLocalBool(preferences, enabled, dnsFixKey);
}

bool isTetheringWhileWiredForced(Preferences &preferences) {
    return preferences.isForced(tetheringKey, applicationID);
}

bool isTetheringDNSFixForced(Preferences &preferences) {
    return preferences.isForced(dnsFixKey, applicationID) ||
           preferences.isForced(splitDNSFixKey, applicationID);
}

} // namespace tarn::ConfigLoader
