#include "TarnXPC/TarnXPCCoding.h"

#include "TarnSystem/Json.h"

#include <utility>
#include <variant>

namespace tarn {

InterfaceSummary InterfaceSummary::of(const InterfaceSnapshot &snapshot) {
    InterfaceSummary summary{snapshot.device, snapshot.serviceName, snapshot.kind, snapshot.linkActive, {}};
    if (const auto *ipv4 = snapshot.firstRoutableIPv4())
        summary.address = *ipv4;
    else if (const auto *ipv6 = snapshot.firstRoutableIPv6())
        summary.address = ipv6->address;
    return summary;
}

namespace {

using Kind = DecodingError::Kind;

[[noreturn]] void refuse(Kind kind, std::string_view key, const char *problem) {
    throw DecodingError(kind, std::string(key) + ": " + problem);
}

/// One object, read key by key.
class Reader {
public:
    explicit Reader(const Value &object) : object_(object) {
        if (!object.dictionary())
            throw DecodingError(Kind::typeMismatch, "Expected a dictionary.");
    }

    /// Throws unless there is something under the key.
    const Value &required(std::string_view key) const {
        const auto *value = optional(key);
        if (!value)
            refuse(Kind::keyNotFound, key, "no value");
        return *value;
    }
    /// Null for a missing key and for null itself.
    const Value *optional(std::string_view key) const {
        const auto *value = object_.find(key);
        return value && !value->isNull() ? value : nullptr;
    }

    void read(std::string_view key, auto &field) const {
        if (const auto *value = optional(key))
            set(key, *value, field);
    }
    template <class Field> Field required(std::string_view key) const {
        Field field{};
        set(key, required(key), field);
        return field;
    }

private:
    template <class Field>
    static void set(std::string_view key, const Value &value, std::optional<Field> &field) {
        set(key, value, field.emplace());
    }
    static void set(std::string_view key, const Value &value, bool &field) {
        field = *content(key, value.boolean(), "not a truth value");
    }
    static void set(std::string_view key, const Value &value, std::string &field) {
        field = *content(key, value.string(), "not a string");
    }
    static void set(std::string_view key, const Value &value, std::int64_t &field) {
        field = *content(key, value.integer(), "not an integer of 64 bits");
    }
    static void set(std::string_view key, const Value &value, Date &field) {
        const auto date = dates::parse(*content(key, value.string(), "not a string"));
        if (!date)
            refuse(Kind::dataCorrupted, key, "not a date in whole seconds");
        field = *date;
    }
    static void set(std::string_view key, const Value &value, InterfaceKind &field) {
        const auto kind = interfaceKind(*content(key, value.string(), "not a string"));
        if (!kind)
            refuse(Kind::dataCorrupted, key, "not a kind of interface");
        field = *kind;
    }
    template <class Content>
    static const Content *content(std::string_view key, const Content *of, const char *problem) {
        if (!of)
            refuse(Kind::typeMismatch, key, problem);
        return of;
    }

    const Value &object_;
};

/// One object, written key by key; what is absent is left out.
class Writer {
public:
    template <class Field> void add(const char *key, Field field) {
        entries_.emplace_back(key, encoded(std::move(field)));
    }
    template <class Field> void add(const char *key, std::optional<Field> field) {
        if (field)
            add(key, *std::move(field));
    }
    std::string take() && { return json::serialize(Value(std::move(entries_))); }
    Value::Dictionary entries() && { return std::move(entries_); }

private:
    static Value encoded(Value value) { return value; }
    static Value encoded(Date date) { return dates::text(date); }

    Value::Dictionary entries_;
};

Value parse(std::string_view bytes) {
    if (bytes.size() > TarnXPCCoding::mostBytes)
        throw DecodingError(Kind::dataCorrupted, "The record is too long.");
    auto document = json::parse(bytes);
    if (const auto *error = std::get_if<json::SyntaxError>(&document))
        throw DecodingError(Kind::dataCorrupted, "The record is not valid JSON: " + error->message);
    return std::get<Value>(std::move(document));
}

Value encoded(const InterfaceSummary &summary) {
    Writer writer;
    writer.add("device", summary.device);
    writer.add("serviceName", summary.serviceName);
    writer.add("kind", std::string(rawValue(summary.kind)));
    writer.add("linkActive", summary.linkActive);
    writer.add("address", summary.address);
    return std::move(writer).entries();
}

InterfaceSummary decodeInterface(const Value &value) {
    const Reader reader(value);
    InterfaceSummary summary;
    summary.device = reader.required<std::string>("device");
    summary.serviceName = reader.required<std::string>("serviceName");
    summary.kind = reader.required<InterfaceKind>("kind");
    summary.linkActive = reader.required<bool>("linkActive");
    reader.read("address", summary.address);
    return summary;
}

} // namespace

std::string TarnXPCCoding::Encoder::encode(const StatusReport &record) const {
    Value::Array interfaces;
    for (const auto &summary : record.interfaces)
        interfaces.push_back(encoded(summary));
    Writer writer;
    writer.add("version", record.version);
    writer.add("status", record.status.encoded());
    writer.add("reason", record.reason);
    writer.add("wifiOn", record.wifiOn);
    writer.add("wifiManuallyOff", record.wifiManuallyOff);
    writer.add("pausedUntil", record.pausedUntil);
    writer.add("enabled", record.enabled);
    writer.add("interfaces", std::move(interfaces));
    writer.add("generatedAt", record.generatedAt);
    writer.add("tetheringWhileWiredAllowed", record.tetheringWhileWiredAllowed);
    writer.add("updateCheckAllowed", record.updateCheckAllowed);
    writer.add("updateFeedURL", record.updateFeedURL);
    writer.add("tetheringDNSFix", record.tetheringDNSFix);
    writer.add("vpnDevice", record.vpnDevice);
    writer.add("vpnAddress", record.vpnAddress);
    return std::move(writer).take();
}

std::string TarnXPCCoding::Encoder::encode(const PauseResult &record) const {
    Writer writer;
    writer.add("granted", record.granted);
    writer.add("code", record.code);
    writer.add("message", record.message);
    writer.add("pausedUntil", record.pausedUntil);
    writer.add("argument", record.argument);
    return std::move(writer).take();
}

std::string TarnXPCCoding::Encoder::encode(const SettingResult &record) const {
    Writer writer;
    writer.add("ok", record.ok);
    writer.add("code", record.code);
    return std::move(writer).take();
}

std::string TarnXPCCoding::Encoder::encode(const UpdateResult &record) const {
    Writer writer;
    writer.add("ok", record.ok);
    writer.add("code", record.code);
    writer.add("message", record.message);
    writer.add("build", record.build);
    return std::move(writer).take();
}

template <> StatusReport TarnXPCCoding::Decoder::decode<StatusReport>(std::string_view bytes) const {
    const auto value = parse(bytes);
    const Reader reader(value);
    StatusReport record;
    reader.read("version", record.version);
    record.status = Status::decode(reader.required("status"));
    reader.read("reason", record.reason);
    reader.read("wifiOn", record.wifiOn);
    reader.read("wifiManuallyOff", record.wifiManuallyOff);
    reader.read("pausedUntil", record.pausedUntil);
    reader.read("enabled", record.enabled);
    if (const auto *interfaces = reader.optional("interfaces")) {
        if (!interfaces->array())
            refuse(Kind::typeMismatch, "interfaces", "not a list");
        for (const auto &element : *interfaces->array())
            record.interfaces.push_back(decodeInterface(element));
    }
    record.generatedAt = now_();
    reader.read("generatedAt", record.generatedAt);
    reader.read("tetheringWhileWiredAllowed", record.tetheringWhileWiredAllowed);
    reader.read("updateCheckAllowed", record.updateCheckAllowed);
    reader.read("updateFeedURL", record.updateFeedURL);
    reader.read("tetheringDNSFix", record.tetheringDNSFix);
    reader.read("vpnDevice", record.vpnDevice);
    reader.read("vpnAddress", record.vpnAddress);
    return record;
}

template <> PauseResult TarnXPCCoding::Decoder::decode<PauseResult>(std::string_view bytes) const {
    const auto value = parse(bytes);
    const Reader reader(value);
    PauseResult record;
    record.granted = reader.required<bool>("granted");
    reader.read("code", record.code);
    reader.read("message", record.message);
    reader.read("pausedUntil", record.pausedUntil);
    reader.read("argument", record.argument);
    return record;
}

template <> SettingResult TarnXPCCoding::Decoder::decode<SettingResult>(std::string_view bytes) const {
    const auto value = parse(bytes);
    const Reader reader(value);
    SettingResult record;
    reader.read("ok", record.ok);
    reader.read("code", record.code);
    return record;
}

template <> UpdateResult TarnXPCCoding::Decoder::decode<UpdateResult>(std::string_view bytes) const {
    const auto value = parse(bytes);
    const Reader reader(value);
    UpdateResult record;
    reader.read("ok", record.ok);
    reader.read("code", record.code);
    reader.read("message", record.message);
    reader.read("build", record.build);
    return record;
}

TarnXPCCoding::Decoder TarnXPCCoding::decoder() {
    return Decoder(
        [] { return std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now()); });
}

} // namespace tarn
