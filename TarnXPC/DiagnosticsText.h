#pragma once

#include <string>
#include <string_view>

/// The form of the daemon's diagnostics text: sections, each a line with its heading and then lines with
/// two blanks before them.
namespace tarn::DiagnosticsText {

inline constexpr std::string_view state = "State";
inline constexpr std::string_view interfaces = "Interfaces";
inline constexpr std::string_view probes = "Probes";
inline constexpr std::string_view journal = "Journal";
inline constexpr std::string_view history = "History";

/// Adds a section; each line of `lines` may hold anything but a line feed.
std::string section(std::string_view heading, std::string_view lines);
/// The lines of a section without the blanks, each with a line feed; empty without such a section.
std::string linesOf(std::string_view text, std::string_view heading);

} // namespace tarn::DiagnosticsText
