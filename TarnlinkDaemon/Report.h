#pragma once

#include "TarnlinkDaemon/Evaluation.h"

#include <string>
#include <vector>

namespace tarn::report {

/// Such as "wired (eth0, Office)".
std::string describe(const Status &status);

/// Interfaces as a table with a heading; "none" without any.
std::string interfaceTable(const std::vector<InterfaceSnapshot> &interfaces);

/// An evaluation for a person at a terminal.
std::string asText(const Evaluation &evaluation);

/// The same as one JSON object.
std::string asJson(const Evaluation &evaluation);

} // namespace tarn::report
