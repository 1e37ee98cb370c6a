#include "TarnSystem/ProbeOutcome.h"

#include "TarnSystem/DNSMessage.h"

namespace tarn {

DNSVerdict verdict(const ProbeOutcome &outcome, std::optional<std::span<const std::byte>> reply) {
    if (outcome.kind != ProbeOutcome::Kind::reachable || !reply)
        return DNSVerdict::unreachable;
    const auto code = DNSMessage::responseCode(*reply);
    if (!code)
        return DNSVerdict::unreachable;
    // RFC 1035, section 4.1.1, RCODE.
    switch (*code) {
    case 0:
        return DNSMessage::answerCount(*reply).value_or(0) >= 1 ? DNSVerdict::knowsName
                                                                : DNSVerdict::noAnswerButKnows;
    case 3:
        return DNSVerdict::unknownName;
    case 5:
        return DNSVerdict::refused;
    default:
        return DNSVerdict::unreachable;
    }
}

} // namespace tarn
