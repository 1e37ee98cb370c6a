#include "TarnSystem/ProcessLauncher.h"

namespace tarn {
namespace {

std::string lastLine(const std::string &output) {
    const auto end = output.find_last_not_of(" \t\r\n");
    if (end == std::string::npos)
        return {};
    const auto before = output.find_last_of("\r\n", end);
    const auto start = before == std::string::npos ? 0 : before + 1;
    return output.substr(start, end + 1 - start);
}

} // namespace

std::optional<std::string> ProcessLauncher::Result::complaint() const {
    if (launchError || status == 0)
        return launchError;
    for (const auto *output : {&standardError, &standardOutput})
        if (auto line = lastLine(*output); !line.empty())
            return line;
    return "exit status " + std::to_string(status);
}

} // namespace tarn
