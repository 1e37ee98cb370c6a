#include "TarnSystem/WiFiFrequency.h"

#include <algorithm>
#include <array>

namespace tarn {
namespace {

/// Channels at even distances; a channel is (frequency - base) / 5.
struct Range {
    std::uint32_t first;
    std::uint32_t last;
    std::uint32_t base;
    std::int64_t bandCode;
};
constexpr std::array<Range, 3> ranges = {{
    {2412, 2472, 2407, 1},
    {5160, 5885, 5000, 2},
    {5955, 7115, 5950, 3},
}};

} // namespace

std::optional<WiFiClient::Channel> channelOfFrequency(std::uint32_t megahertz) {
    constexpr std::uint32_t spacing = 5;
    // Two channels stand outside the pattern of their band.
    if (megahertz == 2484)
        return WiFiClient::Channel{14, 1};
    if (megahertz == 5935)
        return WiFiClient::Channel{2, 3};
    for (const auto &range : ranges)
        if (megahertz >= range.first && megahertz <= range.last && (megahertz - range.base) % spacing == 0)
            return WiFiClient::Channel{(megahertz - range.base) / spacing, range.bandCode};
    return std::nullopt;
}

std::int64_t rssiOfStrength(unsigned percent) {
    if (percent == 0)
        return 0;
    // -100 + 0.6 * percent, rounded to the nearest.
    return -100 + (std::int64_t{std::min(percent, 100u)} * 6 + 5) / 10;
}

} // namespace tarn
