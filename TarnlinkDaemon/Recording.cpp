#include "TarnlinkDaemon/Recording.h"

#include "TarnSystem/Json.h"
#include "TarnlinkDaemon/Coding.h"

#include <array>
#include <type_traits>
#include <utility>
#include <variant>

namespace tarn {
namespace coding {

template <>
inline const std::array words<InterfaceKind> = {
    std::pair(InterfaceKind::wifi, rawValue(InterfaceKind::wifi)),
    std::pair(InterfaceKind::wired, rawValue(InterfaceKind::wired)),
    std::pair(InterfaceKind::other, rawValue(InterfaceKind::other))};

template <>
inline const std::array words<ProbeMode> = {std::pair(ProbeMode::dns, rawValue(ProbeMode::dns)),
                                            std::pair(ProbeMode::off, rawValue(ProbeMode::off))};

template <>
inline constexpr std::array words<ProbeOutcome::Kind> = {
    std::pair(ProbeOutcome::Kind::reachable, std::string_view("reachable")),
    std::pair(ProbeOutcome::Kind::error, std::string_view("error")),
    std::pair(ProbeOutcome::Kind::timeout, std::string_view("timeout"))};

template <>
inline constexpr std::array words<Action::Kind> = {
    std::pair(Action::Kind::setWiFiPower, std::string_view("setWiFiPower")),
    std::pair(Action::Kind::enableService, std::string_view("enableService")),
    std::pair(Action::Kind::disableService, std::string_view("disableService")),
    std::pair(Action::Kind::reorderServices, std::string_view("reorderServices")),
    std::pair(Action::Kind::probe, std::string_view("probe"))};

/// In the order of Input::What.
constexpr std::array<std::string_view, std::variant_size_v<Input::What>> inputNames = {
    "start",        "networkChanged",  "readingTaken",   "readingFailed", "probeEnded",
    "bytesCounted", "commandEnded",    "journalWritten", "timeCame",      "pauseWanted",
    "resumeWanted", "settingsChanged", "woke",           "clockSet",      "stopWanted"};

struct Line {
    Moment at;
    std::string input;
    Value what;
};

template <class Archive> void fields(Archive &archive, Is<Line> auto &line) {
    archive("at", line.at);
    archive("input", line.input);
    archive("what", line.what);
}

template <class Archive> void fields(Archive &archive, Is<DaemonConfig> auto &config) {
    archive("enabled", config.enabled);
    archive("probeMode", config.probeMode);
    archive("probeName", config.probeName);
    archive("probeTimeout", config.probeTimeout);
    archive("probeInterval", config.probeInterval);
    archive("probeFailuresBeforeFallback", config.probeFailuresBeforeFallback);
    archive("trafficStallSeconds", config.trafficStallSeconds);
    archive("eventDebounce", config.eventDebounce);
    archive("respectManualWiFiOff", config.respectManualWiFiOff);
    archive("flushDNSCacheOnSwitch", config.flushDNSCacheOnSwitch);
    archive("maxPauseMinutes", config.maxPauseMinutes);
    archive("disableTetheringWhileWired", config.disableTetheringWhileWired);
    archive("wifiOffMode", config.wifiOffMode);
    archive("fixShadowedDNS", config.fixShadowedDNS);
    std::string address = config.updateFeedURL.absoluteString();
    archive("updateFeedURL", address);
    if constexpr (!std::is_const_v<std::remove_reference_t<decltype(config)>>) {
        auto url = URL::parse(address);
        if (!url)
            throw DecodingError(DecodingError::Kind::dataCorrupted, "updateFeedURL: not an address");
        config.updateFeedURL = *std::move(url);
    }
    archive("updateCheckAllowed", config.updateCheckAllowed);
    archive("dryRun", config.dryRun);
    archive("once", config.once);
}

template <class Archive> void fields(Archive &archive, Is<IPv6Address> auto &address) {
    archive("address", address.address);
    archive("flags", address.flags);
}

template <class Archive> void fields(Archive &archive, Is<InterfaceSnapshot> auto &snapshot) {
    archive("device", snapshot.device);
    archive("kind", snapshot.kind);
    archive("serviceID", snapshot.serviceID);
    archive("serviceName", snapshot.serviceName);
    archive("serviceEnabled", snapshot.serviceEnabled);
    archive("serviceOrderIndex", snapshot.serviceOrderIndex);
    archive("linkActive", snapshot.linkActive);
    archive("ipv4", snapshot.ipv4);
    archive("ipv6", snapshot.ipv6);
    archive("ipv4Router", snapshot.ipv4Router);
    archive("ipv6Router", snapshot.ipv6Router);
    archive("hasDHCPLease", snapshot.hasDHCPLease);
    archive("dnsServers", snapshot.dnsServers);
    archive("isTethering", snapshot.isTethering);
}

template <class Archive> void fields(Archive &archive, Is<Reading::WiFiService> auto &service) {
    archive("serviceID", service.serviceID);
    archive("name", service.name);
    archive("enabled", service.enabled);
    archive("ipv4", service.ipv4);
    archive("ipv6", service.ipv6);
}

template <class Archive> void fields(Archive &archive, Is<Reading::Resolver> auto &resolver) {
    archive("key", resolver.key);
    archive("servers", resolver.servers);
    archive("domains", resolver.domains);
}

template <class Archive> void fields(Archive &archive, Is<Reading> auto &reading) {
    archive("interfaces", reading.interfaces);
    archive("wifiPower", reading.wifiPower);
    archive("wifiServices", reading.wifiServices);
    archive("resolvers", reading.resolvers);
}

template <class Archive> void fields(Archive &archive, Is<ProbeOutcome> auto &outcome) {
    archive("kind", outcome.kind);
    archive("latency", outcome.latency);
    archive("message", outcome.message);
}

template <class Archive> void fields(Archive &archive, Is<KernelTables::ByteCounts> auto &bytes) {
    archive("rx", bytes.rx);
    archive("tx", bytes.tx);
}

template <class Archive> void fields(Archive &archive, Is<input::Start> auto &start) {
    archive("config", start.config);
    archive("bootID", start.bootID);
    archive("journal", start.journal);
    archive("pause", start.pause);
    archive("damage", start.damage);
    archive("nextHistoryNumber", start.nextHistoryNumber);
    archive("undoOnly", start.undoOnly);
}

template <class Archive> void fields(Archive &archive, Is<input::NetworkChanged> auto &change) {
    archive("keys", change.keys);
}

template <class Archive> void fields(Archive &archive, Is<input::ReadingTaken> auto &taken) {
    archive("number", taken.number);
    archive("reading", taken.reading);
}

template <class Archive> void fields(Archive &archive, Is<input::ReadingFailed> auto &failed) {
    archive("number", failed.number);
    archive("message", failed.message);
}

template <class Archive> void fields(Archive &archive, Is<input::ProbeEnded> auto &ended) {
    archive("number", ended.number);
    archive("outcome", ended.outcome);
}

template <class Archive> void fields(Archive &archive, Is<input::BytesCounted> auto &counted) {
    archive("device", counted.device);
    archive("bytes", counted.bytes);
}

template <class Archive> void fields(Archive &archive, Is<input::CommandEnded> auto &ended) {
    archive("number", ended.number);
    archive("error", ended.error);
}

template <class Archive> void fields(Archive &archive, Is<input::JournalWritten> auto &written) {
    archive("number", written.number);
    archive("error", written.error);
}

template <class Archive> void fields(Archive &archive, Is<input::PauseWanted> auto &wanted) {
    archive("length", wanted.length);
}

template <class Archive> void fields(Archive &archive, Is<input::SettingsChanged> auto &change) {
    archive("config", change.config);
}

/// An input that only says that it happened.
template <class Archive, class Record>
    requires std::is_empty_v<Record>
void fields(Archive &, Record &) {}

template <class Archive> void fields(Archive &archive, Is<Action> auto &action) {
    archive("kind", action.kind);
    archive("power", action.power);
    archive("serviceID", action.serviceID);
    archive("name", action.name);
    archive("order", action.order);
    archive("device", action.device);
}

template <class Archive> void fields(Archive &archive, Is<Decision> auto &decision) {
    archive("status", decision.status);
    archive("reason", decision.reason);
    archive("actions", decision.actions);
}

template <std::size_t index = 0> Input::What decodeWhat(std::string_view name, const Value &value) {
    if constexpr (index < inputNames.size()) {
        if (name == inputNames[index])
            return decode<std::variant_alternative_t<index, Input::What>>(value);
        return decodeWhat<index + 1>(name, value);
    }
    throw DecodingError(DecodingError::Kind::dataCorrupted, "unknown input " + text::printable(name));
}

} // namespace coding

namespace recording {
namespace {

constexpr const char *decisionKey = "decision";

Value parsed(std::string_view line) {
    auto document = json::parse(line);
    if (const auto *error = std::get_if<json::SyntaxError>(&document))
        throw DecodingError(DecodingError::Kind::dataCorrupted,
                            "column " + std::to_string(error->column) + ": " + error->message);
    return std::get<Value>(std::move(document));
}

Input inputFromValue(const Value &value) {
    const auto line = coding::decode<coding::Line>(value);
    return {line.at, coding::decodeWhat(line.input, line.what)};
}

} // namespace

std::string asLine(const Input &input) {
    auto what = std::visit([](const auto &content) { return coding::encode(content); }, input.what);
    const auto name = coding::inputNames[input.what.index()];
    return json::serialize(coding::encode(coding::Line{input.at, std::string(name), std::move(what)}));
}

std::string asLine(const Decision &decision) {
    return json::serialize(Value::Dictionary{{decisionKey, coding::encode(decision)}});
}

Input inputFromLine(std::string_view line) {
    return inputFromValue(parsed(line));
}

void Replay::take(std::string_view line) {
    const auto value = parsed(line);
    if (const Value *decision = value.find(decisionKey)) {
        if (!guard_ || !decision->dictionary() || value.dictionary()->size() != 1)
            throw DecodingError(DecodingError::Kind::dataCorrupted, "not a decision of this recording");
        const bool isSame = !decided_.empty() && decided_.front() == json::serialize(value);
        if (!decided_.empty())
            decided_.pop_front();
        differences_ += isSame ? 0 : 1;
        return;
    }

    const auto input = inputFromValue(value);
    const bool isStart = std::holds_alternative<input::Start>(input.what);
    if (!isStart && !guard_)
        throw DecodingError(DecodingError::Kind::dataCorrupted, "the recording does not begin with a start");
    // What an earlier recording was cut off from is not known; otherwise its line should have been here.
    differences_ += isStart ? 0 : decided_.size();
    decided_.clear();
    if (isStart)
        guard_.emplace();
    for (const auto &effect : guard_->handle(input))
        if (const auto *decided = std::get_if<effect::Decided>(&effect)) {
            decided_.push_back(asLine(decided->decision));
            print_(decided_.back());
        }
}

} // namespace recording
} // namespace tarn
