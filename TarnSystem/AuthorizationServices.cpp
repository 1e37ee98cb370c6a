#include "TarnSystem/AuthorizationServices.h"

namespace tarn {

std::optional<std::string> authorizationText(std::int32_t status) {
    switch (status) {
    case AuthorizationStatus::invalidRef:
        return "The authorization is not valid.";
    case AuthorizationStatus::denied:
        return "The authorization was denied.";
    case AuthorizationStatus::canceled:
        return "The authorization was cancelled.";
    case AuthorizationStatus::interactionNotAllowed:
        return "Nobody can be asked for a password here.";
    case AuthorizationStatus::internal:
        return "The system failed to authorize.";
    default:
        return std::nullopt;
    }
}

} // namespace tarn
