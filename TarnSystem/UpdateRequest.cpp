#include "TarnSystem/UpdateRequest.h"

#include "TarnCore/Base64.h"
#include "TarnCore/Status.h"

#include <utility>

namespace tarn {
namespace {

using Kind = DecodingError::Kind;

Value orNull(const std::optional<std::string> &text) {
    return text ? Value(*text) : Value();
}

const Value *present(const Value &value, const char *key) {
    const auto *entry = value.find(key);
    return entry && !entry->isNull() ? entry : nullptr;
}

std::optional<std::string> optionalText(const Value &value, const char *key) {
    const auto *entry = present(value, key);
    if (!entry)
        return std::nullopt;
    if (!entry->string())
        throw DecodingError(Kind::typeMismatch, std::string(key) + ": not a text");
    return *entry->string();
}

std::string text(const Value &value, const char *key) {
    auto found = optionalText(value, key);
    if (!found)
        throw DecodingError(Kind::keyNotFound, std::string(key) + ": no value");
    return *std::move(found);
}

} // namespace

Value UpdateRequest::encoded() const {
    Value value(Value::Dictionary{{"id", id}, {"pkgPath", pkgPath}});
    // Any bytes, and exactly these.
    value.set("manifest", manifest ? Value(base64::encode(*manifest)) : Value());
    value.set("signature", orNull(signature));
    return value;
}

UpdateRequest UpdateRequest::decode(const Value &value) {
    UpdateRequest request{text(value, "id"), text(value, "pkgPath"), optionalText(value, "manifest"),
                          optionalText(value, "signature")};
    if (request.manifest.has_value() != request.signature.has_value())
        throw DecodingError(Kind::dataCorrupted, "manifest: only with a signature");
    if (request.manifest) {
        request.manifest = base64::decode(*request.manifest);
        if (!request.manifest)
            throw DecodingError(Kind::dataCorrupted, "manifest: not base64");
    }
    return request;
}

bool UpdateOutcome::isUnderWay() const {
    return ok && code != "installed";
}

Value UpdateOutcome::encoded() const {
    Value value(Value::Dictionary{{"id", id}, {"ok", ok}, {"code", code}, {"message", message}});
    value.set("build", build ? Value(*build) : Value());
    return value;
}

UpdateOutcome UpdateOutcome::decode(const Value &value) {
    UpdateOutcome outcome{
        .id = text(value, "id"), .code = text(value, "code"), .message = text(value, "message")};
    const auto *ok = present(value, "ok");
    if (!ok || !ok->boolean())
        throw DecodingError(Kind::typeMismatch, "ok: not a truth value");
    outcome.ok = *ok->boolean();
    if (const auto *build = present(value, "build")) {
        if (!build->integer())
            throw DecodingError(Kind::typeMismatch, "build: not an integer");
        outcome.build = *build->integer();
    }
    return outcome;
}

} // namespace tarn
