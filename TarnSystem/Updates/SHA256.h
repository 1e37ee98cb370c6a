#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace tarn {

/// SHA-256 (FIPS 180-4) of bytes that come piece by piece.
///
/// Thread: any, one at a time. Errors: std::bad_alloc.
class SHA256 {
public:
    SHA256();
    ~SHA256();
    SHA256(const SHA256 &) = delete;
    SHA256 &operator=(const SHA256 &) = delete;

    void update(std::string_view piece);
    /// Of all pieces so far, in lowercase hexadecimal digits. The last call.
    std::string finish();

    /// Of a file, to its end. Blocks. Throws std::system_error.
    static std::string of(const std::string &path);

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

} // namespace tarn
