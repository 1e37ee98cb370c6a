#pragma once

#include "TarnCore/Value.h"
#include "TarnSystem/Log.h"

#include <functional>
#include <optional>
#include <set>
#include <string>

namespace tarn {

/// A file that holds one JSON object of keys and values. One that is there but cannot be used, because it
/// cannot be read or is no JSON object, is reported once on the log with its name, line and column, and is
/// never overwritten. Comments are not kept.
///
/// Thread: any one; calls block. Ownership: the log must outlive it.
class JsonFile {
public:
    JsonFile(std::string path, Log &log) : path_(std::move(path)), log_(log) {}

    const std::string &path() const { return path_; }
    /// None when there is no such file, or none that can be used.
    std::optional<Value> read();
    /// Reads it, has `change` alter the object (an empty one where there is no file) and puts that in its
    /// place as files::replace() does. A failure is said on the log.
    bool update(const std::function<void(Value &)> &change);

private:
    void report(const std::string &message);

    std::string path_;
    Log &log_;
    bool isDamaged_ = false;
    std::set<std::string> reported_;
};

} // namespace tarn
