#pragma once

#include "TarnCore/LocalizedStrings.h"
#include "TarnCore/Status.h"

#include <string>
#include <vector>

namespace tarn {

/// What the menu shows for a status.
struct StatusPresentation {
    /// Name of the system symbol.
    std::string symbolName;
    /// Localisation keys; the detail text is a format that takes `detailArguments`.
    std::string titleKey;
    std::string detailKey;
    /// Service name, then device, for the three wired cases; else empty.
    std::vector<std::string> detailArguments;
    /// The status deserves attention.
    bool isWarning = false;
    std::string accessibilityKey;

    explicit StatusPresentation(const Status &status);

    /// The symbol of the menu-bar item: that of the status, whatever the Wi-Fi power is.
    static std::string menuBarSymbol(const Status &status, bool wifiOn);

    /// The spoken label in the user's language.
    std::string accessibilityLabel(const LocalizedStrings &strings) const {
        return strings.localized(accessibilityKey);
    }

    friend bool operator==(const StatusPresentation &, const StatusPresentation &) = default;
};

} // namespace tarn
