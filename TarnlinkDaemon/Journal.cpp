#include "TarnlinkDaemon/Journal.h"

#include "TarnlinkDaemon/Coding.h"

#include <algorithm>

namespace tarn {
namespace coding {

constexpr std::int64_t journalVersion = 1;

template <>
inline constexpr std::array words<IPProtocol> = {std::pair(IPProtocol::ipv4, std::string_view("ipv4")),
                                                 std::pair(IPProtocol::ipv6, std::string_view("ipv6"))};

template <class Archive> void fields(Archive &archive, Is<ServiceName> auto &service) {
    archive("serviceID", service.serviceID);
    archive("name", service.name);
}

template <class Archive> void fields(Archive &archive, Is<Journal::SavedProtocol> auto &saved) {
    archive("serviceID", saved.serviceID);
    archive("protocol", saved.protocol);
    archive("configuration", saved.configuration);
}

template <class Archive> void fields(Archive &archive, Is<Journal::WiFi> auto &wifi) {
    archive("mode", wifi.mode);
    archive("services", wifi.services);
    archive("protocols", wifi.protocols);
    archive("isUnknown", wifi.isUnknown);
}

template <class Archive> void fields(Archive &archive, Is<Journal::Resolver> auto &resolver) {
    archive("key", resolver.key);
    archive("before", resolver.before);
    archive("after", resolver.after);
}

template <class Archive> void fields(Archive &archive, Is<Journal> auto &journal) {
    // Read first: the entries of another version are none of our business.
    std::int64_t version = journalVersion;
    archive("version", version);
    if (version != journalVersion)
        throw DecodingError(DecodingError::Kind::dataCorrupted,
                            "version: unknown version " + std::to_string(version));
    archive("wifi", journal.wifi);
    archive("disabledServices", journal.disabledServices);
    archive("order", journal.order);
    archive("resolvers", journal.resolvers);
}

template <class Archive> void fields(Archive &archive, Is<Pause> auto &pause) {
    archive("end", pause.end);
    archive("bootID", pause.bootID);
    archive("length", pause.length);
}

} // namespace coding

Value Journal::encoded() const {
    return coding::encodeFields(*this);
}

Journal Journal::decode(const Value &value) {
    return coding::decodeFields<Journal>(value);
}

std::chrono::nanoseconds Pause::remaining(const Moment &now, const std::string &currentBootID) const {
    const auto byBoot = end.sinceBoot - now.sinceBoot;
    const auto byWallClock = end.sinceEpoch - now.sinceEpoch;
    // Where the system does not tell its runs apart, neither clock may make the pause longer.
    if (bootID.empty() && currentBootID.empty())
        return std::min({byBoot, byWallClock, length});
    return std::min(bootID == currentBootID ? byBoot : byWallClock, length);
}

Value Pause::encoded() const {
    return coding::encodeFields(*this);
}

Pause Pause::decode(const Value &value) {
    auto pause = coding::decodeFields<Pause>(value);
    // No clock goes there, and what is left of it could not be computed.
    if (std::min({pause.end.sinceBoot, pause.end.sinceEpoch, pause.length}) < std::chrono::nanoseconds(0))
        throw DecodingError(DecodingError::Kind::dataCorrupted, "a negative time");
    return pause;
}

} // namespace tarn
