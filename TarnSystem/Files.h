#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// Whole files, read and replaced.
///
/// Thread: any; calls block.
namespace tarn::files {

/// Why a file could not be read or written: the system's description for people.
struct Failure {
    /// Nothing is there under this name.
    bool isMissing = false;
    std::string message;
};

struct ReadResult {
    /// None when reading failed.
    std::optional<std::string> contents;
    Failure failure;
};

/// Reads a regular file. A file of more than `limit` bytes is a failure.
ReadResult read(const std::string &path, std::size_t limit);

/// Puts a file in place of an earlier one: written aside, synchronised, renamed. After a crash
/// at any moment, and after a failure, either the old or the new contents are there, whole;
/// after success the new ones survive a power cut. Missing folders are made.
std::optional<Failure> replace(const std::string &path, std::string_view contents);

/// Makes a folder, and those above it, where they are missing; they survive a power cut.
std::optional<Failure> makeFolder(const std::string &folder);

/// Waits until what was written is on the medium, as far as the system can tell. False with the
/// reason in errno. Each operating system has its own.
bool flushToDisk(int descriptor);

} // namespace tarn::files
