#pragma once

#include <cstdint>

namespace tarn {

/// The operating system's cryptographic random source.
///
/// Thread: any. Errors: std::system_error on a system without such a source.
class SecureRandom {
public:
    virtual ~SecureRandom() = default;
    virtual std::uint64_t next() = 0;
};

} // namespace tarn
