#include "Platform/macOS/CFPreferences.h"

#include "Platform/macOS/CFRef.h"
#include "Platform/macOS/CFText.h"
#include "Platform/macOS/PropertyListValue.h"

#include <utility>

namespace tarn {

void CFPreferences::refresh(const std::string &applicationID) {
    if (const auto application = makeCFString(applicationID))
        CFPreferencesAppSynchronize(application.get());
}

std::optional<Value> CFPreferences::copyAppValue(const std::string &key, const std::string &applicationID) {
    const auto cfKey = makeCFString(key);
    const auto application = makeCFString(applicationID);
    if (!cfKey || !application)
        return std::nullopt;
    const auto propertyList =
        CFRef<CFPropertyListRef>::adopt(CFPreferencesCopyAppValue(cfKey.get(), application.get()));
    auto value = valueFromPropertyList(propertyList.get());
    if (value.isNull())
        return std::nullopt;
    return value;
}

bool CFPreferences::isForced(const std::string &key, const std::string &applicationID) {
    const auto cfKey = makeCFString(key);
    const auto application = makeCFString(applicationID);
    return cfKey && application && CFPreferencesAppValueIsForced(cfKey.get(), application.get());
}

void CFPreferences::setMachineValue(const std::string &key, const Value &value,
                                    const std::string &applicationID) {
    const auto cfKey = makeCFString(key);
    const auto application = makeCFString(applicationID);
    const auto propertyList = propertyListFromValue(value);
    // Without a property list the call below would remove what is stored.
    if (!cfKey || !application || !propertyList) {
        refused_ = true;
        return;
    }
    CFPreferencesSetValue(cfKey.get(), propertyList.get(), application.get(), kCFPreferencesAnyUser,
                          kCFPreferencesCurrentHost);
}

bool CFPreferences::synchronizeMachine(const std::string &applicationID) {
    if (std::exchange(refused_, false))
        return false;
    const auto application = makeCFString(applicationID);
    if (!application)
        return false;
    return CFPreferencesSynchronize(application.get(), kCFPreferencesAnyUser, kCFPreferencesCurrentHost) != 0;
}

} // namespace tarn
