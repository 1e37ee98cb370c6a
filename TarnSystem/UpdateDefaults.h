#pragma once

#include <chrono>

/// What the menu application remembers of its checks for updates, by keys of the user defaults, for others
/// who look at it.
namespace tarn::updateDefaults {

/// Truth value: checks are made without being asked for. Absent counts as true.
inline constexpr const char *automatic = "UpdateCheck";
/// Date of the last check that succeeded.
inline constexpr const char *lastCheck = "UpdateLastCheck";
/// Date of the first failed check after it.
inline constexpr const char *troubleSince = "UpdateFeedTroubleSince";

/// After so long without a check that succeeded, a feed counts as silent.
inline constexpr std::chrono::hours silenceLimit{30 * 24};

} // namespace tarn::updateDefaults
