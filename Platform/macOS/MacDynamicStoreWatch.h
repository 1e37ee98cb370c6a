#pragma once

#include "TarnSystem/DynamicStoreWatch.h"

#include <memory>
#include <string>

namespace tarn {

/// Opens a session that the system's configuration store tells of changes; null when it is refused.
std::unique_ptr<DynamicStoreWatch> openMacDynamicStoreWatch(const std::string &clientName,
                                                            DynamicStoreWatch::Callback callback);

} // namespace tarn
