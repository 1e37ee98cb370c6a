#pragma once

#include "TarnSystem/UserDefaults.h"

#include <any>
#include <map>

namespace tarn {

/// User defaults in memory; as on disk, dates are whole seconds.
struct MapDefaults final : UserDefaults {
    using Key = std::string;
    struct Data {
        std::string bytes;
    };
    std::map<Key, std::any> values;

    template <class Kind> std::optional<Kind> get(const Key &key) const {
        const auto found = values.find(key);
        const auto *value = found == values.end() ? nullptr : std::any_cast<Kind>(&found->second);
        return value ? std::optional(*value) : std::nullopt;
    }
    std::optional<bool> boolean(const Key &key) override { return get<bool>(key); }
    std::optional<std::int64_t> integer(const Key &key) override { return get<std::int64_t>(key); }
    std::optional<std::string> string(const Key &key) override { return get<std::string>(key); }
    std::optional<Date> date(const Key &key) override { return get<Date>(key); }
    std::optional<std::string> data(const Key &key) override {
        const auto found = get<Data>(key);
        return found ? std::optional(found->bytes) : std::nullopt;
    }
    void setBoolean(const Key &key, bool value) override { values[key] = value; }
    void setInteger(const Key &key, std::int64_t value) override { values[key] = value; }
    void setString(const Key &key, const std::string &value) override { values[key] = value; }
    void setDate(const Key &key, Date value) override {
        values[key] = Date(std::chrono::floor<std::chrono::seconds>(value));
    }
    void setData(const Key &key, const std::string &value) override { values[key] = Data{value}; }
    void remove(const Key &key) override { values.erase(key); }
};

} // namespace tarn
