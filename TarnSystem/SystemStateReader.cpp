#include "TarnSystem/SystemStateReader.h"

#include "TarnCore/Text.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace tarn {

/// A configured service that is bound to a device.
struct SystemStateReader::ServiceInfo {
    std::string serviceID;
    std::string name;
    bool enabled;
    std::int64_t orderIndex;
    std::string interfaceType;
    bool isTethering;
};

namespace {

constexpr std::array<std::string_view, 7> ignoredPrefixes = {"utun", "awdl", "llw", "anpi",
                                                             "anri", "ap",   "lo0"};

bool isIgnored(std::string_view device) {
    return std::ranges::any_of(ignoredPrefixes, [&](auto prefix) { return device.starts_with(prefix); });
}

bool isTethering(const NetworkService &service) {
    const std::string displayName = service.interfaceDisplayName.value_or("");
    const std::string name = service.name.value_or("");
    for (const char *word : {"iPhone", "iPad"})
        if (displayName.find(word) != std::string::npos || name.find(word) != std::string::npos)
            return true;
    // Phones alone use these two drivers; real Ethernet adapters use the other USB classes as well.
    return service.driver == "ipheth" || service.driver == "rndis_host";
}

/// A dictionary of the store. An entry of another type than asked for counts as absent.
class Entries {
public:
    explicit Entries(std::optional<Value> value) : value_(std::move(value)) {}

    bool isDictionary() const { return value_ && value_->dictionary(); }

    bool truth(std::string_view key) const {
        const Value *entry = find(key);
        return entry && entry->boolean() && *entry->boolean();
    }

    std::optional<std::string> string(std::string_view key) const {
        const Value *entry = find(key);
        if (!entry || !entry->string())
            return std::nullopt;
        return *entry->string();
    }

    /// Empty also where one element is no string.
    std::vector<std::string> strings(std::string_view key) const {
        return value_ ? value_->stringList(key).value_or(std::vector<std::string>())
                      : std::vector<std::string>();
    }

    /// Empty also where one element is no integer.
    std::vector<std::int64_t> integers(std::string_view key) const {
        const Value *entry = find(key);
        if (!entry || !entry->array())
            return {};
        std::vector<std::int64_t> result;
        for (const auto &element : *entry->array()) {
            if (!element.integer())
                return {};
            result.push_back(*element.integer());
        }
        return result;
    }

private:
    const Value *find(std::string_view key) const { return value_ ? value_->find(key) : nullptr; }

    std::optional<Value> value_;
};

std::string interfaceKey(const std::string &device, const char *entity) {
    return "State:/Network/Interface/" + device + "/" + entity;
}

std::string serviceKey(const std::string &serviceID, const char *entity) {
    return "State:/Network/Service/" + serviceID + "/" + entity;
}

/// The fourth component of "State:/Network/Interface/en0/Link".
std::optional<std::string> deviceOfKey(std::string_view key) {
    std::optional<std::string_view> component;
    for (int i = 0; i < 4; ++i) {
        component = text::nextPiece(key, '/');
        if (!component)
            return std::nullopt;
    }
    return std::string(*component);
}

InterfaceKind kindOfType(std::string_view interfaceType) {
    if (interfaceType == "IEEE80211")
        return InterfaceKind::wifi;
    return interfaceType == "Ethernet" ? InterfaceKind::wired : InterfaceKind::other;
}

} // namespace

SystemStateReader::SystemStateReader(std::unique_ptr<DynamicStore> store,
                                     std::unique_ptr<NetworkPreferences> prefs, WiFiClient &wifi)
    : store_(std::move(store)), prefs_(std::move(prefs)), wifi_(wifi) {
    if (!store_)
        throw SystemStateError("SCDynamicStoreCreate failed");
    if (!prefs_)
        throw SystemStateError("SCPreferencesCreate failed");
}

std::vector<InterfaceSnapshot> SystemStateReader::readInterfaces() {
    prefs_->synchronize();
    const auto serviceOrder = prefs_->currentServiceOrder().value_or(std::vector<std::string>());
    // In the order in which a device was first seen, so that equal input gives equal output.
    std::vector<std::string> serviceDevices;
    std::unordered_map<std::string, ServiceInfo> services;
    for (std::size_t i = 0; i < serviceOrder.size(); ++i) {
        const auto service = prefs_->copyService(serviceOrder[i]);
        if (!service || !service->hasInterface || !service->bsdName)
            continue;
        ServiceInfo info{serviceOrder[i],
                         service->name.value_or(""),
                         service->enabled,
                         static_cast<std::int64_t>(i),
                         service->interfaceType.value_or(""),
                         isTethering(*service)};
        // Where two services share a device, the one that stands last in the order counts.
        if (services.insert_or_assign(*service->bsdName, std::move(info)).second)
            serviceDevices.push_back(*service->bsdName);
    }

    const auto keys = store_->copyKeyList("State:/Network/Interface/[^/]+/Link");
    if (!keys)
        throw SystemStateError("SCDynamicStoreCopyKeyList failed");
    std::vector<InterfaceSnapshot> snapshots;
    snapshots.reserve(keys->size());
    for (const auto &key : *keys) {
        const auto device = deviceOfKey(key);
        if (!device || isIgnored(*device))
            continue;
        const auto service = services.find(*device);
        snapshots.push_back(snapshot(*device, service == services.end() ? nullptr : &service->second));
    }

    // A configured service whose interface has no link key at the moment is listed all the same.
    std::vector<std::string> listed;
    for (const auto &entry : snapshots)
        listed.push_back(entry.device);
    std::ranges::sort(listed);
    for (const auto &device : serviceDevices)
        if (!std::ranges::binary_search(listed, device))
            snapshots.push_back(snapshot(device, &services.at(device)));

    std::ranges::stable_sort(snapshots, [](const InterfaceSnapshot &a, const InterfaceSnapshot &b) {
        const auto rank = [](const InterfaceSnapshot &s) {
            return std::tuple(!s.serviceOrderIndex, s.serviceOrderIndex.value_or(0),
                              std::string_view(s.device));
        };
        return rank(a) < rank(b);
    });
    return snapshots;
}

InterfaceSnapshot SystemStateReader::snapshot(const std::string &device, const ServiceInfo *service) {
    InterfaceSnapshot result;
    result.device = device;
    result.linkActive = Entries(store_->copyValue(interfaceKey(device, "Link"))).truth("Active");
    result.ipv4 = Entries(store_->copyValue(interfaceKey(device, "IPv4"))).strings("Addresses");

    const Entries ipv6(store_->copyValue(interfaceKey(device, "IPv6")));
    const auto flags = ipv6.integers("Flags");
    for (auto &address : ipv6.strings("Addresses")) {
        const auto position = result.ipv6.size();
        result.ipv6.push_back({std::move(address), position < flags.size() ? flags[position] : 0});
    }

    if (!service) {
        result.kind = device.starts_with("en") ? InterfaceKind::wired : InterfaceKind::other;
        return result;
    }
    result.kind = kindOfType(service->interfaceType);
    result.serviceID = service->serviceID;
    result.serviceName = service->name;
    result.serviceEnabled = service->enabled;
    result.serviceOrderIndex = service->orderIndex;
    result.isTethering = service->isTethering;
    result.ipv4Router = Entries(store_->copyValue(serviceKey(service->serviceID, "IPv4"))).string("Router");
    result.ipv6Router = Entries(store_->copyValue(serviceKey(service->serviceID, "IPv6"))).string("Router");
    result.hasDHCPLease = Entries(store_->copyValue(serviceKey(service->serviceID, "DHCP"))).isDictionary();
    result.dnsServers =
        Entries(store_->copyValue(serviceKey(service->serviceID, "DNS"))).strings("ServerAddresses");
    return result;
}

std::optional<bool> SystemStateReader::wifiPowerOn() {
    return wifi_.powerOn();
}

} // namespace tarn
