#pragma once

#include "TarnSystem/KernelTables.h"

#include <ifaddrs.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <vector>

/// The list of getifaddrs(3), which both operating systems have alike.
namespace tarn {

using InterfaceList = std::unique_ptr<ifaddrs, decltype(&freeifaddrs)>;

/// Null when the list cannot be had.
inline InterfaceList copyInterfaceList() {
    ifaddrs *list = nullptr;
    return {getifaddrs(&list) == 0 ? list : nullptr, freeifaddrs};
}

/// As KernelTables::interfaceAddresses() says.
inline std::vector<KernelTables::InterfaceAddress> addressesOfInterfaces() {
    std::vector<KernelTables::InterfaceAddress> addresses;
    const auto list = copyInterfaceList();
    for (const auto *entry = list.get(); entry; entry = entry->ifa_next) {
        const int family = entry->ifa_addr ? entry->ifa_addr->sa_family : AF_UNSPEC;
        if (family != AF_INET && family != AF_INET6)
            continue;
        const bool isIPv6 = family == AF_INET6;
        const socklen_t size = isIPv6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
        char text[NI_MAXHOST];
        if (getnameinfo(entry->ifa_addr, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0)
            addresses.push_back({entry->ifa_name, isIPv6, text});
    }
    return addresses;
}

} // namespace tarn
