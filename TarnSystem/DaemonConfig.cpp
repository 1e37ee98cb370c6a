#include "TarnSystem/DaemonConfig.h"

#include "TarnCore/Text.h"
#include "TarnSystem/VendorHosts.h"

#include <initializer_list>

namespace tarn {
namespace {

template <class Enum> std::optional<Enum> fromRaw(std::initializer_list<Enum> cases, std::string_view raw) {
    for (const Enum candidate : cases)
        if (rawValue(candidate) == raw)
            return candidate;
    return std::nullopt;
}

class Line {
public:
    void add(std::string_view name, std::string_view value) {
        if (!text_.empty())
            text_ += ' ';
        text_.append(name).append("=").append(value);
    }
    void add(std::string_view name, const char *value) { add(name, std::string_view(value)); }
    void add(std::string_view name, bool value) { add(name, value ? "true" : "false"); }
    void add(std::string_view name, double value) { add(name, text::fromDouble(value)); }
    void add(std::string_view name, std::int64_t value) { add(name, std::to_string(value)); }

    std::string take() { return std::move(text_); }

private:
    std::string text_;
};

} // namespace

std::string_view rawValue(ProbeMode mode) {
    return mode == ProbeMode::dns ? "dns" : "off";
}

std::optional<ProbeMode> probeMode(std::string_view raw) {
    return fromRaw({ProbeMode::dns, ProbeMode::off}, raw);
}

std::string_view rawValue(WiFiOffMode mode) {
    switch (mode) {
    case WiFiOffMode::address:
        return "address";
    case WiFiOffMode::service:
        return "service";
    case WiFiOffMode::radio:
        break;
    }
    return "radio";
}

std::optional<WiFiOffMode> wifiOffMode(std::string_view raw) {
    return fromRaw({WiFiOffMode::address, WiFiOffMode::service, WiFiOffMode::radio}, raw);
}

URL DaemonConfig::defaultUpdateFeedURL() {
    // The build refuses a host that does not form an address.
    return *URL::parse("https://" + std::string(VendorHosts::download) + "/dl/tarnlink.json");
}

std::string DaemonConfig::describe() const {
    Line line;
    line.add("enabled", enabled);
    line.add("probeMode", rawValue(probeMode));
    line.add("probeName", probeName);
    line.add("probeTimeout", probeTimeout);
    line.add("probeInterval", probeInterval);
    line.add("probeFailuresBeforeFallback", probeFailuresBeforeFallback);
    line.add("trafficStallSeconds", trafficStallSeconds);
    line.add("eventDebounce", eventDebounce);
    line.add("respectManualWiFiOff", respectManualWiFiOff);
    line.add("flushDNSCacheOnSwitch", flushDNSCacheOnSwitch);
    line.add("maxPauseMinutes", maxPauseMinutes);
    line.add("disableTetheringWhileWired", disableTetheringWhileWired);
    line.add("wifiOffMode", rawValue(wifiOffMode));
    line.add("fixShadowedDNS", fixShadowedDNS);
    line.add("updateCheck", updateCheckAllowed);
    line.add("updateFeed", updateFeedURL.absoluteString());
    line.add("dryRun", dryRun);
    line.add("once", once);
    return line.take();
}

} // namespace tarn
