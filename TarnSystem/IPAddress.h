#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tarn {

/// A numeric address of either family.
struct IPAddress {
    bool isIPv6 = false;
    /// Network byte order; IPv4 uses the first four.
    std::array<std::uint8_t, 16> bytes{};

    /// Reads the usual text forms (RFC 4291, section 2.2); a zone suffix is no part of an address.
    static std::optional<IPAddress> parse(std::string_view text);
    /// None unless there are 4 or 16 bytes.
    static std::optional<IPAddress> fromBytes(std::span<const std::uint8_t> bytes);

    std::string text() const;
    /// 127/8 and ::1, and the unspecified address, which a resolver takes for the own host.
    bool isOwnHost() const;
    /// Whether the first `prefixLength` bits are those of `network`.
    bool isWithin(const IPAddress &network, unsigned prefixLength) const;

    friend bool operator==(const IPAddress &, const IPAddress &) = default;
};

} // namespace tarn
