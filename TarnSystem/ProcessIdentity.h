#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// One process, also when its number is given to another later.
struct ProcessIdentity {
    std::int32_t pid = 0;
    /// Clock ticks from the start of the system to that of the process (proc(5), "starttime").
    std::uint64_t startTime = 0;
    std::uint32_t uid = 0;

    /// 32 bytes: a claim that holds no secret, to be compared with what the system says of the caller.
    std::string externalForm() const;
    /// None for anything that externalForm() does not make.
    static std::optional<ProcessIdentity> fromExternalForm(std::string_view bytes);

    friend bool operator==(const ProcessIdentity &, const ProcessIdentity &) = default;
};

} // namespace tarn
