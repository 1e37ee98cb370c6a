#include "Support/NetworkLab.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace tarn {
namespace {

namespace fs = std::filesystem;

void require(bool succeeded, const std::string &what) {
    const int error = errno;
    if (!succeeded)
        throw NetworkLab::Unavailable("no network of its own for this test: " + what + ": " +
                                      std::generic_category().message(error));
}

void writeProc(const std::string &path, const std::string &text) {
    std::ofstream file(path);
    require(bool(file << text << std::flush), path);
}

void enterNamespaces() {
    constexpr int own = CLONE_NEWNS | CLONE_NEWNET;
    if (unshare(own) == 0)
        return;
    const auto user = std::to_string(geteuid());
    const auto group = std::to_string(getegid());
    require(unshare(own | CLONE_NEWUSER) == 0, "unshare");
    writeProc("/proc/self/setgroups", "deny");
    writeProc("/proc/self/uid_map", "0 " + user + " 1");
    writeProc("/proc/self/gid_map", "0 " + group + " 1");
}

void enterHost(const std::string &host) {
    const int network = open(("/run/netns/" + host).c_str(), O_RDONLY | O_CLOEXEC);
    if (network < 0 || setns(network, CLONE_NEWNET) != 0)
        _exit(126);
    close(network);
}

// Routes through a device that is not the best one are what the tests are about, and answers
// come back through it; duplicate address detection would make every IPv6 address wait.
constexpr const char *prepareHost = "ip link set lo up; cd /proc/sys/net;"
                                    "echo 0 | tee ipv4/conf/all/rp_filter ipv4/conf/default/rp_filter "
                                    "ipv6/conf/all/accept_dad ipv6/conf/default/accept_dad >/dev/null";

} // namespace

NetworkLab::NetworkLab() {
    enterNamespaces();
    require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    for (const char *path : {"/run", "/var/lib", "/etc/tarnlink"})
        if (fs::is_directory(path))
            mountEmpty(path);
    // Devices in /sys are those of the network in which it was mounted.
    if (mount("sysfs", "/sys", "sysfs", 0, nullptr) == 0)
        mounts_.emplace_back("/sys");

    resolvConf_ = fs::weakly_canonical("/etc/resolv.conf");
    fs::create_directories(folder_);
    if (!resolvConf_.starts_with("/run/")) {
        write(folder_ + "/resolv.conf", "");
        require(mount((folder_ + "/resolv.conf").c_str(), resolvConf_.c_str(), nullptr, MS_BIND, nullptr) ==
                    0,
                resolvConf_);
        mounts_.push_back(resolvConf_);
    }

    for (const char *name : {"DBUS_SYSTEM_BUS_ADDRESS", "STATE_DIRECTORY", "JOURNAL_STREAM"})
        unsetenv(name);
    setenv("HOME", folder_.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (folder_ + "/config").c_str(), 1);
    setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    run(prepareHost);
}

NetworkLab::~NetworkLab() {
    while (!running_.empty())
        stop(*running_.begin());
    for (auto path = mounts_.rbegin(); path != mounts_.rend(); ++path)
        umount2(path->c_str(), MNT_DETACH);
}

void NetworkLab::mountEmpty(const std::string &path) {
    require(mount("tmpfs", path.c_str(), "tmpfs", 0, "mode=755") == 0, path);
    mounts_.push_back(path);
}

pid_t NetworkLab::spawn(const std::string &command, const std::string &host, const std::string &out,
                        const std::string &err) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    // A group of its own, for what a shell may start in turn; both sides see to it, as neither may be late.
    setpgid(child, child);
    if (child > 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(127);
    if (!host.empty())
        enterHost(host);
    constexpr int flags = O_WRONLY | O_CREAT | O_APPEND;
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(open(out.c_str(), flags, 0644), STDOUT_FILENO);
    dup2(open(err.c_str(), flags, 0644), STDERR_FILENO);
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
}

NetworkLab::Result NetworkLab::execute(const std::string &command, const std::string &host) {
    const auto out = newFile();
    const auto err = newFile();
    const pid_t child = spawn(command, host, out, err);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out), readFile(err)};
}

NetworkLab::Result NetworkLab::run(const std::string &command, const std::string &host) {
    auto result = execute(command, host);
    if (result.status != 0)
        throw std::runtime_error(command + (host.empty() ? "" : " (in " + host + ")") + ": status " +
                                 std::to_string(result.status) + "\n" + result.out + result.err);
    return result;
}

void NetworkLab::addCable(const std::string &device, const std::vector<std::string> &addresses,
                          const std::vector<std::string> &farAddresses, const std::string &host) {
    if (hosts_.insert(host).second) {
        run("ip netns add " + host);
        run(prepareHost, host);
    }
    std::string command = "set -e; ip link add " + device + " type veth peer name " + device + " netns " +
                          host + "; ip link set " + device + " up; ip -n " + host + " link set " + device +
                          " up;";
    for (const auto &address : addresses)
        command += "ip addr add " + address + " dev " + device + ";";
    for (const auto &address : farAddresses)
        command += "ip -n " + host + " addr add " + address + " dev " + device + ";";
    run(command);
    // Before that the kernel drops what is sent.
    const auto state = [&](const std::string &at) { return run("ip -o link show " + device, at).out; };
    waitUntil([&] { return state({}).find("state UP") != std::string::npos; }, device + " up");
    waitUntil([&] { return state(host).find("state UP") != std::string::npos; }, "far " + device + " up");
}

void NetworkLab::pull(const std::string &device, const std::string &host) {
    run("ip link set " + device + " down", host);
}

void NetworkLab::plug(const std::string &device, const std::string &host) {
    run("ip link set " + device + " up", host);
}

pid_t NetworkLab::start(const std::string &command, const std::string &host) {
    const auto file = newFile();
    const pid_t child = spawn("exec " + command, host, file, file);
    running_.insert(child);
    logs_[child] = file;
    return child;
}

void NetworkLab::waitForLog(pid_t process, const std::string &words) {
    const auto hasSaid = [&] {
        // Looked at in this order, the last words of a process that ends are not missed.
        const bool hasEnded = waitpid(process, nullptr, WNOHANG) == process;
        if (hasEnded)
            running_.erase(process);
        const bool isSaid = log(process).find(words) != std::string::npos;
        if (hasEnded && !isSaid)
            throw std::runtime_error("the process ended: " + log(process));
        return isSaid;
    };
    waitUntil(hasSaid, "the words: " + words);
}

void NetworkLab::stop(pid_t process) {
    if (running_.erase(process) == 0)
        return;
    kill(-process, SIGKILL);
    waitpid(process, nullptr, 0);
}

std::string NetworkLab::log(pid_t process) const {
    return readFile(logs_.at(process));
}

void NetworkLab::write(const std::string &path, std::string_view contents) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!(file << contents << std::flush))
        throw std::runtime_error("cannot write " + path);
}

void NetworkLab::makeWireless(const std::string &device) {
    write(radioFolder() + "/soft", "0\n");
    write(radioFolder() + "/hard", "0\n");
    const auto devices = folder_ + "/net/class";
    fs::create_directories(devices + "/" + device);
    fs::create_symlink(folder_ + "/net/radio", devices + "/" + device + "/phy80211");
    require(mount(devices.c_str(), "/sys/class/net", nullptr, MS_BIND, nullptr) == 0, "/sys/class/net");
    mounts_.emplace_back("/sys/class/net");
}

void waitUntil(const std::function<bool()> &condition, const std::string &what,
               std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            throw std::runtime_error("waited in vain for: " + what);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::string readFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace tarn

int main(int count, char **values) {
    testing::InitGoogleTest(&count, values);
    return RUN_ALL_TESTS();
}
