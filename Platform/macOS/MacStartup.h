#pragma once

#include "TarnSystem/DaemonRegistration.h"
#include "TarnSystem/LoginItem.h"

namespace tarn {

/// The daemon by SMAppService: its property list is in the application's own bundle.
class MacDaemonRegistration final : public DaemonRegistration {
public:
    std::optional<RegistrationState> state() override;
    bool canRegister() const override { return true; }
    std::optional<std::string> registerDaemon() override;
    std::optional<std::string> unregisterDaemon() override;
    std::optional<std::string> administratorCommand(RegistrationState) const override { return std::nullopt; }
    void openSystemSettings() override;
};

/// The application itself by SMAppService.
class MacLoginItem final : public LoginItem {
public:
    std::optional<RegistrationState> state() override;
    std::optional<std::string> set(bool opensAtLogin) override;
};

} // namespace tarn
