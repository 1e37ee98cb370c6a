#pragma once

#include "TarnCore/InterfaceSnapshot.h"

#include <optional>
#include <string>
#include <vector>

namespace tarn::ServiceOrder {

/// The service order in which every wired service stands before Wi-Fi; none when that is so
/// already. Names only services of the given snapshots: others stay behind them.
std::optional<std::vector<std::string>> reorderIfNeeded(const std::vector<InterfaceSnapshot> &interfaces);

} // namespace tarn::ServiceOrder
