#include "Platform/macOS/MacDynamicStoreWatch.h"

#include "Platform/macOS/CFRef.h"
#include "Platform/macOS/CFText.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <utility>

namespace tarn {
namespace {

CFRef<CFArrayRef> makeCFArray(const std::vector<std::string> &texts) {
    auto array =
        CFRef<CFMutableArrayRef>::adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    for (const auto &each : texts)
        if (const auto string = makeCFString(each); array && string)
            CFArrayAppendValue(array.get(), string.get());
    return array;
}

class MacDynamicStoreWatch final : public DynamicStoreWatch {
public:
    explicit MacDynamicStoreWatch(Callback callback) : callback_(std::move(callback)) {}
    ~MacDynamicStoreWatch() override {
        if (runLoopSource_)
            CFRunLoopRemoveSource(CFRunLoopGetMain(), runLoopSource_.get(), kCFRunLoopDefaultMode);
    }

    bool open(const std::string &clientName) {
        const auto name = makeCFString(clientName);
        if (!name)
            return false;
        // Without retain and release functions: the session does not own this object, which outlives it.
        SCDynamicStoreContext context = {0, this, nullptr, nullptr, nullptr};
        store_ = CFRef<SCDynamicStoreRef>::adopt(
            SCDynamicStoreCreate(kCFAllocatorDefault, name.get(), keysChanged, &context));
        return bool(store_);
    }

    bool setNotificationKeys(const std::vector<std::string> &patterns) override {
        const auto array = makeCFArray(patterns);
        return SCDynamicStoreSetNotificationKeys(store_.get(), nullptr, array.get()) != 0;
    }

    bool schedule() override {
        runLoopSource_ = CFRef<CFRunLoopSourceRef>::adopt(
            SCDynamicStoreCreateRunLoopSource(kCFAllocatorDefault, store_.get(), 0));
        if (!runLoopSource_)
            return false;
        CFRunLoopAddSource(CFRunLoopGetMain(), runLoopSource_.get(), kCFRunLoopDefaultMode);
        return true;
    }

private:
    static void keysChanged(SCDynamicStoreRef, CFArrayRef changedKeys, void *info) {
        if (!info)
            return;
        // After a restart of the store the list is empty; what cannot be read counts the same.
        const auto keys = textList(changedKeys);
        static_cast<MacDynamicStoreWatch *>(info)->callback_(keys.value_or(std::vector<std::string>()));
    }

    Callback callback_;
    CFRef<SCDynamicStoreRef> store_;
    CFRef<CFRunLoopSourceRef> runLoopSource_;
};

} // namespace

std::unique_ptr<DynamicStoreWatch> openMacDynamicStoreWatch(const std::string &clientName,
                                                            DynamicStoreWatch::Callback callback) {
    auto watch = std::make_unique<MacDynamicStoreWatch>(std::move(callback));
    if (!watch->open(clientName))
        return nullptr;
    return watch;
}

} // namespace tarn
