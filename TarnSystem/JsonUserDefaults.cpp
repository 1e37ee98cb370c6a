#include "TarnSystem/JsonUserDefaults.h"

#include "TarnCore/Base64.h"

namespace tarn {

std::optional<Date> JsonUserDefaults::date(const std::string &key) {
    const auto text = string(key);
    return text ? dates::parse(*text) : std::nullopt;
}

std::optional<std::string> JsonUserDefaults::data(const std::string &key) {
    const auto text = string(key);
    return text ? base64::decode(*text) : std::nullopt;
}

void JsonUserDefaults::setData(const std::string &key, const std::string &value) {
    set(key, base64::encode(value));
}

const Value &JsonUserDefaults::value(const std::string &key) {
    static const Value none;
    if (!object_)
        object_ = file_.read().value_or(Value::Dictionary());
    const auto *found = object_->find(key);
    return found ? *found : none;
}

void JsonUserDefaults::set(const std::string &key, const Value &value) {
    if (value.isNull() && this->value(key).isNull())
        return;
    Value changed;
    const bool isWritten = file_.update([&](Value &object) {
        if (value.isNull()) {
            auto entries = *object.dictionary();
            std::erase_if(entries, [&](const auto &entry) { return entry.first == key; });
            object = std::move(entries);
        } else {
            object.set(key, value);
        }
        changed = object;
    });
    if (isWritten)
        object_ = std::move(changed);
}

} // namespace tarn
