#pragma once

#include <cstdint>
#include <optional>

namespace tarn {

/// Clock ticks from the start of the system to that of a process (proc(5), "starttime"); none when there is
/// no such process, or it is hidden.
std::optional<std::uint64_t> processStart(std::int32_t pid);

} // namespace tarn
