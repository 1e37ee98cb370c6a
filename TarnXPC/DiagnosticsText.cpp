#include "TarnXPC/DiagnosticsText.h"

#include <algorithm>

namespace tarn::DiagnosticsText {
namespace {

constexpr std::string_view indent = "  ";

} // namespace

std::string section(std::string_view heading, std::string_view lines) {
    std::string text(heading);
    text += ":\n";
    while (!lines.empty()) {
        const auto end = std::min(lines.find('\n'), lines.size());
        text.append(indent).append(lines.substr(0, end)).push_back('\n');
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    return text;
}

std::string linesOf(std::string_view text, std::string_view heading) {
    std::string lines;
    bool isInside = false;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        const auto line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (!line.starts_with(indent))
            isInside = line == std::string(heading) + ":";
        else if (isInside)
            lines.append(line.substr(indent.size())).push_back('\n');
    }
    return lines;
}

} // namespace tarn::DiagnosticsText
