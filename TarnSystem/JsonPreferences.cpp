#include "TarnSystem/JsonPreferences.h"

#include "TarnSystem/Files.h"
#include "TarnSystem/Json.h"

#include <utility>

namespace tarn {
namespace {

constexpr std::size_t largestFile = 1 << 20;

} // namespace

JsonPreferences::JsonPreferences(std::vector<std::string> layers, Log &log)
    : paths_(std::move(layers)), log_(log) {}

void JsonPreferences::refresh(const std::string &) {
    layers_.clear();
    managed_ = {};
    for (const auto &path : paths_) {
        bool isDamaged = false;
        auto layer = readLayer(path, isDamaged);
        if (!layer)
            continue;
        if (path == paths_.front())
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
    bool isDamaged = false;
    Value layer = readLayer(paths_.back(), isDamaged).value_or(Value::Dictionary());
    if (isDamaged) {
        log_.write(Log::Level::error, "config", paths_.back() + ": not changed, because it cannot be read");
        return false;
    }
    for (const auto &[key, value] : changes)
        layer.set(key, value);
    if (const auto failure = files::replace(paths_.back(), json::serialize(layer, 2) + "\n")) {
        log_.write(Log::Level::error, "config", paths_.back() + ": " + failure->message);
        return false;
    }
    refresh(applicationID);
    return true;
}

std::optional<Value> JsonPreferences::readLayer(const std::string &path, bool &isDamaged) {
    const auto file = files::read(path, largestFile);
    isDamaged = !file.contents && !file.failure.isMissing;
    if (isDamaged)
        report(path + ": " + file.failure.message);
    if (!file.contents)
        return std::nullopt;

    auto document = json::parse(*file.contents);
    if (const auto *error = std::get_if<json::SyntaxError>(&document)) {
        isDamaged = true;
        report(path + ":" + std::to_string(error->line) + ":" + std::to_string(error->column) + ": " +
               error->message);
        return std::nullopt;
    }
    auto &value = std::get<Value>(document);
    if (!value.dictionary()) {
        isDamaged = true;
        report(path + ":1:1: not a JSON object");
        return std::nullopt;
    }
    return std::move(value);
}

void JsonPreferences::report(const std::string &message) {
    if (reported_.insert(message).second)
        log_.write(Log::Level::error, "config", message + "; the file is ignored");
}

} // namespace tarn
