// What is made of a kernel's own devices, counters and processes.

#include "Platform/Linux/LinuxKernelTables.h"
#include "Platform/Linux/LinuxProcessLauncher.h"
#include "Support/NetworkLab.h"
#include "TarnSystem/DNSCacheFlusher.h"
#include "TarnSystem/VPNDetector.h"

#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace tarn {
namespace {

/// Of the machine's processes only the test's own may be signalled.
class KernelTablesInLab : public LabTest, public LinuxKernelTables {
protected:
    std::vector<Process> processes() override {
        auto list = LinuxKernelTables::processes();
        std::erase_if(list, [&](const Process &entry) { return !std::ranges::count(own_, entry.pid); });
        return list;
    }
    /// A process of this name that tells of each hang-up.
    pid_t startNamed(const std::string &name, const std::string &wrapper = {}) {
        own_.push_back(lab().start(wrapper + R"( /usr/bin/python3 -c "import signal
signal.signal(signal.SIGHUP, lambda *_: print('flushed', flush=True))
open('/proc/self/comm', 'w').write(')" +
                                   name + R"Q('); print('ready', flush=True)
while True: signal.pause()")Q"));
        lab().waitForLog(own_.back(), "ready");
        return own_.back();
    }
    std::string flushFailure() {
        try {
            DNSCacheFlusher(*this).flush();
            return "none";
        } catch (const DNSCacheFlushError &error) {
            return error.description();
        }
    }
    std::string bytes(const std::string &device) {
        const auto counts = byteCounts(device);
        return counts ? std::to_string(counts->rx) + " " + std::to_string(counts->tx) : "none";
    }

    std::vector<std::int32_t> own_;
};

TEST_F(KernelTablesInLab, TunnelIsActiveOnceItHasARoutableAddress) {
    lab().run(
        "ip tuntap add mode tun dev tun0; ip link add tun1 type veth peer name eth0;"
        "ip addr add fe80::1/64 dev tun0; ip addr add fe80::9/64 dev tun1; ip addr add 10.0.0.5 dev eth0");
    EXPECT_EQ(VPNDetector::activeTunnel(*this), std::nullopt);
    lab().run("ip addr add fd00::9/64 dev tun1; ip addr add 10.8.0.2 peer 10.8.0.1 dev tun0");
    EXPECT_EQ(VPNDetector::activeTunnel(*this), (VPNDetector::Tunnel{"tun0", "10.8.0.2"}));
    const std::vector<VPNDetector::TunnelInterface> expected = {{"tun0", {"10.8.0.2"}, {"fe80::1"}},
                                                                {"tun1", {}, {"fd00::9", "fe80::9"}}};
    EXPECT_EQ(VPNDetector::tunnelInterfaces(*this), expected);
}

TEST_F(KernelTablesInLab, CountersAreTheKernels) {
    lab().addCable("eth0", {"192.0.2.10/24"}, {});
    // Nobody at the far end takes it, so nothing comes back.
    lab().run(
        "ip neigh add 192.0.2.77 lladdr 02:00:00:00:00:77 dev eth0; /usr/bin/python3 -c \"import socket\n"
        "own = socket.socket(type=socket.SOCK_DGRAM)\n"
        "for i in range(100): own.sendto(bytes(1000), ('192.0.2.77', 9))\"");
    const auto isKernels = [&] {
        const auto stats = nlohmann::json::parse(lab().run("ip -s -j link show eth0").out)[0]["stats64"];
        return bytes("eth0") == stats["rx"]["bytes"].dump() + " " + stats["tx"]["bytes"].dump();
    };
    // The device's own chatter may come in between.
    waitUntil(isKernels, "the same counts");
    EXPECT_GE(byteCounts("eth0")->tx, byteCounts("eth0")->rx + 90000);
    for (const auto *name : {"", ".", "..", "eth9", "../net/eth0"})
        EXPECT_EQ(bytes(name), "none") << name;
    lab().makeWireless("wlan0");
    lab().write(lab().folder() + "/net/class/wlan0/statistics/rx_bytes", "18446744073709551615\n");
    EXPECT_EQ(bytes("wlan0"), "none") << "half a reading";
    lab().write(lab().folder() + "/net/class/wlan0/statistics/tx_bytes", "4294967297\n");
    EXPECT_EQ(bytes("wlan0"), "18446744073709551615 4294967297");
}

TEST_F(KernelTablesInLab, FlushSignalsEachResolverUntilOneRefuses) {
    // There may be no other user here.
    const bool hasOther = lab().execute("setpriv --reuid 65534 true").status == 0;
    const auto first = startNamed("mDNSResponder", hasOther ? "setpriv --reuid 65534" : "");
    const auto second = startNamed("mDNSResponder");
    const auto similar = startNamed("mDNSResponderHe");
    EXPECT_THAT(DNSCacheFlusher(*this).flush(), testing::ElementsAre(first, second));
    lab().waitForLog(second, "flushed");
    lab().waitForLog(first, "flushed");
    if (hasOther) {
        ASSERT_EQ(setresuid(65534, 65534, 0), 0);
        const auto refused = flushFailure();
        ASSERT_EQ(setresuid(0, 0, 0), 0);
        EXPECT_EQ(refused, "SIGHUP to mDNSResponder (pid " + std::to_string(second) +
                               ") failed: Operation not permitted");
        lab().waitForLog(first, "flushed\nflushed");
        EXPECT_EQ(lab().log(second), "ready\nflushed\n");
    }
    lab().stop(first);
    lab().stop(second);
    EXPECT_EQ(flushFailure(), "mDNSResponder not running");
    EXPECT_EQ(lab().log(similar), "ready\n");
}

TEST(LinuxProcessLauncher, ChildrenInheritNeitherSignalsNorDescriptors) {
    sigset_t blocked;
    sigfillset(&blocked);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(dup2(STDOUT_FILENO, 77), 77);
    // Signals above 28 the C library keeps for itself.
    const std::string notDefault = "SigBlk:.*[1-9a-f]|SigIgn:.*[1-9a-f].{0,6}$";
    EXPECT_EQ(LinuxProcessLauncher().run("/bin/grep", {"-E", notDefault, "/proc/self/status"}).status, 1);
    // ls opens the folder as 3.
    const auto listed = LinuxProcessLauncher().run("/bin/sh", {"-c", "exec ls /proc/self/fd >&2"});
    EXPECT_EQ(listed.standardError, "0\n1\n2\n3\n");
    const auto merged =
        LinuxProcessLauncher().runMerged("/bin/sh", {"-c", "echo 1; echo 2 >&2; echo 3; exit 4"});
    EXPECT_EQ(merged.standardOutput + std::to_string(merged.status), "1\n2\n3\n4");
    EXPECT_EQ(LinuxProcessLauncher().runMerged("/none", {}).launchError, "No such file or directory");
}

} // namespace
} // namespace tarn
