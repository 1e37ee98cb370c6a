#include "TarnSystem/JsonFile.h"

#include "TarnSystem/Files.h"
#include "TarnSystem/Json.h"

namespace tarn {
namespace {

constexpr std::size_t largestFile = 1 << 20;

} // namespace

std::optional<Value> JsonFile::read() {
    const auto file = files::read(path_, largestFile);
    isDamaged_ = !file.contents && !file.failure.isMissing;
    if (isDamaged_)
        report(path_ + ": " + file.failure.message);
    if (!file.contents)
        return std::nullopt;

    auto document = json::parse(*file.contents);
    if (const auto *error = std::get_if<json::SyntaxError>(&document)) {
        isDamaged_ = true;
        report(path_ + ":" + std::to_string(error->line) + ":" + std::to_string(error->column) + ": " +
               error->message);
        return std::nullopt;
    }
    auto &value = std::get<Value>(document);
    if (!value.dictionary()) {
        isDamaged_ = true;
        report(path_ + ":1:1: not a JSON object");
        return std::nullopt;
    }
    return std::move(value);
}

bool JsonFile::update(const std::function<void(Value &)> &change) {
    Value object = read().value_or(Value::Dictionary());
    if (isDamaged_) {
        log_.write(Log::Level::error, "config", path_ + ": not changed, because it cannot be read");
        return false;
    }
    change(object);
    if (const auto failure = files::replace(path_, json::serialize(object, 2) + "\n")) {
        log_.write(Log::Level::error, "config", path_ + ": " + failure->message);
        return false;
    }
    return true;
}

void JsonFile::report(const std::string &message) {
    if (reported_.insert(message).second)
        log_.write(Log::Level::error, "config", message + "; the file is ignored");
}

} // namespace tarn
