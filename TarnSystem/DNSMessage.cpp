#include "TarnSystem/DNSMessage.h"

#include "TarnCore/Text.h"

#include <algorithm>

namespace tarn::DNSMessage {
namespace {

constexpr std::size_t headerSize = 12;
constexpr std::size_t longestLabel = 63;
// With the zero byte at its end a name stays below this.
constexpr std::size_t nameLimit = 254;

void append16(std::vector<std::byte> &data, std::uint16_t number) {
    data.push_back(static_cast<std::byte>(number >> 8));
    data.push_back(static_cast<std::byte>(number & 0xFF));
}

std::uint16_t read16(std::span<const std::byte> data, std::size_t offset) {
    return static_cast<std::uint16_t>(std::to_integer<unsigned>(data[offset]) << 8 |
                                      std::to_integer<unsigned>(data[offset + 1]));
}

std::vector<std::byte> encodedName(std::string_view name) {
    std::vector<std::byte> data;
    std::size_t total = 0;
    while (const auto piece = text::nextPiece(name, '.')) {
        const auto label = piece->substr(0, longestLabel);
        if (total + label.size() + 2 >= nameLimit)
            break;
        data.push_back(static_cast<std::byte>(label.size()));
        std::ranges::transform(label, std::back_inserter(data),
                               [](char c) { return static_cast<std::byte>(c); });
        total += label.size() + 1;
    }
    data.push_back(std::byte{0});
    return data;
}

bool isReply(std::span<const std::byte> data) {
    return data.size() >= headerSize && (data[2] & std::byte{0x80}) != std::byte{0};
}

} // namespace

std::vector<std::byte> query(std::uint16_t id, std::string_view name) {
    constexpr std::uint16_t recursionDesired = 0x0100;
    constexpr std::uint16_t typeA = 1;
    constexpr std::uint16_t classIN = 1;
    std::vector<std::byte> data;
    data.reserve(name.size() + 18);
    for (const std::uint16_t field :
         {id, recursionDesired, std::uint16_t{1}, std::uint16_t{0}, std::uint16_t{0}, std::uint16_t{0}})
        append16(data, field);
    std::ranges::copy(encodedName(name), std::back_inserter(data));
    append16(data, typeA);
    append16(data, classIN);
    return data;
}

std::optional<std::uint16_t> responseID(std::span<const std::byte> data) {
    if (!isReply(data))
        return std::nullopt;
    return read16(data, 0);
}

std::optional<std::uint8_t> responseCode(std::span<const std::byte> data) {
    if (!isReply(data))
        return std::nullopt;
    return std::to_integer<std::uint8_t>(data[3] & std::byte{0x0F});
}

std::optional<std::int64_t> answerCount(std::span<const std::byte> data) {
    if (!isReply(data))
        return std::nullopt;
    return read16(data, 6);
}

std::uint16_t randomID(SecureRandom &random) {
    return static_cast<std::uint16_t>(random.next() & 0xFFFF);
}

} // namespace tarn::DNSMessage
