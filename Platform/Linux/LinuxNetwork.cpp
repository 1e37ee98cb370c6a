#include "Platform/Linux/LinuxNetwork.h"

#include "Platform/Linux/ResolvedLink.h"
#include "Platform/Linux/RouteNetlink.h"
#include "Platform/Linux/Sysfs.h"
#include "TarnSystem/Files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <dirent.h>
#include <utility>

namespace tarn {
namespace {

constexpr std::size_t largestFile = 1 << 20;

constexpr const char *resolvConf = "/etc/resolv.conf";

// systemd-networkd, NetworkManager, dhclient on Debian and on Fedora.
constexpr std::array leaseFolders = {"/run/systemd/netif/leases", "/var/lib/NetworkManager", "/var/lib/dhcp",
                                     "/var/lib/dhclient"};

class LinuxStore : public DynamicStore {
public:
    /// Changes are told to `news`, which must outlive the session.
    LinuxStore(LinuxNetwork &network, BusNews &news) : network_(network), resolved_(news) {}

    std::optional<std::vector<std::string>> copyKeyList(const std::string &pattern) override {
        const auto *picture = network_.pictureForKeyList();
        if (!picture)
            return std::nullopt;
        return picture->keys(pattern);
    }

    std::optional<Value> copyValue(const std::string &key) override {
        const auto *picture = network_.picture();
        if (!picture && network_.takePicture())
            picture = network_.picture();
        return picture ? picture->value(key) : std::nullopt;
    }

    std::optional<std::string> setValue(const std::string &key, const Value &value) override {
        const auto device = deviceOfDNSKey(key);
        const Value *entry = value.find("ServerAddresses");
        if (!device || !entry || !entry->array())
            return "Only the name servers of a device can be set.";
        std::vector<std::string> servers;
        for (const auto &server : *entry->array())
            servers.push_back(server.string() ? *server.string() : std::string());
        return resolved_.setServers(*device, servers);
    }

private:
    LinuxNetwork &network_;
    ResolvedLink resolved_;
};

struct OwnNetwork {
    LinuxNetwork network;
};

class OwnStore final : private OwnNetwork, public LinuxStore {
public:
    OwnStore(DisabledServices &disabled, BusNews &news)
        : OwnNetwork{LinuxNetwork(disabled)}, LinuxStore(network, news) {}
};

class LinuxPreferences final : public NetworkPreferences {
public:
    explicit LinuxPreferences(LinuxNetwork &network) : network_(network) {}

    void synchronize() override { network_.takePicture(); }

    std::optional<std::vector<std::string>> currentServiceOrder() override {
        const auto *picture = network_.picture();
        if (!picture)
            return std::nullopt;
        return picture->serviceOrder();
    }

    std::optional<NetworkService> copyService(const std::string &serviceID) override {
        const auto *picture = network_.picture();
        return picture ? picture->service(serviceID) : std::nullopt;
    }

private:
    LinuxNetwork &network_;
};

} // namespace

bool LinuxNetwork::takePicture() {
    visibility_ = {};
    const bool isTaken = readPicture();
    const std::lock_guard lock(publishing_);
    published_ = visibility_;
    return isTaken;
}

SystemVisibility LinuxNetwork::visibility() const {
    const std::lock_guard lock(publishing_);
    return published_;
}

bool LinuxNetwork::readPicture() {
    NetworkPicture picture;
    picture_.reset();
    isListed_ = false;
    const auto result = RouteNetlink::read(picture);
    if (result == RouteNetlink::Result::failed)
        return false;
    visibility_.unsettled = result == RouteNetlink::Result::unsettled;
    for (auto &link : picture.links) {
        sysfs::describe(link);
        visibility_.devicesHidden = visibility_.devicesHidden || link.isUndescribed;
    }

    bus_.update(visibility_);
    if (auto servers = bus_.resolvedServers(visibility_))
        picture.resolvedServers = *std::move(servers);
    if (auto servers = bus_.networkManagerServers(visibility_))
        picture.networkManagerServers = *std::move(servers);
    readManaged(picture);
    readLeases(picture);
    if (const auto file = files::read(resolvConf, largestFile); file.contents)
        picture.resolvConfServers = resolvConfServers(*file.contents);
    else
        visibility_.resolverFileHidden = !file.failure.isMissing;
    picture.takenAt = std::time(nullptr);
    picture_.emplace(std::move(picture));
    return true;
}

const SynthesizedStore *LinuxNetwork::pictureForKeyList() {
    if (!picture_ || isListed_)
        takePicture();
    isListed_ = true;
    return picture();
}

void LinuxNetwork::readManaged(NetworkPicture &picture) {
    // Asked first: what is disabled only after NetworkManager's answer is not enabled again by it.
    const auto disabled = disabled_.devices();
    // And an answer from before a service was disabled must not enable it again either.
    if (const auto insertions = disabled_.insertions(); std::exchange(insertions_, insertions) != insertions)
        bus_.forget();
    if (auto managed = bus_.activeDevices(visibility_))
        picture.managed = *std::move(managed);
    // A radio that was disconnected is off, whoever did it. Of other devices only ours count: a cable
    // that somebody disconnected is not to be connected again for him.
    std::erase_if(picture.managed, [&](const NetworkPicture::Managed &managed) {
        const auto link = std::ranges::find(picture.links, managed.device, &NetworkPicture::Link::name);
        return managed.isDisabled && (link == picture.links.end() || !link->isWireless);
    });
    for (const auto &device : disabled) {
        const auto found = std::ranges::find(picture.managed, device, &NetworkPicture::Managed::device);
        if (found == picture.managed.end())
            picture.managed.push_back({device, {}, true});
        else if (!found->isDisabled)
            disabled_.erase(device);
    }
}

void LinuxNetwork::readLeases(NetworkPicture &picture) {
    for (const std::string folder : leaseFolders) {
        const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(folder.c_str()), closedir);
        if (!directory) {
            visibility_.leasesHidden = visibility_.leasesHidden || errno == EACCES;
            continue;
        }
        while (const auto *entry = readdir(directory.get())) {
            if (!isLeaseFile(entry->d_name))
                continue;
            const auto file = files::read(folder + "/" + entry->d_name, largestFile);
            if (!file.contents)
                visibility_.leasesHidden = visibility_.leasesHidden || !file.failure.isMissing;
            else
                for (auto &lease : leasesInFile(entry->d_name, *file.contents))
                    picture.leases.push_back(std::move(lease));
        }
    }
}

std::vector<std::string> LinuxNetwork::resolverFiles() {
    std::vector<std::string> paths(leaseFolders.begin(), leaseFolders.end());
    paths.emplace_back(resolvConf);
    return paths;
}

std::unique_ptr<DynamicStore> LinuxNetwork::openStore() {
    return std::make_unique<LinuxStore>(*this, news_);
}

std::unique_ptr<DynamicStore> LinuxNetwork::openOwnStore() {
    return std::make_unique<OwnStore>(disabled_, news_);
}

std::unique_ptr<NetworkPreferences> LinuxNetwork::openPreferences() {
    return std::make_unique<LinuxPreferences>(*this);
}

} // namespace tarn
