#include "Platform/macOS/MacAuthorizations.h"

#include "Platform/macOS/CFRef.h"
#include "Platform/macOS/CFText.h"
#include "Platform/macOS/PropertyListValue.h"

#include <Security/Authorization.h>
#include <Security/AuthorizationDB.h>
#include <Security/SecBase.h>

#include <cstring>

namespace tarn {
namespace {

class MacAuthorizationReference final : public AuthorizationReference {
public:
    explicit MacAuthorizationReference(AuthorizationRef reference) : reference_(reference) {}
    MacAuthorizationReference(const MacAuthorizationReference &) = delete;
    MacAuthorizationReference &operator=(const MacAuthorizationReference &) = delete;
    ~MacAuthorizationReference() override {
        // The rights stay with whoever else has a handle of the same authorization.
        AuthorizationFree(reference_, kAuthorizationFlagDefaults);
    }

    Status copyRight(const std::string &name, std::uint32_t flags) override {
        AuthorizationItem item = {name.c_str(), 0, nullptr, 0};
        const AuthorizationRights rights = {1, &item};
        return AuthorizationCopyRights(reference_, &rights, nullptr, flags, nullptr);
    }

    Status setRight(const std::string &name, const Value &definition,
                    const std::string &description) override {
        const auto entries = propertyListFromValue(definition);
        const auto prompt = makeCFString(description);
        if (!entries || !prompt)
            return errAuthorizationInternal;
        return AuthorizationRightSet(reference_, name.c_str(), entries.get(), prompt.get(), nullptr, nullptr);
    }

    Status makeExternalForm(std::string &bytes) override {
        AuthorizationExternalForm form = {};
        const Status status = AuthorizationMakeExternalForm(reference_, &form);
        if (status == errAuthorizationSuccess)
            bytes.assign(form.bytes, sizeof form.bytes);
        return status;
    }

private:
    const AuthorizationRef reference_;
};

} // namespace

MacAuthorizations::Status MacAuthorizations::create(std::unique_ptr<AuthorizationReference> &reference) {
    reference.reset();
    AuthorizationRef made = nullptr;
    const Status status = AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &made);
    if (status == errAuthorizationSuccess)
        reference = std::make_unique<MacAuthorizationReference>(made);
    return status;
}

MacAuthorizations::Status
MacAuthorizations::createFromExternalForm(const std::string &bytes,
                                          std::unique_ptr<AuthorizationReference> &reference) {
    reference.reset();
    AuthorizationExternalForm form = {};
    if (bytes.size() != sizeof form.bytes)
        return errAuthorizationInvalidRef;
    std::memcpy(form.bytes, bytes.data(), sizeof form.bytes);
    AuthorizationRef made = nullptr;
    const Status status = AuthorizationCreateFromExternalForm(&form, &made);
    if (status == errAuthorizationSuccess)
        reference = std::make_unique<MacAuthorizationReference>(made);
    return status;
}

std::optional<Value> MacAuthorizations::rightDefinition(const std::string &name) {
    CFDictionaryRef found = nullptr;
    if (AuthorizationRightGet(name.c_str(), &found) != errAuthorizationSuccess)
        return std::nullopt;
    const auto definition = CFRef<CFDictionaryRef>::adopt(found);
    return valueFromPropertyList(definition.get());
}

std::optional<std::string> MacAuthorizations::message(Status status) {
    const auto words = CFRef<CFStringRef>::adopt(SecCopyErrorMessageString(status, nullptr));
    return text(words.get());
}

} // namespace tarn
