#include "TarnSystem/AdminAuthorization.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using Kind = AdminAuthorizationError::Kind;
using Status = AuthorizationServices::Status;
using Reference = std::unique_ptr<AuthorizationReference>;

constexpr const char *promptText = "Tarnlink: Schutz vorübergehend aussetzen";
constexpr std::uint32_t acquiring = AuthorizationFlags::interactionAllowed |
                                    AuthorizationFlags::extendRights | AuthorizationFlags::preAuthorize;

std::atomic<Status> lastStatus{AuthorizationStatus::success};

/// Never freed: what others were given of it is good for as long as this process lives.
void retain(Reference reference) {
    static std::mutex mutex;
    static auto &references = *new std::vector<Reference>;
    const std::lock_guard lock(mutex);
    references.push_back(std::move(reference));
}

std::string describe(Kind kind, Status status, const std::optional<std::string> &systemMessage) {
    const auto reason = " (" + std::to_string(status) + "): " + systemMessage.value_or("unbekannter Fehler");
    switch (kind) {
    case Kind::denied:
        return "Authentifizierung fehlgeschlagen" + reason;
    case Kind::rightSetFailed:
        return std::string("Recht ") + AdminAuthorization::pauseRight + " konnte nicht angelegt werden" +
               reason;
    case Kind::cancelled:
        return "Administrator-Authentifizierung abgebrochen.";
    case Kind::invalidExternalForm:
        break;
    }
    return "Ungültige externe Authorization-Form (falsche Länge).";
}

} // namespace

AdminAuthorizationError::AdminAuthorizationError(Kind kind, std::int32_t status,
                                                 const std::optional<std::string> &systemMessage)
    : kind_(kind), status_(status), description_(describe(kind, status, systemMessage)) {}

Value AdminAuthorization::ruleDefinition() {
    return Value::Dictionary{
        {"class", "user"},
        {"group", "admin"},
        {"authenticate-user", true},
        {"shared", true},
        {"allow-root", true},
        {"session-owner", false},
        {"timeout", 300},
        {"tries", 3},
        {"version", 2},
        {"comment", "Tarnlink: Schutz vorübergehend aussetzen (Administrator erforderlich)"},
    };
}

std::int32_t AdminAuthorization::lastVerifyStatus() {
    return lastStatus;
}

void AdminAuthorization::ensureRightExists() {
    const auto require = [&](Status status) {
        if (status != AuthorizationStatus::success)
            throw AdminAuthorizationError(Kind::rightSetFailed, status, system_.message(status));
    };
    Reference reference;
    require(system_.create(reference));
    const auto rule = ruleDefinition();
    // A rule of another version is replaced, and so is one without a limit in time.
    if (const auto stored = system_.rightDefinition(right_); stored && stored->find("timeout")) {
        const auto *version = stored->find("version");
        if (version && *version == *rule.find("version"))
            return;
    }
    require(reference->setRight(right_, rule, promptText));
}

bool AdminAuthorization::verify(const std::string &externalForm) {
    if (externalForm.size() != AuthorizationServices::externalFormLength)
        return false;
    const auto succeeds = [&](Status status, const char *call) {
        if (status == AuthorizationStatus::success)
            return true;
        log_.write(Log::Level::error, "authorization",
                   std::string(call) + " failed: " + std::to_string(status));
        lastStatus = status;
        return false;
    };
    Reference reference;
    return succeeds(system_.createFromExternalForm(externalForm, reference),
                    "AuthorizationCreateFromExternalForm") &&
           succeeds(reference->copyRight(right_, AuthorizationFlags::extendRights),
                    "AuthorizationCopyRights (daemon re-check)");
}

std::string AdminAuthorization::acquireInteractively() {
    const auto require = [&](Status status) {
        if (status == AuthorizationStatus::canceled)
            throw AdminAuthorizationError(Kind::cancelled);
        if (status != AuthorizationStatus::success)
            throw AdminAuthorizationError(Kind::denied, status, system_.message(status));
    };
    Reference reference;
    require(system_.create(reference));
    require(reference->copyRight(right_, acquiring));
    auto &acquired = *reference;
    retain(std::move(reference));
    std::string bytes;
    const Status status = acquired.makeExternalForm(bytes);
    if (status != AuthorizationStatus::success)
        throw AdminAuthorizationError(Kind::denied, status, system_.message(status));
    return bytes;
}

} // namespace tarn
