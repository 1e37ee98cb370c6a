#include "Platform/macOS/MacDynamicStore.h"

#include "Platform/macOS/CFRef.h"
#include "Platform/macOS/CFText.h"
#include "Platform/macOS/PropertyListValue.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <utility>

namespace tarn {
namespace {

class MacDynamicStore final : public DynamicStore {
public:
    explicit MacDynamicStore(CFRef<SCDynamicStoreRef> store) : store_(std::move(store)) {}

    std::optional<std::vector<std::string>> copyKeyList(const std::string &pattern) override {
        const auto cfPattern = makeCFString(pattern);
        if (!cfPattern)
            return std::nullopt;
        const auto keys = CFRef<CFArrayRef>::adopt(SCDynamicStoreCopyKeyList(store_.get(), cfPattern.get()));
        return textList(keys.get());
    }

    std::optional<Value> copyValue(const std::string &key) override {
        const auto cfKey = makeCFString(key);
        if (!cfKey)
            return std::nullopt;
        const auto propertyList =
            CFRef<CFPropertyListRef>::adopt(SCDynamicStoreCopyValue(store_.get(), cfKey.get()));
        auto value = valueFromPropertyList(propertyList.get());
        if (value.isNull())
            return std::nullopt;
        return value;
    }

    std::optional<std::string> setValue(const std::string &key, const Value &value) override {
        const auto cfKey = makeCFString(key);
        const auto propertyList = propertyListFromValue(value);
        if (!cfKey || !propertyList)
            return SCErrorString(kSCStatusInvalidArgument);
        if (SCDynamicStoreSetValue(store_.get(), cfKey.get(), propertyList.get()) == 0)
            return SCErrorString(SCError());
        return std::nullopt;
    }

private:
    CFRef<SCDynamicStoreRef> store_;
};

} // namespace

std::unique_ptr<DynamicStore> openMacDynamicStore(const std::string &clientName) {
    const auto name = makeCFString(clientName);
    if (!name)
        return nullptr;
    auto store = CFRef<SCDynamicStoreRef>::adopt(
        SCDynamicStoreCreate(kCFAllocatorDefault, name.get(), nullptr, nullptr));
    if (!store)
        return nullptr;
    return std::make_unique<MacDynamicStore>(std::move(store));
}

} // namespace tarn
