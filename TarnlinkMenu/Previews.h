#pragma once

#include "TarnCore/LocalizedStrings.h"
#include "TarnlinkMenu/View.h"

#include <optional>
#include <string>
#include <vector>

namespace tarn::previews {

/// The scenarios, each a short name such as "wired": one for every status and every window, and for what else
/// changes what is shown.
std::vector<std::string> names();

/// The window that the application shows in that scenario, from its real models on sample data; absent when
/// there is no such scenario. Its actions do nothing.
///
/// Thread: any one. Errors: none. Needs a folder for temporary files where an update is being downloaded.
std::optional<WindowContent> make(const std::string &name, const LocalizedStrings &strings);

} // namespace tarn::previews
