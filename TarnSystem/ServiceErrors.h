#pragma once

#include "TarnSystem/NetworkPreferences.h"

#include <string>
#include <string_view>

namespace tarn {

/// What an error of NetworkManager or of the message bus means for a change of a service.
/// `name` is the error's name on the bus, as in NetworkManager's D-Bus interface and in
/// sd-bus-errors(3); an unknown or empty one counts as failed.
NetworkPreferencesEditor::Result::Kind managerErrorKind(std::string_view name);

/// What a status of the SystemConfiguration framework (its kSCStatus constants) means.
NetworkPreferencesEditor::Result::Kind scStatusKind(int status);

/// Results for which no other program has words.
NetworkPreferencesEditor::Result managerNotRunning();
NetworkPreferencesEditor::Result deviceNotManaged(const std::string &device);
NetworkPreferencesEditor::Result noSuchService(const std::string &serviceID);
NetworkPreferencesEditor::Result notActivating(const std::string &device);
NetworkPreferencesEditor::Result orderNotPossible();
NetworkPreferencesEditor::Result configurationNotUsable();

} // namespace tarn
