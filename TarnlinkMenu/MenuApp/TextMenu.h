#pragma once

#include "TarnSystem/MainActor.h"
#include "TarnlinkMenu/MenuApp/Application.h"

namespace tarn {

/// Writes the menu to standard output, once there is a status, after two seconds at the latest; following,
/// again whenever it changes, until the process is ended or nobody reads any more. Serves `actor` meanwhile.
/// Returns whether everything could be written.
bool runTextMenu(MainActor &actor, Application &application, bool isFollowing);

} // namespace tarn
