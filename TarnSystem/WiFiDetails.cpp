#include "TarnSystem/WiFiDetails.h"

#include <utility>

namespace tarn {
namespace {

using Band = WiFiDetails::Band;

std::optional<Band> bandOfCode(std::int64_t code) {
    switch (code) {
    case 1:
        return Band::ghz2_4;
    case 2:
        return Band::ghz5;
    case 3:
        return Band::ghz6;
    default:
        return std::nullopt;
    }
}

} // namespace

std::string_view rawValue(Band band) {
    switch (band) {
    case Band::ghz2_4:
        return "ghz2_4";
    case Band::ghz5:
        return "ghz5";
    case Band::ghz6:
        break;
    }
    return "ghz6";
}

std::optional<Band> wifiBand(std::string_view raw) {
    for (const auto band : {Band::ghz2_4, Band::ghz5, Band::ghz6})
        if (rawValue(band) == raw)
            return band;
    return std::nullopt;
}

std::optional<WiFiDetails> CoreWLANDetails::current() {
    auto interface = client_.interface();
    if (!interface || !interface->powerOn)
        return std::nullopt;
    WiFiDetails details;
    details.ssid = std::move(interface->ssid);
    if (interface->channel) {
        details.channel = interface->channel->number;
        details.band = bandOfCode(interface->channel->bandCode);
    }
    if (interface->rssi != 0)
        details.rssi = interface->rssi;
    return details;
}

} // namespace tarn
