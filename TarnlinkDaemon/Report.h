#pragma once

#include "TarnlinkDaemon/Evaluation.h"

#include <string>

namespace tarn::report {

/// Such as "wired (eth0, Office)".
std::string describe(const Status &status);

/// An evaluation for a person at a terminal.
std::string asText(const Evaluation &evaluation);

/// The same as one JSON object.
std::string asJson(const Evaluation &evaluation);

} // namespace tarn::report
