#pragma once

#include <mutex>
#include <set>
#include <string>

namespace tarn {

/// The devices whose services we disabled. The system keeps no such state: a device without an
/// active profile looks the same, whoever took it away.
///
/// Thread: any.
class DisabledServices {
public:
    /// To be called after the device has lost its profile: a reading that then finds one active
    /// takes that for somebody's wish, and erases the device.
    void insert(const std::string &device) {
        const std::lock_guard lock(mutex_);
        devices_.insert(device);
        ++insertions_;
    }
    void erase(const std::string &device) {
        const std::lock_guard lock(mutex_);
        devices_.erase(device);
    }
    bool contains(const std::string &device) const {
        const std::lock_guard lock(mutex_);
        return devices_.contains(device);
    }
    /// All of them, at this moment.
    std::set<std::string> devices() const {
        const std::lock_guard lock(mutex_);
        return devices_;
    }

    /// How often a service was disabled so far. What was asked before the last time knows nothing of it.
    unsigned insertions() const {
        const std::lock_guard lock(mutex_);
        return insertions_;
    }

private:
    mutable std::mutex mutex_;
    std::set<std::string> devices_;
    unsigned insertions_ = 0;
};

} // namespace tarn
