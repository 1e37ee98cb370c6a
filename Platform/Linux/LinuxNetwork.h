#pragma once

#include "Platform/Linux/BusNews.h"
#include "Platform/Linux/DisabledServices.h"
#include "Platform/Linux/SystemBus.h"
#include "TarnSystem/DynamicStore.h"
#include "TarnSystem/NetworkPreferences.h"
#include "TarnSystem/SynthesizedStore.h"
#include "TarnSystem/SystemVisibility.h"

#include <memory>
#include <mutex>
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

    SystemBus &bus() { return bus_; }

    /// What of the last picture could be asked. Any thread.
    SystemVisibility visibility() const;
    /// Where to tell that the services on the bus may answer otherwise by now. Any thread.
    BusNews &news() { return news_; }

    /// The files, and the folders of files, from which a picture is made beside the kernel's tables.
    static std::vector<std::string> resolverFiles();

    std::unique_ptr<DynamicStore> openStore();
    /// A session that does not belong to this one's readings, and may be used on another thread.
    std::unique_ptr<DynamicStore> openOwnStore();
    std::unique_ptr<NetworkPreferences> openPreferences();

private:
    bool readPicture();
    void readManaged(NetworkPicture &picture);
    void readLeases(NetworkPicture &picture);

    DisabledServices &disabled_;
    /// Of those that the last answers knew of.
    unsigned insertions_ = 0;
    BusNews news_;
    SystemBus bus_{news_};
    std::optional<SynthesizedStore> picture_;
    bool isListed_ = false;
    SystemVisibility visibility_;
    mutable std::mutex publishing_;
    SystemVisibility published_; // guarded by publishing_
};

} // namespace tarn
