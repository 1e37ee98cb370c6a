#pragma once

#include "TarnSystem/KernelTables.h"

namespace tarn {

/// The tables as getifaddrs(3) and sysctl(3) show them. Counters have 32 bits and start again from 0.
class MacKernelTables final : public KernelTables {
public:
    std::vector<InterfaceAddress> interfaceAddresses() override;
    std::optional<ByteCounts> byteCounts(const std::string &device) override;
    std::vector<Process> processes() override;
    std::int32_t sendSignal(std::int32_t pid, std::int32_t signal) override;
};

} // namespace tarn
