#include "TarnSystem/IPAddress.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace tarn {

std::optional<IPAddress> IPAddress::parse(std::string_view text) {
    if (text.find('\0') != std::string_view::npos)
        return std::nullopt;
    IPAddress address;
    address.isIPv6 = text.find(':') != std::string_view::npos;
    const std::string terminated(text);
    if (inet_pton(address.isIPv6 ? AF_INET6 : AF_INET, terminated.c_str(), address.bytes.data()) != 1)
        return std::nullopt;
    return address;
}

std::optional<IPAddress> IPAddress::fromBytes(std::span<const std::uint8_t> bytes) {
    if (bytes.size() != 4 && bytes.size() != 16)
        return std::nullopt;
    IPAddress address;
    address.isIPv6 = bytes.size() == 16;
    std::ranges::copy(bytes, address.bytes.begin());
    return address;
}

std::string IPAddress::text() const {
    std::array<char, INET6_ADDRSTRLEN> buffer{};
    inet_ntop(isIPv6 ? AF_INET6 : AF_INET, bytes.data(), buffer.data(),
              static_cast<socklen_t>(buffer.size()));
    return buffer.data();
}

bool IPAddress::isOwnHost() const {
    if (!isIPv6)
        return bytes[0] == 127 || std::ranges::all_of(bytes, [](auto byte) { return byte == 0; });
    // IPv4 in IPv6 clothes (RFC 4291, section 2.5.5.2).
    constexpr std::array<std::uint8_t, 12> mapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    if (std::ranges::equal(mapped, std::span(bytes).first<12>()))
        return fromBytes(std::span(bytes).last<4>())->isOwnHost();
    return std::all_of(bytes.begin(), bytes.end() - 1, [](auto byte) { return byte == 0; }) &&
           bytes.back() <= 1;
}

bool IPAddress::isWithin(const IPAddress &network, unsigned prefixLength) const {
    if (isIPv6 != network.isIPv6)
        return false;
    const unsigned bits = std::min(prefixLength, isIPv6 ? 128U : 32U);
    const auto wholeBytes = static_cast<std::ptrdiff_t>(bits / 8);
    if (!std::equal(bytes.begin(), bytes.begin() + wholeBytes, network.bytes.begin()))
        return false;
    if (bits % 8 == 0)
        return true;
    const auto position = static_cast<std::size_t>(wholeBytes);
    return (bytes[position] ^ network.bytes[position]) >> (8 - bits % 8) == 0;
}

} // namespace tarn
