#include "Platform/Linux/ProcessStart.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace tarn {

std::optional<std::uint64_t> processStart(std::int32_t pid) {
    constexpr int position = 22;
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    // The second field is the program's name, which may hold anything, in brackets.
    const auto bracket = text.rfind(')');
    if (bracket == std::string::npos)
        return std::nullopt;
    std::istringstream fields(text.substr(bracket + 1));
    std::string skipped;
    for (int field = 3; field < position; ++field)
        fields >> skipped;
    std::uint64_t ticks = 0;
    if (!(fields >> ticks))
        return std::nullopt;
    return ticks;
}

} // namespace tarn
