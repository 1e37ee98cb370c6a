#include "TarnSystem/DaemonRegistration.h"

namespace tarn {

RegistrationState registrationOfUnit(std::string_view unitFileState) {
    if (unitFileState.starts_with("masked"))
        return RegistrationState::requiresApproval;
    if (unitFileState == "bad" || unitFileState.empty())
        return RegistrationState::notFound;
    // One that is only linked is known to the system, but nothing starts it.
    return unitFileState == "disabled" || unitFileState.starts_with("linked")
               ? RegistrationState::notRegistered
               : RegistrationState::enabled;
}

std::optional<std::string> commandForUnit(RegistrationState state, const std::string &unit) {
    if (state == RegistrationState::notRegistered)
        return "sudo systemctl enable --now " + unit;
    // Whether it is enabled shows once it is no longer masked.
    if (state == RegistrationState::requiresApproval)
        return "sudo systemctl unmask " + unit;
    return std::nullopt;
}

} // namespace tarn
