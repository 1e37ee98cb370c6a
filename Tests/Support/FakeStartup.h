#pragma once

#include "TarnSystem/LoginItem.h"

namespace tarn {

/// A system that starts what it has been told to, unless the test has something against it.
struct FakeStartup final : DaemonRegistration {
    struct Item final : LoginItem {
        std::optional<RegistrationState> is = RegistrationState::notRegistered;
        /// What a change leads to; absent: what was asked for.
        std::optional<RegistrationState> becomes;
        std::optional<std::string> error;
        std::string calls;

        std::optional<RegistrationState> state() override { return is; }
        std::optional<std::string> set(bool wanted) override {
            calls += wanted ? "on;" : "off;";
            is = becomes.value_or(wanted ? RegistrationState::enabled : RegistrationState::notRegistered);
            return error;
        }
    } loginItem, daemon;

    std::optional<RegistrationState> state() override { return daemon.is; }
    bool canRegister() const override { return true; }
    std::optional<std::string> registerDaemon() override { return daemon.set(true); }
    std::optional<std::string> unregisterDaemon() override { return daemon.set(false); }
    std::optional<std::string> administratorCommand(RegistrationState) const override { return {}; }
    void openSystemSettings() override { daemon.calls += "settings;"; }
};

} // namespace tarn
