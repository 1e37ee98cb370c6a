#pragma once

#include "TarnCore/Value.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tarn {

/// Result codes, as Authorization Services has them; 0 is success.
namespace AuthorizationStatus {
inline constexpr std::int32_t success = 0;
inline constexpr std::int32_t invalidRef = -60002;
inline constexpr std::int32_t denied = -60005;
inline constexpr std::int32_t canceled = -60006;
/// Somebody would have to be asked, and nobody may or can be.
inline constexpr std::int32_t interactionNotAllowed = -60007;
inline constexpr std::int32_t internal = -60008;
} // namespace AuthorizationStatus

namespace AuthorizationFlags {
inline constexpr std::uint32_t interactionAllowed = 1;
inline constexpr std::uint32_t extendRights = 2;
inline constexpr std::uint32_t preAuthorize = 16;
} // namespace AuthorizationFlags

/// Words for the status codes above, for a system that has none of its own; none for success and others.
std::optional<std::string> authorizationText(std::int32_t status);

/// A handle of an authorization; destroying it frees it.
///
/// Thread: one at a time, any; every function may block for as long as the system takes, and with
/// `interactionAllowed` for as long as a person takes.
class AuthorizationReference {
public:
    using Status = std::int32_t;

    virtual ~AuthorizationReference() = default;
    /// Asks for one right, without a value and an environment.
    virtual Status copyRight(const std::string &name, std::uint32_t flags) = 0;
    /// Writes a right into the system's database. No bundle and no table of translations.
    virtual Status setRight(const std::string &name, const Value &definition,
                            const std::string &description) = 0;
    /// 32 bytes, by which another process can make a handle of the same authorization.
    virtual Status makeExternalForm(std::string &bytes) = 0;
};

/// The system's authorizations: Authorization Services, or polkit.
///
/// Thread: any; every function may block.
class AuthorizationServices {
public:
    using Status = AuthorizationReference::Status;
    /// Of every external form, in bytes.
    static constexpr std::size_t externalFormLength = 32;

    virtual ~AuthorizationServices() = default;
    /// A handle without rights, environment and flags; null unless it succeeds.
    virtual Status create(std::unique_ptr<AuthorizationReference> &reference) = 0;
    virtual Status createFromExternalForm(const std::string &bytes,
                                          std::unique_ptr<AuthorizationReference> &reference) = 0;
    /// The definition of a right in the system's database; absent when there is none.
    virtual std::optional<Value> rightDefinition(const std::string &name) = 0;
    /// The system's words for a status.
    virtual std::optional<std::string> message(Status status) = 0;
};

} // namespace tarn
