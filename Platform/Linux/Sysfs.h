#pragma once

#include "TarnSystem/NetworkPicture.h"

#include <optional>
#include <string>
#include <vector>

/// What only /sys/class/net tells of a device (Documentation/ABI/testing/sysfs-class-net).
namespace tarn::sysfs {

/// Fills `isWireless`, `isUndescribed` and `driver`.
void describe(NetworkPicture::Link &link);

/// Names of the wireless devices, sorted.
std::vector<std::string> wirelessDevices();

/// Whether neither software nor a switch blocks the radio of a wireless device (rfkill); absent
/// when the kernel does not say.
std::optional<bool> isRadioOn(const std::string &device);

} // namespace tarn::sysfs
