#include "Support/NetworkManagerLab.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sys/mount.h>
#include <system_error>
#include <unistd.h>

namespace tarn {
namespace {

namespace fs = std::filesystem;

constexpr const char *settings = "/etc/NetworkManager";

void require(bool succeeded, const std::string &what) {
    const int error = errno;
    if (!succeeded)
        throw NetworkLab::Unavailable("no NetworkManager for this test: " + what + ": " +
                                      std::generic_category().message(error));
}

} // namespace

pid_t startBus(NetworkLab &lab, const std::string &sections) {
    const auto file = lab.folder() + "/bus.conf";
    const auto path = lab.folder() + "/bus";
    lab.write(file, "<busconfig><listen>unix:path=" + path + "</listen>" + sections +
                        "<policy context='default'><allow user='*'/><allow own='*'/>"
                        "<allow send_destination='*'/><allow receive_sender='*'/></policy></busconfig>");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
    unlink(path.c_str());
    const pid_t bus = lab.start("dbus-daemon --nofork --print-address --config-file=" + file);
    lab.waitForLog(bus, "unix:");
    return bus;
}

NetworkManagerLab::NetworkManagerLab(NetworkLab &lab) : lab_(lab) {
    if (lab.execute("command -v NetworkManager").status != 0)
        throw NetworkLab::Unavailable("no NetworkManager for this test: it is not installed");
    const auto own = lab.folder() + "/NetworkManager";
    for (const char *folder : {"/conf.d", "/system-connections", "/dispatcher.d", "/dnsmasq.d"})
        fs::create_directories(own + folder);
    for (const char *folder : {"/run/NetworkManager", "/var/lib/NetworkManager"})
        fs::create_directories(folder);
    lab.write(
        own + "/NetworkManager.conf",
        "[main]\nplugins=keyfile\nauth-polkit=false\ndns=none\nrc-manager=unmanaged\n"
        "no-auto-default=*\nhostname-mode=none\n[keyfile]\nunmanaged-devices=none\n[logging]\nlevel=INFO\n");
    hide(own, settings);
    // The machine's radios belong to no network of a test, and it switches all that it can reach.
    if (fs::exists("/dev/rfkill"))
        hide("/dev/null", "/dev/rfkill");
    if (fs::exists("/sys/class/rfkill"))
        hide(own + "/conf.d", "/sys/class/rfkill");
    // Where /sys can be written it waits for a udev to announce the devices.
    require(mount(nullptr, "/sys", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0, "/sys");
}

NetworkManagerLab::~NetworkManagerLab() {
    for (auto path = hidden_.rbegin(); path != hidden_.rend(); ++path)
        umount2(path->c_str(), MNT_DETACH);
}

void NetworkManagerLab::hide(const std::string &behind, const std::string &path) {
    require(mount(behind.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0, path);
    hidden_.push_back(path);
}

void NetworkManagerLab::addProfile(const std::string &name, const std::string &device,
                                   std::string_view sections) {
    const auto file =
        std::string(settings) + "/system-connections/" + std::to_string(++profiles_) + ".nmconnection";
    lab_.write(file, "[connection]\nid=" + name + "\ntype=ethernet\ninterface-name=" + device + "\n" +
                         std::string(sections));
    // It ignores what others could have read.
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
}

pid_t NetworkManagerLab::start() {
    const pid_t manager = lab_.start("NetworkManager --debug");
    lab_.waitForLog(manager, "acquired D-Bus service");
    // Its objects come after its name.
    waitUntil([&] { return lab_.execute("nmcli general").status == 0; }, "NetworkManager");
    return manager;
}

std::string NetworkManagerLab::command(const std::string &arguments) {
    return lab_.run("nmcli --terse --wait 10 " + arguments).out;
}

} // namespace tarn
