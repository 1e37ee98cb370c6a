#include "TarnlinkDaemon/UpdateRequests.h"

#include "TarnCore/AppInfo.h"
#include "TarnCore/Status.h"
#include "TarnSystem/Files.h"
#include "TarnSystem/Json.h"

#include <utility>
#include <variant>

namespace tarn {
namespace {

constexpr const char *accepted = "accepted";

template <class Record> std::optional<Record> decode(const std::optional<std::string> &contents) {
    const auto parsed = contents ? json::parse(*contents) : json::SyntaxError();
    const auto *value = std::get_if<Value>(&parsed);
    try {
        return value ? std::optional(Record::decode(*value)) : std::nullopt;
    } catch (const DecodingError &) {
        return std::nullopt;
    }
}

UpdateResult refused(const char *code, std::string message) {
    return {false, code, std::move(message), {}};
}

UpdateResult silent() {
    return refused("updater.silent", "The updater does not tell what became of the update.");
}

bool isUnderWay(const UpdateResult &result) {
    return result.ok && result.code != "idle" && result.code != "installed";
}

} // namespace

UpdateResult UpdateRequests::submit(const std::string &pkgPath, const std::optional<std::string> &manifest,
                                    const std::optional<std::string> &signature) {
    if (const auto now = status(); isUnderWay(now))
        return refused("busy", "Another update is under way.");
    const auto now = services_.clock.now();
    const UpdateRequest request{std::to_string(now.sinceEpoch.count()) + "-" +
                                    std::to_string(now.sinceBoot.count()),
                                pkgPath, manifest, signature};
    const auto bytes = json::serialize(request.encoded());
    if (bytes.size() > UpdateRequest::mostBytes)
        return refused("failed", "The path, the manifest and the signature are too long.");
    if (const auto error = services_.folder.replace(UpdateRequest::fileName, bytes))
        return refused("failed", "The request could not be written: " + *error);
    latest_ = request.id;
    step_ = {request.id, accepted, now.sinceBoot};
    if (const auto error = services_.starter.start(services_.requestPath)) {
        services_.folder.remove(UpdateRequest::fileName);
        latest_.reset();
        return refused("updater.start", "The updater could not be started: " + *error);
    }
    return {true, accepted, "The update was handed to the updater.", {}};
}

UpdateResult UpdateRequests::status() {
    // In this order: the updater leaves an outcome before it takes the request away.
    const auto left = services_.folder.read(UpdateRequest::fileName);
    const auto file =
        files::read(services_.updaterFolder + "/" + UpdateOutcome::fileName, UpdateOutcome::mostBytes);
    const auto outcome = decode<UpdateOutcome>(file.contents);
    if (!outcome && !file.failure.isMissing)
        return refused("updater.unreadable", "What the updater tells cannot be read" +
                                                 (file.contents ? "." : ": " + file.failure.message));
    auto awaited = latest_;
    if (left.contents)
        awaited = decode<UpdateRequest>(left.contents).value_or(UpdateRequest{}).id;
    if (awaited && (!outcome || outcome->id != *awaited)) {
        if (!left.contents || isStuck(*awaited, accepted))
            return silent();
        return {true, accepted, "The updater has not begun yet.", {}};
    }
    if (!outcome)
        return {true, "idle", "No update was asked for.", AppInfo::build};
    if (outcome->isUnderWay() && isStuck(outcome->id, outcome->code))
        return silent();
    return {outcome->ok, outcome->code, outcome->message, outcome->build};
}

bool UpdateRequests::isStuck(const std::string &id, const std::string &code) {
    const auto now = services_.clock.now().sinceBoot;
    if (!step_ || step_->id != id || step_->code != code)
        step_ = {id, code, now};
    return now - step_->since >= patience;
}

} // namespace tarn
