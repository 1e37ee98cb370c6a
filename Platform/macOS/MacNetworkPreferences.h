#pragma once

#include "TarnSystem/NetworkPreferences.h"

#include <memory>
#include <string>

namespace tarn {

/// Opens a session with the default network preferences; null when it is refused.
std::unique_ptr<NetworkPreferences> openMacNetworkPreferences(const std::string &clientName);

} // namespace tarn
