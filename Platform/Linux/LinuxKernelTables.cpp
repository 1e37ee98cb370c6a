#include "Platform/Linux/LinuxKernelTables.h"

#include "Platform/InterfaceList.h"
#include "TarnSystem/Files.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <dirent.h>
#include <string_view>

namespace tarn {
namespace {

constexpr std::size_t largestFile = 256;

/// The number in front of the rest of a text.
template <class Number> std::optional<Number> leadingNumber(std::string_view text, std::string_view rest) {
    Number number = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || std::string_view(stopped, end) != rest)
        return std::nullopt;
    return number;
}

std::optional<std::uint64_t> counter(const std::string &device, const char *name) {
    const auto file = files::read("/sys/class/net/" + device + "/statistics/" + name, largestFile);
    return file.contents ? leadingNumber<std::uint64_t>(*file.contents, "\n") : std::nullopt;
}

/// Not every text may become a part of a path.
bool isDeviceName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

} // namespace

std::vector<KernelTables::InterfaceAddress> LinuxKernelTables::interfaceAddresses() {
    return addressesOfInterfaces();
}

std::optional<KernelTables::ByteCounts> LinuxKernelTables::byteCounts(const std::string &device) {
    if (!isDeviceName(device))
        return std::nullopt;
    const auto rx = counter(device, "rx_bytes");
    const auto tx = counter(device, "tx_bytes");
    if (!rx || !tx)
        return std::nullopt;
    return ByteCounts{*rx, *tx};
}

std::vector<KernelTables::Process> LinuxKernelTables::processes() {
    std::vector<Process> list;
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir("/proc"), closedir);
    while (const auto *entry = directory ? readdir(directory.get()) : nullptr) {
        const auto pid = leadingNumber<std::int32_t>(entry->d_name, "");
        if (!pid)
            continue;
        // A process may end before it is looked at.
        auto file = files::read("/proc/" + std::to_string(*pid) + "/comm", largestFile);
        if (!file.contents)
            continue;
        if (file.contents->ends_with('\n'))
            file.contents->pop_back();
        list.push_back({*pid, *std::move(file.contents)});
    }
    std::ranges::sort(list, {}, &Process::pid);
    return list;
}

std::int32_t LinuxKernelTables::sendSignal(std::int32_t pid, std::int32_t signal) {
    return kill(pid, signal) == 0 ? 0 : errno;
}

} // namespace tarn
