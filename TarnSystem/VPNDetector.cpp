#include "TarnSystem/VPNDetector.h"

#include "TarnCore/AddressClassifier.h"

#include <algorithm>

namespace tarn::VPNDetector {

bool isTunnelDevice(std::string_view device) {
    return std::ranges::any_of(tunnelPrefixes, [&](auto prefix) { return device.starts_with(prefix); });
}

std::vector<TunnelInterface> tunnelInterfaces(KernelTables &tables) {
    std::vector<TunnelInterface> interfaces;
    for (const auto &entry : tables.interfaceAddresses()) {
        if (!isTunnelDevice(entry.device))
            continue;
        auto found = std::ranges::find(interfaces, entry.device, &TunnelInterface::device);
        if (found == interfaces.end())
            found = interfaces.insert(found, {entry.device, {}, {}});
        auto &list = entry.isIPv6 ? found->ipv6 : found->ipv4;
        list.push_back(entry.address.substr(0, entry.address.find('%')));
    }
    return interfaces;
}

std::optional<Tunnel> activeTunnel(const std::vector<TunnelInterface> &interfaces) {
    for (const auto &[device, ipv4, ipv6] : interfaces) {
        if (!isTunnelDevice(device))
            continue;
        if (const auto found = std::ranges::find_if(ipv4, AddressClassifier::isRoutableIPv4);
            found != ipv4.end())
            return Tunnel{device, *found};
        if (const auto found = std::ranges::find_if(ipv6, AddressClassifier::isRoutableIPv6);
            found != ipv6.end())
            return Tunnel{device, *found};
    }
    return std::nullopt;
}

std::optional<Tunnel> activeTunnel(KernelTables &tables) {
    return activeTunnel(tunnelInterfaces(tables));
}

} // namespace tarn::VPNDetector
