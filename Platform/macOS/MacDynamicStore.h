#pragma once

#include "TarnSystem/DynamicStore.h"

#include <memory>
#include <string>

namespace tarn {

/// Opens a session with the system's configuration store; null when it is refused.
std::unique_ptr<DynamicStore> openMacDynamicStore(const std::string &clientName);

} // namespace tarn
