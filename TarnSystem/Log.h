#pragma once

#include <string_view>

namespace tarn {

/// The system's log, under the application's identifier.
///
/// Thread: any. Errors: none; what cannot be written is dropped.
class Log {
public:
    enum class Level { debug, info, error };

    virtual ~Log() = default;
    /// `category` is a single word such as "app" or "config"; `message` is one line of English.
    virtual void write(Level level, std::string_view category, std::string_view message) = 0;
};

} // namespace tarn
