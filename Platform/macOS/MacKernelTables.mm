#include "Platform/macOS/MacKernelTables.h"

#include "Platform/InterfaceList.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <net/if.h>
#include <sys/sysctl.h>
#include <sys/types.h>

namespace tarn {

std::vector<KernelTables::InterfaceAddress> MacKernelTables::interfaceAddresses() {
    return addressesOfInterfaces();
}

std::optional<KernelTables::ByteCounts> MacKernelTables::byteCounts(const std::string &device) {
    const auto list = copyInterfaceList();
    for (const auto *entry = list.get(); entry; entry = entry->ifa_next) {
        if (device != entry->ifa_name || !entry->ifa_addr || entry->ifa_addr->sa_family != AF_LINK ||
            !entry->ifa_data)
            continue;
        const auto *data = static_cast<const if_data *>(entry->ifa_data);
        return ByteCounts{data->ifi_ibytes, data->ifi_obytes};
    }
    return std::nullopt;
}

std::vector<KernelTables::Process> MacKernelTables::processes() {
    // Room for processes that start between the two calls.
    constexpr std::size_t spare = 16;
    std::array<int, 4> name = {CTL_KERN, KERN_PROC, KERN_PROC_ALL, 0};
    std::size_t size = 0;
    if (sysctl(name.data(), name.size(), nullptr, &size, nullptr, 0) != 0 || size < 1)
        return {};
    std::vector<kinfo_proc> records(size / sizeof(kinfo_proc) + spare);
    size = records.size() * sizeof(kinfo_proc);
    if (sysctl(name.data(), name.size(), records.data(), &size, nullptr, 0) != 0)
        return {};
    records.resize(size / sizeof(kinfo_proc));

    std::vector<Process> list;
    list.reserve(records.size());
    for (const auto &record : records) {
        const auto &command = record.kp_proc.p_comm;
        list.push_back({record.kp_proc.p_pid, std::string(command, strnlen(command, sizeof command))});
    }
    return list;
}

std::int32_t MacKernelTables::sendSignal(std::int32_t pid, std::int32_t signal) {
    return kill(pid, signal) == 0 ? 0 : errno;
}

} // namespace tarn
