#pragma once

#include "Support/NetworkLab.h"

#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace tarn {

/// Starts a system bus in the lab, or again after it was stopped; programs started after that,
/// and the test itself, find it. `sections` are further ones of its configuration (dbus-daemon(1)).
pid_t startBus(NetworkLab &lab, const std::string &sections = {});

/// A real NetworkManager in a lab, with only the profiles of the test. It manages every device,
/// activates by itself nothing but these, reaches no radio of the machine, and needs startBus()
/// first.
///
/// Thread: as the lab, which must outlive it.
/// Errors: as the lab; where NetworkManager cannot be had here, NetworkLab::Unavailable.
class NetworkManagerLab {
public:
    explicit NetworkManagerLab(NetworkLab &lab);
    NetworkManagerLab(const NetworkManagerLab &) = delete;
    NetworkManagerLab &operator=(const NetworkManagerLab &) = delete;
    ~NetworkManagerLab();

    /// An Ethernet profile of a device, which is activated when NetworkManager starts. `sections`
    /// stand after the connection's own, as in nm-settings-keyfile(5); without any, it has no
    /// addresses.
    void addProfile(const std::string &name, const std::string &device,
                    std::string_view sections = "[ipv4]\nmethod=disabled\n[ipv6]\nmethod=disabled\n");
    /// Starts it and returns when it answers; its profiles need not be active yet. The
    /// process is the lab's: NetworkLab::stop() ends it as a crash would.
    pid_t start();
    /// Runs nmcli(1) to its end and returns what it said.
    std::string command(const std::string &arguments);

private:
    void hide(const std::string &behind, const std::string &path);

    NetworkLab &lab_;
    std::vector<std::string> hidden_;
    unsigned profiles_ = 0;
};

} // namespace tarn
