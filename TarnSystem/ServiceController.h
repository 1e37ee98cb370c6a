#pragma once

#include "TarnSystem/NetworkPreferences.h"

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarn {

/// A change of a service that did not come about. Nothing was changed, or only part of it: whoever
/// wants it asks again for the whole.
class ServiceControlError : public std::runtime_error {
public:
    using Kind = NetworkPreferencesEditor::Result::Kind;

    /// `kind` is not done. `message` is the system's own words, possibly empty.
    ServiceControlError(Kind kind, const std::string &message) : std::runtime_error(message), kind_(kind) {}

    Kind kind() const { return kind_; }
    std::string message() const { return what(); }
    /// One fixed sentence for each kind.
    std::string description() const;

private:
    Kind kind_;
};

/// Reads and changes the network services.
///
/// Thread: one at a time; calls block for as long as the system takes.
/// Errors: ServiceControlError. Nothing is tried again here.
class ServiceControlling {
public:
    virtual ~ServiceControlling() = default;

    virtual void setEnabled(const std::string &serviceID, bool enabled) = 0;
    /// Puts the named services first, in this order. Unknown and repeated ones are left out;
    /// those that are not named follow in their present order.
    virtual void reorder(const std::vector<std::string> &serviceIDs) = 0;
    /// How a protocol is configured at present.
    virtual ProtocolConfiguration configuration(const std::string &serviceID, IPProtocol protocol) = 0;
    virtual void setConfiguration(const std::string &serviceID, IPProtocol protocol,
                                  const ProtocolConfiguration &configuration) = 0;
};

/// Carries changes out in a session with the preferences. What is already so is left alone, and
/// then nothing is locked. The lock is held for one change and released whatever happens.
class ServiceController final : public ServiceControlling {
public:
    /// Gives a new session; null when the system refuses one.
    using Opener = std::function<std::unique_ptr<NetworkPreferencesEditor>()>;

    /// The first use opens the session; as long as there is none, each use tries again.
    explicit ServiceController(Opener open) : open_(std::move(open)) {}

    void setEnabled(const std::string &serviceID, bool enabled) override;
    void reorder(const std::vector<std::string> &serviceIDs) override;
    ProtocolConfiguration configuration(const std::string &serviceID, IPProtocol protocol) override;
    void setConfiguration(const std::string &serviceID, IPProtocol protocol,
                          const ProtocolConfiguration &configuration) override;

private:
    using Result = NetworkPreferencesEditor::Result;
    using Change = std::function<Result(NetworkPreferencesEditor &)>;

    /// The session, with everybody's changes visible.
    NetworkPreferencesEditor &session();
    /// `change` is empty when everything is as wanted.
    void carryOut(const Change &change);

    Opener open_;
    std::unique_ptr<NetworkPreferencesEditor> session_;
    /// Something was committed that has not taken effect.
    bool isApplyDue_ = false;
};

} // namespace tarn
