#pragma once

#include "TarnSystem/AuthorizationServices.h"

namespace tarn {

/// Authorization Services. Writing a right needs an administrator or root; `internal` is also the status of
/// a definition or description that has no form as a property list.
class MacAuthorizations final : public AuthorizationServices {
public:
    Status create(std::unique_ptr<AuthorizationReference> &reference) override;
    Status createFromExternalForm(const std::string &bytes,
                                  std::unique_ptr<AuthorizationReference> &reference) override;
    std::optional<Value> rightDefinition(const std::string &name) override;
    std::optional<std::string> message(Status status) override;
};

} // namespace tarn
