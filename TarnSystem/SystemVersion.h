#pragma once

#include <compare>
#include <cstdint>
#include <string_view>

namespace tarn {

/// A version of the operating system.
struct SystemVersion {
    std::int64_t major = 0;
    std::int64_t minor = 0;
    std::int64_t patch = 0;

    /// Of text such as "13.0" or "6.1.0-18-amd64": at most three numbers, split at dots; empty pieces are
    /// dropped, a piece that is no integer is skipped, missing ones are 0.
    static SystemVersion parse(std::string_view text);

    friend auto operator<=>(const SystemVersion &, const SystemVersion &) = default;
};

} // namespace tarn
