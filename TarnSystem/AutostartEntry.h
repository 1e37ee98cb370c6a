#pragma once

#include <string>
#include <string_view>

/// Files of the autostart folders (freedesktop.org, Desktop Application Autostart).
namespace tarn::autostart {

/// Whether a session starts what the entry names: it has a command, is not hidden, and GNOME's own switch is
/// not off. One that only hides another has no command.
bool isEnabled(std::string_view entry);
/// The same entry switched on or off; all else in it stays.
std::string switched(std::string_view entry, bool enabled);

} // namespace tarn::autostart
