#pragma once

#include "TarnSystem/SystemVersion.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tarn {

SystemVersion macSystemVersion();

/// As the I/O registry has it; none where it has none.
std::optional<std::string> macSerialNumber();

/// The build number in the property list of an application bundle, a whole number, as text or as a number.
std::optional<std::int64_t> macInstalledBuild(const std::string &appPath);

} // namespace tarn
