#pragma once

#include "TarnCore/InterfaceSnapshot.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarn {

/// The system's network state could not be read.
class SystemStateError : public std::runtime_error {
public:
    explicit SystemStateError(const std::string &message) : std::runtime_error(message) {}
    std::string message() const { return what(); }
    std::string description() const { return message(); }
};

/// Reads the network as it is now.
///
/// Thread: one at a time; calls block for as long as the system takes to answer.
class SystemStateReading {
public:
    virtual ~SystemStateReading() = default;
    /// Every interface that matters, with its service: those with a place in the service order
    /// first, in that order, then by name. Throws SystemStateError.
    virtual std::vector<InterfaceSnapshot> readInterfaces() = 0;
    /// Absent when there is no Wi-Fi interface. Never throws.
    virtual std::optional<bool> wifiPowerOn() = 0;
};

} // namespace tarn
