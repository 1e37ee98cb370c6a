#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

namespace tarn {

/// How one query exchange ended.
struct ProbeOutcome {
    enum class Kind {
        reachable, ///< A reply with the right identifier arrived, whatever it says.
        error,     ///< The exchange failed.
        timeout,   ///< No matching reply in time.
    };

    Kind kind = Kind::timeout;
    /// Reachable: seconds from handing over the query to taking in the reply.
    double latency = 0;
    /// Error: the network's own description of it.
    std::string message;

    static ProbeOutcome reachable(double latency) { return {Kind::reachable, latency, {}}; }
    static ProbeOutcome error(std::string message) { return {Kind::error, 0, std::move(message)}; }
    static ProbeOutcome timeout() { return {Kind::timeout, 0, {}}; }

    friend bool operator==(const ProbeOutcome &, const ProbeOutcome &) = default;
};

/// What a reply says about the asked name.
enum class DNSVerdict {
    knowsName,        ///< No error, and at least one answer record.
    noAnswerButKnows, ///< No error, but no answer record.
    unknownName,      ///< The name does not exist.
    refused,          ///< The server refused to answer.
    unreachable,      ///< No usable reply.
};

/// The verdict on one exchange. `reply` is absent when there was none.
DNSVerdict verdict(const ProbeOutcome &outcome, std::optional<std::span<const std::byte>> reply);

} // namespace tarn
