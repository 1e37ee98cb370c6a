#pragma once

#include "TarnSystem/NetworkPicture.h"

#include <string>
#include <vector>

/// Keys of the store that a system without one would have (SynthesizedStore), for those who are
/// to be told of changes. A key may stand for something that the store does not hold any more.
namespace tarn::PictureChanges {

/// The keys whose values follow from the kernel's links, addresses and default routes, where
/// these differ between two pictures; each once.
std::vector<std::string> kernelKeys(const NetworkPicture &before, const NetworkPicture &after);

/// The keys of all devices that hang on resolver and lease files, and on services on the bus.
std::vector<std::string> resolverKeys(const NetworkPicture &picture);
std::vector<std::string> managerKeys(const NetworkPicture &picture);

/// Whether a link gained or lost its carrier, came with one, or left with one.
bool carrierChanged(const NetworkPicture &before, const NetworkPicture &after);

} // namespace tarn::PictureChanges
