#include "TarnSystem/Settings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace tarn {
namespace {

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

/// What a value is as another type; none when it is nothing of the kind.
std::optional<bool> truth(const Value &value) {
    if (const bool *flag = value.boolean())
        return *flag;
    if (const auto *integer = value.integer())
        return *integer != 0;
    if (const double *real = value.real())
        return *real != 0;
    return std::nullopt;
}

std::optional<double> number(const Value &value) {
    if (const double *real = value.real())
        return *real;
    if (const auto *integer = value.integer())
        return static_cast<double>(*integer);
    return std::nullopt;
}

std::optional<std::int64_t> count(const Value &value) {
    if (const auto *integer = value.integer())
        return *integer;
    if (const double *real = value.real())
        return wholeNumber(*real);
    return std::nullopt;
}

template <class... Cases> struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <class... Cases> Overloaded(Cases...) -> Overloaded<Cases...>;

constexpr std::array<std::string_view, 2> tetheringWords = {"disable", "allow"};
constexpr std::array<std::string_view, 3> wifiOffWords = {"address", "service", "radio"};
constexpr std::array<std::string_view, 2> probeWords = {"dns", "off"};

constexpr Setting::Words tethering = {
    tetheringWords,
    [](const DaemonConfig &config) { return tetheringWords[config.disableTetheringWhileWired ? 0 : 1]; },
    [](DaemonConfig &config, std::string_view word) {
        config.disableTetheringWhileWired = word == tetheringWords[0];
    }};
constexpr Setting::Words wifiOff = {
    wifiOffWords, [](const DaemonConfig &config) { return rawValue(config.wifiOffMode); },
    [](DaemonConfig &config, std::string_view word) { config.wifiOffMode = *wifiOffMode(word); }};
constexpr Setting::Words probing = {
    probeWords, [](const DaemonConfig &config) { return rawValue(config.probeMode); },
    [](DaemonConfig &config, std::string_view word) { config.probeMode = *probeMode(word); }};

using Config = DaemonConfig;
constexpr std::array table = {
    Setting{"Enabled", &Config::enabled},
    Setting{"RespectManualWiFiOff", &Config::respectManualWiFiOff},
    Setting{"FlushDNSCacheOnSwitch", &Config::flushDNSCacheOnSwitch},
    Setting{settings::tetheringWhileWired, tethering},
    Setting{settings::tetheringDNSFix, &Config::fixShadowedDNS},
    Setting{settings::splitDNSFix, &Config::fixShadowedDNS, {}, settings::tetheringDNSFix},
    Setting{"WiFiOffMode", wifiOff},
    Setting{"UpdateFeedURL", &Config::updateFeedURL},
    Setting{"UpdateCheck", &Config::updateCheckAllowed},
    Setting{"ProbeMode", probing},
    Setting{"ProbeName", &Config::probeName},
    // An administrator may set the times and the number of failures freely.
    Setting{"ProbeTimeoutSeconds", &Config::probeTimeout},
    Setting{"ProbeIntervalSeconds", &Config::probeInterval},
    Setting{"ProbeFailuresBeforeFallback", &Config::probeFailuresBeforeFallback},
    Setting{"TrafficStallSeconds", &Config::trafficStallSeconds},
    Setting{"EventDebounceSeconds", &Config::eventDebounce},
    Setting{"MaxPauseMinutes", &Config::maxPauseMinutes, Setting::Range{1, 1440}},
};

} // namespace

std::span<const std::string_view> Setting::words() const {
    const auto *word = std::get_if<Words>(&field);
    return word ? word->all : std::span<const std::string_view>();
}

Value Setting::value(const DaemonConfig &config) const {
    return std::visit(
        Overloaded{[&](const Words &word) { return Value(std::string(word.get(config))); },
                   [&](URL DaemonConfig::*address) { return Value((config.*address).absoluteString()); },
                   [&](auto member) { return Value(config.*member); }},
        field);
}

bool Setting::apply(const Value &value, DaemonConfig &config) const {
    const auto take = [](auto &target, auto accepted) {
        if (accepted)
            target = *std::move(accepted);
        return accepted.has_value();
    };
    const auto *string = value.string();
    return std::visit(
        Overloaded{[&](bool DaemonConfig::*member) { return take(config.*member, truth(value)); },
                   [&](const Words &word) {
                       if (!string || std::ranges::find(word.all, *string) == word.all.end())
                           return false;
                       word.set(config, *string);
                       return true;
                   },
                   [&](std::string DaemonConfig::*member) {
                       return take(config.*member, string ? std::optional(*string) : std::nullopt);
                   },
                   [&](URL DaemonConfig::*member) {
                       auto address = string ? URL::parse(*string) : std::nullopt;
                       if (address && address->scheme() != "https")
                           return false;
                       return take(config.*member, std::move(address));
                   },
                   [&](double DaemonConfig::*member) { return take(config.*member, number(value)); },
                   [&](std::int64_t DaemonConfig::*member) {
                       auto whole = count(value);
                       if (whole && range && (*whole < range->lowest || *whole > range->highest))
                           return false;
                       return take(config.*member, whole);
                   }},
        field);
}

std::span<const Setting> settings::all() {
    return table;
}

} // namespace tarn
