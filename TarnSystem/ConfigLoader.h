#pragma once

#include "TarnCore/ApplicationID.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/Preferences.h"

#include <string>
#include <vector>

/// Where a configuration comes from.
namespace tarn::ConfigLoader {

/// The preference domain.
inline constexpr const char *applicationID = AppInfo::identifier;

/// Defaults, then preferences, then command-line arguments, of which the first is the
/// executable and is skipped. Never fails: a value of the wrong type, a word that is not
/// known and an unknown argument change nothing.
DaemonConfig load(Preferences &preferences, const std::vector<std::string> &arguments);

/// Stores a truth value for the whole machine. False when it could not be stored.
bool writeLocalBool(Preferences &preferences, bool value, const std::string &forKey);

/// Stores whether tethering is allowed while wired, for the whole machine. False when it
/// could not be stored.
bool writeLocalTetheringWhileWired(Preferences &preferences, bool allow);

/// Stores whether a shadowed resolver is repaired, for the whole machine, under both names that it has
/// where the second is in use. False when it could not be stored.
bool writeLocalTetheringDNSFix(Preferences &preferences, bool enabled);

/// Whether management has set one of the two, so that nobody else can.
bool isTetheringWhileWiredForced(Preferences &preferences);
bool isTetheringDNSFixForced(Preferences &preferences);

} // namespace tarn::ConfigLoader
