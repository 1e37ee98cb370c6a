#pragma once

#include "TarnSystem/WiFiClient.h"

#include <cstdint>
#include <optional>

namespace tarn {

/// The channel with this centre frequency in MHz (IEEE 802.11, annex E); none when there is no such channel.
std::optional<WiFiClient::Channel> channelOfFrequency(std::uint32_t megahertz);

/// The signal in dBm for an access point's strength in percent, as NetworkManager tells it (0: none,
/// which gives 0). NetworkManager makes the percent from dBm: 0 is -100, 100 is -40, linear between
/// them (nm_wifi_utils_level_to_quality).
std::int64_t rssiOfStrength(unsigned percent);

} // namespace tarn
