#pragma once

#include "TarnSystem/Descriptor.h"

#include <cstdint>
#include <exception>
#include <string>

namespace tarn {

/// Why an update is not installed: a word for programs and a sentence for people.
class Refusal : public std::exception {
public:
    Refusal(std::string code, std::string description)
        : code_(std::move(code)), description_(std::move(description)) {}

    const std::string &code() const { return code_; }
    const std::string &description() const { return description_; }
    const char *what() const noexcept override { return description_.c_str(); }

private:
    std::string code_;
    std::string description_;
};

/// A file of somebody who is not trusted. It is opened once; what happens to its name after that does not
/// matter, and what happens to its bytes only until they are copied. What is said of it tells whether
/// there is a readable regular file, and whether it has the wanted size, and nothing else.
///
/// Thread: any; calls block.
class PackageFile {
public:
    /// Throws Refusal with this code unless it is a regular file; a symbolic link is none, and nothing waits
    /// for a pipe.
    PackageFile(const std::string &path, std::string code);

    /// Throws Refusal with the same code, also when there are more than `limit` bytes.
    std::string contents(std::uint64_t limit);

    /// One answer for too many bytes and too few.
    static Refusal wrongSize() {
        return {"refused.size", "The package is not as long as the manifest says."};
    }

    struct Copy {
        std::uint64_t size = 0;
        /// In lowercase hexadecimal digits.
        std::string sha256;
    };
    /// Copies it to a new file that only this user can read. What is told of the copy is of the bytes that
    /// went into it. Throws Refusal: "refused.size" as soon as there are more than `limit` bytes,
    /// "failed.copy".
    Copy copyTo(const std::string &path, std::uint64_t limit);

private:
    /// False when there is more than the limit.
    template <class Sink> bool read(std::uint64_t limit, Sink sink);

    Refusal unusable_;
    Descriptor file_;
};

} // namespace tarn
