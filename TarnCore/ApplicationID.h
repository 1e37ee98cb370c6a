#pragma once

namespace tarn::AppInfo {

/// Preference domain, log subsystem and prefix of every name that the system knows us by.
inline constexpr const char *identifier = "com.veltrion.tarnlink";

} // namespace tarn::AppInfo
