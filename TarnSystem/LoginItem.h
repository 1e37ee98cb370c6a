#pragma once

#include "TarnSystem/DaemonRegistration.h"

#include <optional>
#include <string>

namespace tarn {

/// Whether the menu application opens when its user logs in.
///
/// Thread: one at a time, any; calls may block while the system is asked.
class LoginItem {
public:
    virtual ~LoginItem() = default;
    /// As the system has it, whoever changed it last; absent when it cannot be asked.
    virtual std::optional<RegistrationState> state() = 0;
    /// Returns why it was not changed, in the system's words for people.
    virtual std::optional<std::string> set(bool opensAtLogin) = 0;
};

} // namespace tarn
