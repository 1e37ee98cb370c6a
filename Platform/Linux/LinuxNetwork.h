#pragma once

#include "Platform/Linux/DisabledServices.h"
#include "Platform/Linux/SystemBus.h"
#include "TarnSystem/DynamicStore.h"
#include "TarnSystem/NetworkPreferences.h"
#include "TarnSystem/SynthesizedStore.h"
#include "TarnSystem/SystemVisibility.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// Takes the pictures from which store and services are made. Its sessions share them, so
/// that services and keys of one reading belong to one moment.
///
/// Thread: one at a time, the sessions included. Outlives its sessions; the disabled services
///   outlive it.
class LinuxNetwork {
public:
    explicit LinuxNetwork(DisabledServices &disabled) : disabled_(disabled) {}

    /// Reads everything anew. False when the kernel could not be asked; the picture is then gone.
    bool takePicture();
    /// The last picture; null when there is none.
    const SynthesizedStore *picture() const { return picture_ ? &*picture_ : nullptr; }
    /// The last picture if no key list was made from it yet, else a new one; null when the
    /// kernel could not be asked.
    const SynthesizedStore *pictureForKeyList();

    /// What of the last picture could be asked.
    SystemVisibility visibility() const { return visibility_; }
    SystemBus &bus() { return bus_; }

    /// The files, and the folders of files, from which a picture is made beside the kernel's tables.
    static std::vector<std::string> resolverFiles();

    std::unique_ptr<DynamicStore> openStore();
    std::unique_ptr<NetworkPreferences> openPreferences();

private:
    void readManaged(NetworkPicture &picture);
    void readLeases(NetworkPicture &picture);

    DisabledServices &disabled_;
    SystemBus bus_;
    std::optional<SynthesizedStore> picture_;
    bool isListed_ = false;
    SystemVisibility visibility_;
};

} // namespace tarn
