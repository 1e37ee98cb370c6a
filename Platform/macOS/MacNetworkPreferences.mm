#include "Platform/macOS/MacNetworkPreferences.h"

#include "Platform/macOS/CFRef.h"
#include "Platform/macOS/CFText.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <utility>

namespace tarn {
namespace {

class MacNetworkPreferences final : public NetworkPreferences {
public:
    explicit MacNetworkPreferences(CFRef<SCPreferencesRef> preferences)
        : preferences_(std::move(preferences)) {}

    void synchronize() override { SCPreferencesSynchronize(preferences_.get()); }

    std::optional<std::vector<std::string>> currentServiceOrder() override {
        const auto set = CFRef<SCNetworkSetRef>::adopt(SCNetworkSetCopyCurrent(preferences_.get()));
        if (!set)
            return std::nullopt;
        return textList(SCNetworkSetGetServiceOrder(set.get()));
    }

    std::optional<NetworkService> copyService(const std::string &serviceID) override {
        const auto identifier = makeCFString(serviceID);
        if (!identifier)
            return std::nullopt;
        const auto service =
            CFRef<SCNetworkServiceRef>::adopt(SCNetworkServiceCopy(preferences_.get(), identifier.get()));
        if (!service)
            return std::nullopt;
        NetworkService description;
        description.name = text(SCNetworkServiceGetName(service.get()));
        description.enabled = SCNetworkServiceGetEnabled(service.get()) != 0;
        // Belongs to the service.
        if (const SCNetworkInterfaceRef interface = SCNetworkServiceGetInterface(service.get())) {
            description.hasInterface = true;
            description.bsdName = text(SCNetworkInterfaceGetBSDName(interface));
            description.interfaceType = text(SCNetworkInterfaceGetInterfaceType(interface));
            description.interfaceDisplayName = text(SCNetworkInterfaceGetLocalizedDisplayName(interface));
        }
        return description;
    }

private:
    CFRef<SCPreferencesRef> preferences_;
};

} // namespace

std::unique_ptr<NetworkPreferences> openMacNetworkPreferences(const std::string &clientName) {
    const auto name = makeCFString(clientName);
    if (!name)
        return nullptr;
    auto preferences =
        CFRef<SCPreferencesRef>::adopt(SCPreferencesCreate(kCFAllocatorDefault, name.get(), nullptr));
    if (!preferences)
        return nullptr;
    return std::make_unique<MacNetworkPreferences>(std::move(preferences));
}

} // namespace tarn
