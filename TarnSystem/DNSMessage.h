#pragma once

#include "TarnSystem/SecureRandom.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

/// The little of DNS (RFC 1035, section 4) that a probe needs: one question of type A and
/// class IN, and the header of the reply. Pure functions; answer records are never parsed.
namespace tarn::DNSMessage {

/// A query with recursion desired. Never fails: labels of more than 63 bytes are cut, and
/// labels that no longer fit into the longest name are dropped.
std::vector<std::byte> query(std::uint16_t id, std::string_view name);

/// Header fields of a reply. Absent when the data are shorter than a header or are a query,
/// so that an echo of the query is never taken for a reply.
std::optional<std::uint16_t> responseID(std::span<const std::byte> data);
std::optional<std::uint8_t> responseCode(std::span<const std::byte> data);
std::optional<std::int64_t> answerCount(std::span<const std::byte> data);

/// An identifier that nobody can foresee (RFC 5452, section 9.2).
std::uint16_t randomID(SecureRandom &random);

} // namespace tarn::DNSMessage
