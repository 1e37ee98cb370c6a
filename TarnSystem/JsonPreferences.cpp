#include "TarnSystem/JsonPreferences.h"

#include <utility>

namespace tarn {

JsonPreferences::JsonPreferences(const std::vector<std::string> &layers, Log &log) {
    for (const auto &path : layers)
        layers_.push_back({JsonFile(path, log)});
}

void JsonPreferences::refresh(const std::string &) {
    for (auto &layer : layers_)
        layer.isRead = false;
}

std::optional<Value> JsonPreferences::copyAppValue(const std::string &key, const std::string &) {
    for (auto &layer : layers_)
        if (const Value *value = find(layer, key))
            return *value;
    return std::nullopt;
}

bool JsonPreferences::isForced(const std::string &key, const std::string &) {
    return find(layers_.front(), key) != nullptr;
}

const Value *JsonPreferences::find(Layer &layer, const std::string &key) {
    if (!std::exchange(layer.isRead, true))
        layer.values = layer.file.read();
    return layer.values ? layer.values->find(key) : nullptr;
}

void JsonPreferences::setMachineValue(const std::string &key, const Value &value, const std::string &) {
    unsaved_.emplace_back(key, value);
}

bool JsonPreferences::synchronizeMachine(const std::string &applicationID) {
    const auto changes = std::exchange(unsaved_, {});
    const bool isWritten = layers_.back().file.update([&](Value &values) {
        for (const auto &[key, value] : changes)
            values.set(key, value);
    });
    if (!isWritten)
        return false;
    refresh(applicationID);
    return true;
}

} // namespace tarn
