#pragma once

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace tarn {

/// A network and a view of the file system for one test: no device but the loopback, nothing of
/// the machine's in /run, /var/lib, /etc/tarnlink and /etc/resolv.conf, and IPv6 addresses that
/// are usable at once. Programs started here, and the test itself, see nothing else.
///
/// Thread: main thread. Make it while no other thread lives, because without privileges the
///   process moves into a user namespace (user_namespaces(7)), which the kernel refuses to several.
/// Ownership: servers are killed and mounts gone with the lab, also when the test dies.
/// Errors: a step that fails throws std::runtime_error with the command and what it said.
class NetworkLab {
public:
    /// This machine does not let the test have a network of its own.
    struct Unavailable : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    /// Throws Unavailable.
    NetworkLab();
    NetworkLab(const NetworkLab &) = delete;
    NetworkLab &operator=(const NetworkLab &) = delete;
    ~NetworkLab();

    struct Result {
        int status = -1; ///< Of exit(2); -1 for a program that a signal ended.
        std::string out;
        std::string err;
    };
    /// Runs a shell command to its end, here or in a far host. run() throws unless it succeeds.
    Result execute(const std::string &command, const std::string &host = {});
    Result run(const std::string &command, const std::string &host = {});

    /// A cable from `device` here to a device of the same name in a far host, which is made when
    /// it is new. Both ends are up and have the addresses, which are as in ip-address(8).
    void addCable(const std::string &device, const std::vector<std::string> &addresses,
                  const std::vector<std::string> &farAddresses, const std::string &host = "far");
    void pull(const std::string &device, const std::string &host = "far");
    void plug(const std::string &device, const std::string &host = "far");

    /// Starts what runs until stop() or the end of the lab. What it says is in log().
    pid_t start(const std::string &command, const std::string &host = {});
    /// Waits until the process has said the words.
    void waitForLog(pid_t process, const std::string &words);
    void stop(pid_t process);
    std::string log(pid_t process) const;

    /// A folder for files of the test, reachable by every user.
    const std::string &folder() const { return folder_; }
    /// Writes a file; its folders are made.
    void write(const std::string &path, std::string_view contents);
    void writeResolvConf(std::string_view contents) { write(resolvConf_, contents); }
    /// Makes /sys tell of `device`, and of no other, that it is wireless and has a radio, whose
    /// two blocks are then "0" or "1" in `radioFolder()`.
    void makeWireless(const std::string &device);
    std::string radioFolder() const { return folder_ + "/net/radio/rfkill0"; }

private:
    static pid_t spawn(const std::string &command, const std::string &host, const std::string &out,
                       const std::string &err);
    std::string newFile() { return folder_ + "/output" + std::to_string(++files_); }
    void mountEmpty(const std::string &path);

    const std::string folder_ = "/run/lab";
    std::string resolvConf_;
    std::vector<std::string> mounts_;
    std::set<std::string> hosts_;
    std::set<pid_t> running_;
    std::map<pid_t, std::string> logs_;
    unsigned files_ = 0;
};

/// Looks again and again until the condition holds. Throws std::runtime_error that names `what`
/// when it does not within the limit.
void waitUntil(const std::function<bool()> &condition, const std::string &what,
               std::chrono::milliseconds limit = std::chrono::seconds(20));

std::string readFile(const std::string &path);

/// A test in a lab; skipped, with the reason, where none can be had.
class LabTest : public testing::Test {
protected:
    void SetUp() override {
        try {
            lab_.emplace();
        } catch (const NetworkLab::Unavailable &reason) {
            GTEST_SKIP() << reason.what();
        }
    }
    NetworkLab &lab() { return *lab_; }

private:
    std::optional<NetworkLab> lab_;
};

} // namespace tarn
