#include "TarnSystem/PictureChanges.h"

#include "TarnSystem/SynthesizedStore.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace tarn::PictureChanges {
namespace {

struct Family {
    std::vector<NetworkPicture::Address> addresses;
    std::vector<NetworkPicture::DefaultRoute> routes;
};

struct Device {
    NetworkPicture::Link link;
    Family ipv4;
    Family ipv6;
};

/// By index and name: a renamed device leaves under one key and comes under another.
using Devices = std::map<std::pair<unsigned, std::string>, Device>;

Devices devicesOf(const NetworkPicture &picture) {
    Devices devices;
    std::map<unsigned, Device *> byIndex;
    for (const auto &link : picture.links)
        if (!link.isLoopback) {
            auto &device = devices[{link.index, link.name}];
            device.link = link;
            byIndex[link.index] = &device;
        }
    const auto family = [&](unsigned link, bool isIPv6) -> Family * {
        const auto found = byIndex.find(link);
        if (found == byIndex.end())
            return nullptr;
        return isIPv6 ? &found->second->ipv6 : &found->second->ipv4;
    };
    for (const auto &address : picture.addresses)
        if (auto *of = family(address.link, address.address.isIPv6))
            of->addresses.push_back(address);
    for (const auto &route : picture.defaultRoutes)
        if (auto *of = family(route.link, route.isIPv6))
            of->routes.push_back(route);
    return devices;
}

class Comparison {
public:
    std::vector<std::string> take() && {
        for (const char *entity : {"IPv4", "IPv6"})
            if (std::exchange(isRouteChanged_[entity], false))
                // A route through a device without a service, such as a tunnel, shows here alone.
                keys_.push_back(std::string("State:/Network/Global/") + entity);
        return std::move(keys_);
    }

    void compare(const std::string &name, const Device &before, const Device &after) {
        // A carrier that went and came back counts too: whoever read in between has seen it gone.
        if (before.link != after.link)
            keys_.push_back(interfaceKey(name, "Link"));
        auto described = before.link;
        described.hasCarrier = after.link.hasCarrier;
        described.carrierChanges = after.link.carrierChanges;
        if (described != after.link)
            keys_.push_back(setupKey(name));
        compare(name, "IPv4", before.ipv4, after.ipv4);
        compare(name, "IPv6", before.ipv6, after.ipv6);
    }

    static std::string interfaceKey(const std::string &name, const char *entity) {
        return "State:/Network/Interface/" + name + "/" + entity;
    }
    static std::string serviceKey(const std::string &name, const char *entity) {
        return "State:/Network/Service/" + serviceIDForDevice(name) + "/" + entity;
    }
    static std::string setupKey(const std::string &name) {
        return "Setup:/Network/Service/" + serviceIDForDevice(name);
    }

private:
    void compare(const std::string &name, const char *entity, const Family &before, const Family &after) {
        if (before.addresses != after.addresses)
            keys_.push_back(interfaceKey(name, entity));
        if (before.routes != after.routes) {
            keys_.push_back(serviceKey(name, entity));
            isRouteChanged_[entity] = true;
        }
    }

    std::vector<std::string> keys_;
    std::map<std::string, bool> isRouteChanged_;
};

} // namespace

std::vector<std::string> kernelKeys(const NetworkPicture &before, const NetworkPicture &after) {
    const auto old = devicesOf(before);
    const auto now = devicesOf(after);
    const Device none;
    Comparison comparison;
    for (const auto &[key, device] : old)
        if (!now.contains(key))
            comparison.compare(key.second, device, none);
    for (const auto &[key, device] : now) {
        const auto found = old.find(key);
        comparison.compare(key.second, found == old.end() ? none : found->second, device);
    }
    return std::move(comparison).take();
}

std::vector<std::string> resolverKeys(const NetworkPicture &picture) {
    std::vector<std::string> keys;
    for (const auto &link : picture.links)
        if (!link.isLoopback)
            for (const char *entity : {"DHCP", "DNS"})
                keys.push_back(Comparison::serviceKey(link.name, entity));
    return keys;
}

std::vector<std::string> managerKeys(const NetworkPicture &picture) {
    auto keys = resolverKeys(picture);
    for (const auto &link : picture.links)
        if (!link.isLoopback)
            keys.push_back(Comparison::setupKey(link.name));
    return keys;
}

bool carrierChanged(const NetworkPicture &before, const NetworkPicture &after) {
    const auto carriers = [](const NetworkPicture &picture) {
        std::vector<std::tuple<unsigned, bool, std::uint32_t>> links;
        for (const auto &link : picture.links)
            if (!link.isLoopback && (link.hasCarrier || link.carrierChanges > 0))
                links.emplace_back(link.index, link.hasCarrier, link.carrierChanges);
        std::ranges::sort(links);
        return links;
    };
    return carriers(before) != carriers(after);
}

} // namespace tarn::PictureChanges
