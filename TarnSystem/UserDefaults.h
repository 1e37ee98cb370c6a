#pragma once

#include "TarnCore/DateText.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tarn {

/// What an application remembers for its user.
///
/// Thread: main thread. Errors: none; a value of another type is absent, and what cannot be stored is lost
///   and said in the log.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    virtual std::optional<bool> boolean(const std::string &key) = 0;
    virtual std::optional<std::int64_t> integer(const std::string &key) = 0;
    virtual std::optional<std::string> string(const std::string &key) = 0;
    /// Whole seconds survive.
    virtual std::optional<Date> date(const std::string &key) = 0;
    /// Any bytes.
    virtual std::optional<std::string> data(const std::string &key) = 0;

    virtual void setBoolean(const std::string &key, bool value) = 0;
    virtual void setInteger(const std::string &key, std::int64_t value) = 0;
    virtual void setString(const std::string &key, const std::string &value) = 0;
    virtual void setDate(const std::string &key, Date value) = 0;
    virtual void setData(const std::string &key, const std::string &value) = 0;
    virtual void remove(const std::string &key) = 0;
};

} // namespace tarn
