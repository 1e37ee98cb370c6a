#include "TarnCore/Value.h"

#include <algorithm>

namespace tarn {

Value Value::strings(const std::vector<std::string> &list) {
    return Array(list.begin(), list.end());
}

const Value *Value::find(std::string_view key) const {
    const Dictionary *entries = dictionary();
    if (!entries)
        return nullptr;
    const auto found = std::ranges::find(*entries, key, &Entry::first);
    return found == entries->end() ? nullptr : &found->second;
}

std::optional<std::vector<std::string>> Value::stringList(std::string_view key) const {
    const Value *entry = find(key);
    if (!entry || !entry->array())
        return std::nullopt;
    std::vector<std::string> list;
    for (const auto &element : *entry->array()) {
        if (!element.string())
            return std::nullopt;
        list.push_back(*element.string());
    }
    return list;
}

void Value::set(std::string_view key, Value value) {
    if (!dictionary())
        data_ = Dictionary();
    auto &entries = std::get<Dictionary>(data_);
    const auto found = std::ranges::find(entries, key, &Entry::first);
    if (found == entries.end())
        entries.emplace_back(std::string(key), std::move(value));
    else
        found->second = std::move(value);
}

} // namespace tarn
