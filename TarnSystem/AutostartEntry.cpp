#include "TarnSystem/AutostartEntry.h"

namespace tarn::autostart {
namespace {

constexpr std::string_view group = "[Desktop Entry]";
constexpr std::string_view hidden = "Hidden=true\n";

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    return first == text.npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

/// Whether the line switches the entry; `isOff` is set when it switches it off.
bool isSwitch(std::string_view line, bool &isOff) {
    const auto equals = line.find('=');
    if (equals == line.npos)
        return false;
    const auto key = trimmed(line.substr(0, equals)), value = trimmed(line.substr(equals + 1));
    if (key == "Hidden")
        isOff = isOff || value == "true";
    else if (key == "X-GNOME-Autostart-enabled")
        isOff = isOff || value == "false";
    else
        return false;
    return true;
}

bool isCommand(std::string_view line) {
    const auto equals = line.find('=');
    return equals != line.npos && trimmed(line.substr(0, equals)) == "Exec" &&
           !trimmed(line.substr(equals + 1)).empty();
}

/// Calls `take` with each line, its end included, and whether it is in the group that counts.
template <class Take> void forEachLine(std::string_view entry, Take take) {
    bool isInside = false;
    while (!entry.empty()) {
        const auto line = entry.substr(0, entry.find('\n') == entry.npos ? entry.npos : entry.find('\n') + 1);
        entry.remove_prefix(line.size());
        const auto words = trimmed(line.substr(0, line.find('\n')));
        if (words.starts_with('['))
            isInside = words == group;
        take(line, words, isInside);
    }
}

} // namespace

bool isEnabled(std::string_view entry) {
    bool isOff = false;
    bool hasCommand = false;
    forEachLine(entry, [&](std::string_view, std::string_view words, bool isInside) {
        hasCommand = hasCommand || (isInside && isCommand(words));
        if (isInside)
            isSwitch(words, isOff);
    });
    return hasCommand && !isOff;
}

std::string switched(std::string_view entry, bool enabled) {
    std::string result;
    bool hasGroup = false;
    forEachLine(entry, [&](std::string_view line, std::string_view words, bool isInside) {
        bool ignored = false;
        if (isInside && isSwitch(words, ignored))
            return;
        result += line;
        if (isInside && words == group && !hasGroup) {
            hasGroup = true;
            if (!result.ends_with('\n'))
                result += '\n';
            if (!enabled)
                result += hidden;
        }
    });
    if (!hasGroup && !enabled)
        result = std::string(group) + "\n" + std::string(hidden) + result;
    return result;
}

} // namespace tarn::autostart
