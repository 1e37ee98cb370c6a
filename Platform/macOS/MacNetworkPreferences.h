#pragma once

#include "TarnSystem/NetworkPreferences.h"

#include <memory>
#include <string>

namespace tarn {

/// Opens a session with the default network preferences; null when it is refused.
std::unique_ptr<NetworkPreferences> openMacNetworkPreferences(const std::string &clientName);

/// The same for changes, which only root may make.
std::unique_ptr<NetworkPreferencesEditor> openMacNetworkPreferencesEditor(const std::string &clientName);

} // namespace tarn
