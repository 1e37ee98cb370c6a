#pragma once

#include "TarnSystem/AuthorizationServices.h"
#include "TarnSystem/Log.h"

#include <cstdint>
#include <exception>
#include <string>

namespace tarn {

/// Why an authorization was not had. The words are fixed.
class AdminAuthorizationError : public std::exception {
public:
    enum class Kind { denied, rightSetFailed, cancelled, invalidExternalForm };

    /// `systemMessage` is the system's words for the status, where it has any.
    AdminAuthorizationError(Kind kind, std::int32_t status = 0,
                            const std::optional<std::string> &systemMessage = {});

    Kind kind() const { return kind_; }
    /// 0 for kinds without one.
    std::int32_t status() const { return status_; }
    const std::string &description() const { return description_; }
    const char *what() const noexcept override { return description_.c_str(); }

private:
    Kind kind_;
    std::int32_t status_;
    std::string description_;
};

/// Both halves of the authorization of an administrator for one named right.
class Authorizing {
public:
    virtual ~Authorizing() = default;

    virtual std::string rightName() const = 0;
    /// Makes sure that the system knows the right as it is defined here. Throws AdminAuthorizationError.
    virtual void ensureRightExists() = 0;
    /// Whether the external form stands for the right. Asks nobody; never throws.
    virtual bool verify(const std::string &externalForm) = 0;
    /// Asks the person for an administrator's credentials and returns the external form, 32 bytes, which
    /// is good for as long as this process lives. Blocks while the system's prompt is up.
    /// Throws AdminAuthorizationError.
    virtual std::string acquireInteractively() = 0;
};

/// By the system's own authorizations. Holds no state of its own.
///
/// Thread: any but the main thread, because every function but rightName() blocks.
class AdminAuthorization final : public Authorizing {
public:
    static constexpr const char *pauseRight = "com.veltrion.tarnlink.pause";
    /// What needs no administrator where somebody sits in front of the machine. It has no rule here: on
    /// systems that know it, it comes with the installation.
    static constexpr const char *manageRight = "com.veltrion.tarnlink.manage";

    /// Both must outlive this.
    AdminAuthorization(AuthorizationServices &system, Log &log, std::string right = pauseRight)
        : system_(system), log_(log), right_(std::move(right)) {}

    /// How the pausing right is defined.
    static Value ruleDefinition();
    /// Of the last check in this process that failed; 0 when none has.
    static std::int32_t lastVerifyStatus();

    std::string rightName() const override { return right_; }
    void ensureRightExists() override;
    bool verify(const std::string &externalForm) override;
    std::string acquireInteractively() override;

private:
    AuthorizationServices &system_;
    Log &log_;
    std::string right_;
};

} // namespace tarn
