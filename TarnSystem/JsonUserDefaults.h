#pragma once

#include "TarnSystem/JsonFile.h"
#include "TarnSystem/UserDefaults.h"

#include <string>

namespace tarn {

/// User defaults kept in a JSON file, for systems that have no store of their own. Dates stand there as
/// dates::text(), data in base64. The file is read once, at the first question, and again before each change:
/// keys of others stay as they are.
///
/// Thread: main thread; a change waits for the disk. Ownership: the log must outlive it.
class JsonUserDefaults final : public UserDefaults {
public:
    /// Without a path nothing is there and nothing can be stored.
    JsonUserDefaults(std::string path, Log &log) : file_(std::move(path), log) {}

    std::optional<bool> boolean(const std::string &key) override { return copy(value(key).boolean()); }
    std::optional<std::int64_t> integer(const std::string &key) override {
        return copy(value(key).integer());
    }
    std::optional<std::string> string(const std::string &key) override { return copy(value(key).string()); }
    std::optional<Date> date(const std::string &key) override;
    std::optional<std::string> data(const std::string &key) override;
    void setBoolean(const std::string &key, bool value) override { set(key, value); }
    void setInteger(const std::string &key, std::int64_t value) override { set(key, value); }
    void setString(const std::string &key, const std::string &value) override { set(key, value); }
    void setDate(const std::string &key, Date value) override { set(key, dates::text(value)); }
    void setData(const std::string &key, const std::string &value) override;
    void remove(const std::string &key) override { set(key, {}); }

private:
    template <typename T> static std::optional<T> copy(const T *value) {
        return value ? std::optional(*value) : std::nullopt;
    }
    /// Null where the key is not set.
    const Value &value(const std::string &key);
    /// A null one is none.
    void set(const std::string &key, const Value &value);

    JsonFile file_;
    std::optional<Value> object_;
};

} // namespace tarn
