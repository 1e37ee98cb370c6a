#include "TarnCore/AddressClassifier.h"

#include "TarnCore/Text.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarn::AddressClassifier {

bool isRoutableIPv4(std::string_view address) {
    std::array<std::int64_t, 4> octets{};
    std::size_t count = 0;
    while (const auto piece = text::nextPiece(address, '.')) {
        const auto number = text::parseInteger(*piece);
        if (!number)
            continue;
        if (count == octets.size())
            return false;
        octets[count++] = *number;
    }
    if (count != octets.size())
        return false;
    for (const auto octet : octets)
        if (octet < 0 || octet > 255)
            return false;
    const auto a = octets[0];
    const auto b = octets[1];
    return a != 0 && a != 127 && a < 224 && !(a == 169 && b == 254);
}

bool isRoutableIPv6(std::string_view address) {
    auto rest = address;
    const auto host = text::nextPiece(rest, '%').value_or(address);
    const auto group = text::parseHexadecimal(host.substr(0, host.find(':')));
    if (!group)
        return false;
    const auto h = *group;
    if ((h & ~std::int64_t{0x3F}) == 0xFE80)
        return false;
    if (h >> 9 == 126)
        return true;
    return (h & ~std::int64_t{0x1FFF}) == 0x2000;
}

} // namespace tarn::AddressClassifier
