#include "TarnSystem/JsonPreferences.h"

#include <utility>

namespace tarn {

JsonPreferences::JsonPreferences(const std::vector<std::string> &layers, Log &log) {
    for (const auto &path : layers)
        files_.emplace_back(path, log);
}

void JsonPreferences::refresh(const std::string &) {
    layers_.clear();
    managed_ = {};
    for (auto &file : files_) {
        auto layer = file.read();
        if (!layer)
            continue;
        if (&file == &files_.front())
            managed_ = *layer;
        layers_.push_back(*std::move(layer));
    }
    isLoaded_ = true;
}

std::optional<Value> JsonPreferences::copyAppValue(const std::string &key, const std::string &applicationID) {
    if (!isLoaded_)
        refresh(applicationID);
    for (const auto &layer : layers_)
        if (const Value *value = layer.find(key))
            return *value;
    return std::nullopt;
}

bool JsonPreferences::isForced(const std::string &key, const std::string &applicationID) {
    if (!isLoaded_)
        refresh(applicationID);
    return managed_.find(key) != nullptr;
}

void JsonPreferences::setMachineValue(const std::string &key, const Value &value, const std::string &) {
    unsaved_.emplace_back(key, value);
}

bool JsonPreferences::synchronizeMachine(const std::string &applicationID) {
    const auto changes = std::exchange(unsaved_, {});
    const bool isWritten = files_.back().update([&](Value &layer) {
        for (const auto &[key, value] : changes)
            layer.set(key, value);
    });
    if (!isWritten)
        return false;
    refresh(applicationID);
    return true;
}

} // namespace tarn
