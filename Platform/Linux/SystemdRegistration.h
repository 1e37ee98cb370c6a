#pragma once

#include "TarnSystem/DaemonRegistration.h"

namespace tarn {

/// The daemon's unit as systemd knows it, asked over the system bus. Enabling it is left to the package and
/// to administrators: registering and unregistering change nothing.
class SystemdRegistration final : public DaemonRegistration {
public:
    std::optional<RegistrationState> state() override;
    bool canRegister() const override { return false; }
    std::optional<std::string> registerDaemon() override;
    std::optional<std::string> unregisterDaemon() override;
    std::optional<std::string> administratorCommand(RegistrationState state) const override;
    void openSystemSettings() override {}
};

} // namespace tarn
