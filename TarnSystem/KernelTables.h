#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// The kernel's tables of addresses, counters and processes, and its signals.
///
/// Thread: any.
class KernelTables {
public:
    struct InterfaceAddress {
        std::string device;
        bool isIPv6 = false;
        /// Numeric, possibly with a zone suffix ("%" and the interface name).
        std::string address;
    };
    struct ByteCounts {
        std::uint64_t rx = 0;
        std::uint64_t tx = 0;
    };
    struct Process {
        std::int32_t pid = 0;
        /// The short command name; the kernel cuts it at 15 or 16 bytes.
        std::string command;
    };

    virtual ~KernelTables() = default;
    /// Every IPv4 and IPv6 address of every interface, in the system's order (getifaddrs); what has
    /// no numeric form is left out. Empty when the list cannot be had.
    virtual std::vector<InterfaceAddress> interfaceAddresses() = 0;
    /// Bytes that an interface received and sent; absent when there is no such interface.
    virtual std::optional<ByteCounts> byteCounts(const std::string &device) = 0;
    /// In the order of the process table; empty when it cannot be read.
    virtual std::vector<Process> processes() = 0;
    /// Sends a signal (signal.h). Returns 0 or the system's error number.
    virtual std::int32_t sendSignal(std::int32_t pid, std::int32_t signal) = 0;
};

} // namespace tarn
