#pragma once

#include "TarnCore/Status.h"

#include <string>

namespace tarn {

/// A status in a few English words, such as "Wired: eth0 (Office)". Names stand as they are given: what goes
/// to a terminal has to be made printable.
std::string statusTitle(const Status &status);

} // namespace tarn
