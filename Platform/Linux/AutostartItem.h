#pragma once

#include "TarnSystem/LoginItem.h"

#include <string>
#include <utility>
#include <vector>

namespace tarn {

/// The application's entry in the autostart folders (freedesktop.org, Desktop Application Autostart): the one
/// in the first folder that has one counts. Only the user's own, which comes first, is changed.
class AutostartItem final : public LoginItem {
public:
    /// The path of the user's entry, empty for a process without a home, and those that it overrides.
    AutostartItem(std::string own, std::vector<std::string> others)
        : own_(std::move(own)), others_(std::move(others)) {}

    std::optional<RegistrationState> state() override;
    std::optional<std::string> set(bool opensAtLogin) override;

private:
    const std::string own_;
    const std::vector<std::string> others_;
};

} // namespace tarn
