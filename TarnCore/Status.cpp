#include "TarnCore/Status.h"

#include <utility>

namespace tarn {
namespace {

std::string requiredString(const Value &payload, std::string_view key) {
    const Value *entry = payload.find(key);
    if (!entry)
        throw DecodingError(DecodingError::Kind::keyNotFound,
                            "No value associated with key \"" + std::string(key) + "\".");
    if (!entry->string())
        throw DecodingError(DecodingError::Kind::typeMismatch,
                            "Expected a string for key \"" + std::string(key) + "\".");
    return *entry->string();
}

} // namespace

Status Status::wired(std::string device, std::string name) {
    return {Kind::wired, std::move(device), std::move(name)};
}

Status Status::wiredPending(std::string device, std::string name) {
    return {Kind::wiredPending, std::move(device), std::move(name)};
}

Status Status::wiredUnreachable(std::string device, std::string name) {
    return {Kind::wiredUnreachable, std::move(device), std::move(name)};
}

bool Status::hasPayload(Kind of) {
    return of == Kind::wired || of == Kind::wiredPending || of == Kind::wiredUnreachable;
}

std::string_view Status::caseName(Kind of) {
    switch (of) {
    case Kind::wired:
        return "wired";
    case Kind::wiredPending:
        return "wiredPending";
    case Kind::wiredUnreachable:
        return "wiredUnreachable";
    case Kind::wifi:
        return "wifi";
    case Kind::offline:
        return "offline";
    case Kind::wifiOff:
        return "wifiOff";
    case Kind::paused:
        return "paused";
    case Kind::disabled:
        break;
    }
    return "disabled";
}

Value Status::encoded() const {
    Value::Dictionary payload;
    if (hasPayload(kind))
        payload = {{"device", device}, {"name", name}};
    return Value::Dictionary{{std::string(caseName(kind)), Value(std::move(payload))}};
}

Status Status::decode(const Value &value) {
    if (!value.dictionary())
        throw DecodingError(DecodingError::Kind::typeMismatch, "Expected a dictionary.");
    const Value *payload = nullptr;
    Status status;
    int recognised = 0;
    for (const Kind candidate : allKinds)
        for (const auto &[key, content] : *value.dictionary())
            if (key == caseName(candidate)) {
                ++recognised;
                status.kind = candidate;
                payload = &content;
            }
    if (recognised != 1)
        throw DecodingError(DecodingError::Kind::typeMismatch, "Invalid number of keys found, expected one.");
    if (!payload->dictionary())
        throw DecodingError(DecodingError::Kind::typeMismatch, "Expected a dictionary.");
    if (hasPayload(status.kind)) {
        status.device = requiredString(*payload, "device");
        status.name = requiredString(*payload, "name");
    }
    return status;
}

} // namespace tarn
