#pragma once

#include "TarnSystem/KernelTables.h"

namespace tarn {

/// The tables as getifaddrs(3), /sys/class/net and proc(5) show them. Counters have 64 bits; processes
/// come by their ids.
class LinuxKernelTables : public KernelTables {
public:
    std::vector<InterfaceAddress> interfaceAddresses() override;
    std::optional<ByteCounts> byteCounts(const std::string &device) override;
    std::vector<Process> processes() override;
    std::int32_t sendSignal(std::int32_t pid, std::int32_t signal) override;
};

} // namespace tarn
