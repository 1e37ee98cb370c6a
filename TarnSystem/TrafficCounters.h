#pragma once

#include "TarnSystem/KernelTables.h"

#include <optional>
#include <string>

namespace tarn {

/// Reads how much an interface has carried.
class TrafficCounting {
public:
    virtual ~TrafficCounting() = default;
    /// Bytes received and sent since a moment that the system chose; absent when there is no such interface.
    virtual std::optional<KernelTables::ByteCounts> bytes(const std::string &device) = 0;
};

/// Reads the kernel's counters.
///
/// Thread: any. Ownership: the tables must outlive this.
class TrafficCounters final : public TrafficCounting {
public:
    explicit TrafficCounters(KernelTables &tables) : tables_(tables) {}

    std::optional<KernelTables::ByteCounts> bytes(const std::string &device) override {
        return tables_.byteCounts(device);
    }
    /// The growth between two readings. A counter that has become smaller started anew or, where it has
    /// 32 bits, passed its end: then the new value is the growth, which may be too little but never too much.
    static KernelTables::ByteCounts delta(const KernelTables::ByteCounts &from,
                                          const KernelTables::ByteCounts &to);

private:
    KernelTables &tables_;
};

} // namespace tarn
