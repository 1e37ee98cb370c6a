#include "Platform/Linux/Sysfs.h"

#include "TarnSystem/Files.h"

#include <algorithm>
#include <array>
#include <dirent.h>
#include <linux/if_arp.h>
#include <memory>
#include <string_view>
#include <unistd.h>

namespace tarn::sysfs {
namespace {

constexpr const char *root = "/sys/class/net/";

bool isWireless(const std::string &device) {
    return access((root + device + "/phy80211").c_str(), F_OK) == 0;
}

std::vector<std::string> namesIn(const std::string &folder) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(folder.c_str()), closedir);
    while (const auto *entry = directory ? readdir(directory.get()) : nullptr)
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    return names;
}

} // namespace

void describe(NetworkPicture::Link &link) {
    if (link.isLoopback || link.hardwareType != ARPHRD_ETHER)
        return;
    link.isWireless = isWireless(link.name);
    // A device that exists in software alone is no radio, whatever is hidden here.
    link.isUndescribed = link.linkKind.empty() && access((root + link.name).c_str(), F_OK) != 0;
    // Devices that exist in software alone have no driver.
    if (!link.linkKind.empty())
        return;
    std::array<char, 256> target{};
    const auto length = readlink((root + link.name + "/device/driver").c_str(), target.data(), target.size());
    if (length <= 0)
        return;
    const std::string_view path(target.data(), static_cast<std::size_t>(length));
    link.driver = path.substr(path.rfind('/') + 1);
}

std::vector<std::string> wirelessDevices() {
    auto names = namesIn(root);
    std::erase_if(names, [](const std::string &name) { return !isWireless(name); });
    std::ranges::sort(names);
    return names;
}

std::optional<bool> isRadioOn(const std::string &device) {
    const std::string phy = root + device + "/phy80211/";
    std::optional<bool> isOn;
    for (const auto &name : namesIn(phy)) {
        if (!name.starts_with("rfkill"))
            continue;
        for (const char *block : {"/soft", "/hard"})
            if (const auto file = files::read(phy + name + block, 16); file.contents)
                isOn = isOn.value_or(true) && file.contents->starts_with('0');
    }
    return isOn;
}

} // namespace tarn::sysfs
