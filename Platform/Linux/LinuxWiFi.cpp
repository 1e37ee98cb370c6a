#include "Platform/Linux/LinuxWiFi.h"

#include "Platform/Linux/Sysfs.h"

namespace tarn {

std::optional<bool> LinuxWiFi::powerOn() {
    const auto devices = sysfs::wirelessDevices();
    if (devices.empty())
        return std::nullopt;
    SystemVisibility visibility;
    network_.bus().update(visibility);
    if (const auto isEnabled = network_.bus().networkManagerWiFiEnabled())
        return isEnabled;
    // Several radios: one with power is enough to be attached to a second network.
    std::optional<bool> power;
    for (const auto &device : devices)
        if (const auto isOn = sysfs::isRadioOn(device))
            power = power.value_or(false) || *isOn;
    return power;
}

} // namespace tarn
