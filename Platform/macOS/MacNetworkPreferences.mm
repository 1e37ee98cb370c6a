#include "Platform/macOS/MacNetworkPreferences.h"

#include "Platform/macOS/CFRef.h"
#include "Platform/macOS/CFText.h"
#include "Platform/macOS/PropertyListValue.h"
#include "TarnSystem/ServiceErrors.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <utility>

namespace tarn {
namespace {

NetworkPreferencesEditor::Result resultOf(Boolean succeeded) {
    if (succeeded)
        return {};
    const int status = SCError();
    return {scStatusKind(status), SCErrorString(status)};
}

CFRef<CFArrayRef> makeCFStringArray(const std::vector<std::string> &list) {
    auto array =
        CFRef<CFMutableArrayRef>::adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    for (const auto &entry : list) {
        const auto string = makeCFString(entry);
        if (!string)
            return {};
        CFArrayAppendValue(array.get(), string.get());
    }
    return array;
}

class MacNetworkPreferences final : public NetworkPreferencesEditor {
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
        const auto service = serviceNamed(serviceID);
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

    Result lock() override { return resultOf(SCPreferencesLock(preferences_.get(), false)); }

    void unlock() override {
        SCPreferencesUnlock(preferences_.get());
        // Unlocking keeps what was not committed.
        SCPreferencesSynchronize(preferences_.get());
    }

    Result setServiceOrder(const std::vector<std::string> &order) override {
        const auto set = CFRef<SCNetworkSetRef>::adopt(SCNetworkSetCopyCurrent(preferences_.get()));
        if (!set)
            return resultOf(false);
        const auto identifiers = makeCFStringArray(order);
        if (!identifiers)
            return configurationNotUsable();
        return resultOf(SCNetworkSetSetServiceOrder(set.get(), identifiers.get()));
    }

    Result setServiceEnabled(const std::string &serviceID, bool enabled) override {
        const auto service = serviceNamed(serviceID);
        return service ? resultOf(SCNetworkServiceSetEnabled(service.get(), enabled))
                       : noSuchService(serviceID);
    }

    std::optional<ProtocolConfiguration> copyProtocol(const std::string &serviceID,
                                                      IPProtocol protocol) override {
        const auto found = protocolOf(serviceID, protocol);
        if (!found)
            return std::nullopt;
        ProtocolConfiguration configuration;
        // Belongs to the protocol.
        if (const CFDictionaryRef entries = SCNetworkProtocolGetConfiguration(found.get()))
            configuration.entries = valueFromPropertyList(entries);
        configuration.enabled = SCNetworkProtocolGetEnabled(found.get()) != 0;
        return configuration;
    }

    Result setProtocol(const std::string &serviceID, IPProtocol protocol,
                       const ProtocolConfiguration &configuration) override {
        const auto found = protocolOf(serviceID, protocol);
        if (!found)
            return noSuchService(serviceID);
        CFRef<CFPropertyListRef> entries;
        if (configuration.entries) {
            entries = propertyListFromValue(*configuration.entries);
            if (!entries || CFGetTypeID(entries.get()) != CFDictionaryGetTypeID())
                return configurationNotUsable();
        }
        const auto result = resultOf(
            SCNetworkProtocolSetConfiguration(found.get(), static_cast<CFDictionaryRef>(entries.get())));
        if (result.kind != Result::Kind::done)
            return result;
        return resultOf(SCNetworkProtocolSetEnabled(found.get(), configuration.enabled));
    }

    Result commitChanges() override { return resultOf(SCPreferencesCommitChanges(preferences_.get())); }
    Result applyChanges() override { return resultOf(SCPreferencesApplyChanges(preferences_.get())); }

private:
    CFRef<SCNetworkServiceRef> serviceNamed(const std::string &serviceID) const {
        const auto identifier = makeCFString(serviceID);
        if (!identifier)
            return {};
        return CFRef<SCNetworkServiceRef>::adopt(SCNetworkServiceCopy(preferences_.get(), identifier.get()));
    }

    CFRef<SCNetworkProtocolRef> protocolOf(const std::string &serviceID, IPProtocol protocol) const {
        const auto service = serviceNamed(serviceID);
        if (!service)
            return {};
        return CFRef<SCNetworkProtocolRef>::adopt(SCNetworkServiceCopyProtocol(
            service.get(),
            protocol == IPProtocol::ipv6 ? kSCNetworkProtocolTypeIPv6 : kSCNetworkProtocolTypeIPv4));
    }

    CFRef<SCPreferencesRef> preferences_;
};

} // namespace

std::unique_ptr<NetworkPreferencesEditor> openMacNetworkPreferencesEditor(const std::string &clientName) {
    const auto name = makeCFString(clientName);
    if (!name)
        return nullptr;
    auto preferences =
        CFRef<SCPreferencesRef>::adopt(SCPreferencesCreate(kCFAllocatorDefault, name.get(), nullptr));
    if (!preferences)
        return nullptr;
    return std::make_unique<MacNetworkPreferences>(std::move(preferences));
}

std::unique_ptr<NetworkPreferences> openMacNetworkPreferences(const std::string &clientName) {
    return openMacNetworkPreferencesEditor(clientName);
}

} // namespace tarn
