#include "Platform/macOS/UnifiedLog.h"

#include "TarnCore/ApplicationID.h"

#include <os/log.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace tarn {
namespace {

constexpr const char *subsystem = AppInfo::identifier;

os_log_type_t systemLevel(Log::Level level) {
    switch (level) {
    case Log::Level::debug:
        return OS_LOG_TYPE_DEBUG;
    case Log::Level::info:
        // The system's own info level is not kept on disk and not shown unless asked for.
        return OS_LOG_TYPE_DEFAULT;
    case Log::Level::error:
        return OS_LOG_TYPE_ERROR;
    }
    return OS_LOG_TYPE_DEFAULT;
}

} // namespace

struct UnifiedLog::Categories {
    os_log_t find(std::string_view category) {
        const std::lock_guard guard(lock);
        auto entry = logs.find(category);
        if (entry == logs.end()) {
            const std::string name(category);
            entry = logs.emplace(name, os_log_create(subsystem, name.c_str())).first;
        }
        return entry->second;
    }

    std::mutex lock;
    std::map<std::string, os_log_t, std::less<>> logs;
};

UnifiedLog::UnifiedLog() : categories_(std::make_unique<Categories>()) {}

UnifiedLog::~UnifiedLog() = default;

void UnifiedLog::write(Level level, std::string_view category, std::string_view message) {
    const std::string line(message);
    // Public, else the system shows "<private>": messages carry no secrets.
    os_log_with_type(categories_->find(category), systemLevel(level), "%{public}s", line.c_str());
}

} // namespace tarn
