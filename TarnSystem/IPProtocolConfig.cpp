#include "TarnSystem/IPProtocolConfig.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tarn::IPProtocolConfig {
namespace {

constexpr const char *off = "Off";
constexpr const char *linkLocal = "LinkLocal";

const std::string *method(const Value &config) {
    const Value *entry = config.find(configMethodKey);
    return entry ? entry->string() : nullptr;
}

bool isMethod(const Value &config, const char *name) {
    const auto *text = method(config);
    return text && *text == name;
}

} // namespace

bool isOff(const Value &config) {
    if (isMethod(config, off))
        return true;
    const Value *marker = config.find(inactiveKey);
    if (!marker)
        return false;
    if (const bool *flag = marker->boolean())
        return *flag;
    // Written as a number by some, which reads as a boolean where it is 0 or 1.
    const auto *number = marker->integer();
    return number && *number == 1;
}

std::string addressLessMethod(bool isIPv4) {
    return isIPv4 ? off : linkLocal;
}

bool isAddressLess(const Value &config, bool enabled, bool isIPv4) {
    return !enabled || isOff(config) || (!isIPv4 && isMethod(config, linkLocal));
}

Value restored(const std::optional<Value> &saved, bool isIPv4) {
    Value::Dictionary entries;
    if (const auto *earlier = saved ? saved->dictionary() : nullptr)
        std::ranges::copy_if(*earlier, std::back_inserter(entries),
                             [](const Value::Entry &entry) { return entry.first != inactiveKey; });
    Value config = std::move(entries);
    if (!method(config) || isMethod(config, off))
        config.set(configMethodKey, isIPv4 ? "DHCP" : "Automatic");
    return config;
}

} // namespace tarn::IPProtocolConfig
