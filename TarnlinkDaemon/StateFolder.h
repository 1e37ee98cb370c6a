#pragma once

#include "TarnSystem/Descriptor.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// The folder in which the daemon keeps what must survive it.
///
/// Thread: any, one at a time for one name; calls block. Errors are the system's words for people.
class StateFolder {
public:
    struct ReadResult {
        /// None when there is no such file, or it cannot be read.
        std::optional<std::string> contents;
        /// Why it cannot be read; empty when it was, or is not there.
        std::string error;
    };

    virtual ~StateFolder() = default;
    virtual ReadResult read(const std::string &name) = 0;
    /// After success the new contents survive a power cut; otherwise the old or the new are there, whole.
    virtual std::optional<std::string> replace(const std::string &name, std::string_view contents) = 0;
    /// Adds at the end, in one piece unless the power fails.
    virtual std::optional<std::string> append(const std::string &name, std::string_view contents) = 0;
    /// Succeeds when there is no such file; survives a power cut as replace() does.
    virtual std::optional<std::string> remove(const std::string &name) = 0;
    /// Keeps a copy of a file under another name that is not taken, made from its own, and returns it; none
    /// when that failed.
    virtual std::optional<std::string> keepCopy(const std::string &name) = 0;
};

/// On disk.
class DiskFolder final : public StateFolder {
public:
    explicit DiskFolder(std::string path) : path_(std::move(path)) {}

    ReadResult read(const std::string &name) override;
    std::optional<std::string> replace(const std::string &name, std::string_view contents) override;
    std::optional<std::string> append(const std::string &name, std::string_view contents) override;
    std::optional<std::string> remove(const std::string &name) override;
    std::optional<std::string> keepCopy(const std::string &name) override;

    enum class Lock {
        held,
        taken,       ///< Another process has it.
        unavailable, ///< Full, read-only or without locks: nothing can be written there.
        denied,      ///< Not this process's to use, or no folder.
    };
    /// Makes the folder if need be, and sure that no other process uses it (flock(2)) until this one ends,
    /// or this object does. Removes what a process left that was killed while it wrote.
    Lock lock();
    const std::string &path() const { return path_; }

private:
    void removeUnfinished() const;

    std::string path_;
    Descriptor folder_;
};

} // namespace tarn
