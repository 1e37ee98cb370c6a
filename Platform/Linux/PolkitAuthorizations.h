#pragma once

#include "TarnSystem/AuthorizationServices.h"
#include "TarnSystem/ProcessIdentity.h"

namespace tarn {

/// Authorizations by polkit, which starts when it is asked. A handle stands for a process: what polkit grants
/// it, it remembers itself. Where polkit cannot be asked, or does not know the right, only root may.
///
/// Nothing is waited for longer than a few seconds, but for a person, who has five minutes.
class PolkitAuthorizations final : public AuthorizationServices {
public:
    /// A handle of this process.
    Status create(std::unique_ptr<AuthorizationReference> &reference) override;
    /// A handle of the process that a ProcessIdentity names. It is the caller who has to know that the
    /// process is the one that it says to be: with polkit away, its user decides.
    Status createFromExternalForm(const std::string &bytes,
                                  std::unique_ptr<AuthorizationReference> &reference) override;
    /// What polkit's action has that corresponds.
    std::optional<Value> rightDefinition(const std::string &name) override;
    std::optional<std::string> message(Status status) override { return authorizationText(status); }
};

/// Who this process is; none when /proc does not tell.
std::optional<ProcessIdentity> currentProcess();

} // namespace tarn
