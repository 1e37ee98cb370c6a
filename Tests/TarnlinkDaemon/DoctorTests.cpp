#include "TarnlinkDaemon/DaemonLab.h"
#include "TarnlinkDaemon/DoorLab.h"

#include <net/if.h>
#include <nlohmann/json.hpp>

namespace tarn {
namespace {

/// The identifiers of what it finds, each with a blank behind it; the whole answer is in `text`. It runs
/// where no process of other tests can be seen, beside what `first` starts.
std::string text;
std::string examine(NetworkLab &lab, const std::string &first = {}, const std::string &environment = {},
                    const std::string &user = "5002") {
    lab.write("/run/lab/examine", first + "\nexec setpriv --reuid " + user + " --clear-groups env HOME=/ " +
                                      environment + " /run/lab/tarnlinkctl doctor --json");
    const auto start = std::chrono::steady_clock::now();
    const auto result = lab.execute("unshare --pid --fork --kill-child --mount-proc sh /run/lab/examine");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(result.err, "");
    text = result.out;
    std::string ids;
    const auto answer = nlohmann::json::parse(text);
    for (const auto &finding : answer.at("findings"))
        ids += finding["id"].get<std::string>() + " ";
    EXPECT_EQ(result.status, ids.empty() ? 0 : 1);
    return ids;
}

/// A healthy machine, on which one thing after the other is put out of order.
class CheckUp : public DoorLab {
protected:
    void SetUp() override {
        DoorLab::SetUp();
        if (IsSkipped())
            return;
        lab().writeResolvConf("nameserver 192.0.2.1\n");
        const auto server = lab().start("dnsmasq --no-daemon --user=root --no-resolv --no-hosts "
                                        "--conf-file=/dev/null --local=/invalid/",
                                        "far");
        lab().waitForLog(server, "started");
        const std::string folder = "/usr/share/dbus-1/system.d";
        lab().run("mount -t tmpfs none " + folder + "; cp " + policy_ + " " + folder);
        policy_ = folder + "/com.veltrion.tarnlink.daemon.conf";
        options_.clear();
        start();
    }
};

TEST_F(CheckUp, EachFaultOfANetworkIsNamedAndGoesWithIt) {
    lab().addCable("eth1", {"198.51.100.10/24"}, {"198.51.100.1/24"}, "other");
    lab().run("cp /bin/sleep /run/lab/connmand; ip link set eth1 down");
    lab().write("/run/lab/home/tarnlink/menu.json", R"({"UpdateLastCheck": "2026-01-01T00:00:00Z"})");
    const std::string restore = "echo nameserver 192.0.2.1 >/etc/resolv.conf";
    const struct {
        std::string wanted, command, undo, environment = {};
    } table[] = {
        {"noResolver ", ": >/etc/resolv.conf", restore},
        {"stubResolver ", "echo nameserver 127.0.0.53 >/etc/resolv.conf", restore},
        {"vpnShadowing ",
         "ip tuntap add tun0 mode tun && ip addr add 10.8.0.2/24 dev tun0 && ip link set tun0 up &&"
         "echo nameserver 10.8.0.1 >/etc/resolv.conf",
         "ip link del tun0; " + restore},
        // As a second way out it does no harm.
        {"",
         "ip link set eth1 up && ip route add default via 198.51.100.1 dev eth1 metric 200 &&"
         "echo nameserver 198.51.100.1 >>/etc/resolv.conf && echo 1 >/proc/sys/net/ipv4/conf/eth0/rp_filter",
         "true"},
        {"strictReversePath ",
         "ip route add default via 192.0.2.1 dev eth0 metric 300 && ip route del default dev eth0 metric 0",
         "echo 2 >/proc/sys/net/ipv4/conf/all/rp_filter"},
        {"feedSilent ", "true", "true", "XDG_CONFIG_HOME=/run/lab/home"},
        {"clockBehind ", "true", "true", "ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD=" EARLY_CLOCK},
        {"daemonSilent ", "kill -STOP " + std::to_string(daemon_), "kill -CONT " + std::to_string(daemon_)},
    };
    EXPECT_EQ(examine(lab()), "");
    EXPECT_EQ(lab().run("/run/lab/tarnlinkctl doctor").out, "Nothing found.\n");
    for (const auto &row : table) {
        lab().run(row.command);
        EXPECT_EQ(examine(lab(), "", row.environment), row.wanted) << text;
        lab().run(row.undo);
        EXPECT_EQ(examine(lab()), "") << "after " << row.wanted;
    }
    lab().makeWireless("eth1");
    EXPECT_EQ(examine(lab(), "/run/lab/connmand 60 & sleep 0.1"), "foreignRadio ") << text;
    EXPECT_EQ(examine(lab()), "") << "nobody has it";
}

TEST_F(CheckUp, EachFaultOfAnInstallationIsNamed) {
    lab().stop(daemon_);
    EXPECT_EQ(examine(lab(), "", "STATE_DIRECTORY=/run/lab/state"), "noDaemon ");
    EXPECT_NE(text.find("only root may look"), text.npos) << text;
    const auto beside = command_ + " 2>/dev/null & sleep 0.5";
    lab().run("mv " + policy_ + " /run/lab/policy; kill -HUP " + std::to_string(bus_));
    EXPECT_EQ(examine(lab()), "busPolicy noDaemon ");
    EXPECT_EQ(examine(lab(), beside), "busPolicy ");
    // Installed, but the bus has not read it.
    lab().run("echo '<busconfig/>' >" + policy_);
    EXPECT_EQ(examine(lab(), beside), "busPolicy ");
    lab().stop(bus_);
    EXPECT_EQ(examine(lab()), "noBus ");
    lab().run("mv /run/lab/policy " + policy_);
    start(false);
    EXPECT_EQ(examine(lab()), "noPolkit ");
}

TEST_F(CheckUp, OnlyADesktopWithoutAnAgentIsToldOf) {
    // polkit, too, has to see where she is.
    const std::string here = "mount --bind /run/lab/cgroup /proc/$$/cgroup && exec setpriv --reuid 5005 "
                             "--clear-groups env HOME=/ ";
    const std::string doctor = "/run/lab/tarnlinkctl doctor --json";
    EXPECT_EQ(lab().execute(here + doctor).status, 0) << "at a console";
    lab().run("echo TYPE=wayland >>/run/systemd/sessions/c1");
    for (int i = 0; i < 2; ++i) // It leaves none behind.
        EXPECT_NE(lab().execute(here + doctor).out.find("\"noAgent\""), std::string::npos);
    lab().write("/run/lab/agent", here + R"py(/usr/bin/python3 -c "
import dbus, time
polkit = dbus.SystemBus().get_object('org.freedesktop.PolicyKit1', '/org/freedesktop/PolicyKit1/Authority')
polkit.RegisterAuthenticationAgent(('unix-session', {'session-id': 'c1'}), 'C', '/agent',
                                   dbus_interface='org.freedesktop.PolicyKit1.Authority')
print('ready', flush=True)
time.sleep(60)")py");
    lab().waitForLog(lab().start("sh /run/lab/agent"), "ready");
    EXPECT_EQ(lab().execute(here + doctor).status, 0) << "an agent";
}

class Neighbours : public DaemonLab {};

TEST_F(Neighbours, APhonesResolverAnotherManagersRadioAndAJournalLeftBehind) {
    lab().run("cp " CTL " /run/lab; cp /bin/sleep /run/lab/wpa_supplicant");
    const std::string resolved = "org.freedesktop.resolve1 /org/freedesktop/resolve1 ";
    const auto link = std::to_string(if_nametoindex("eth0"));
    const pid_t mock =
        lab().start("/usr/bin/python3 -m dbusmock --system " + resolved + "org.freedesktop.resolve1.Manager");
    const auto add = "busctl call " + resolved +
                     "org.freedesktop.DBus.Mock AddProperties 'sa{sv}' "
                     "org.freedesktop.resolve1.Manager 2 Domains 'a(isb)' 1 " +
                     link + " corp.example false DNS 'a(iiay)' 2 " + link +
                     " 10 16 254 128 0 0 0 0 0 0 0 0 0 0 0 0 0 5 " + link + " 2 4 192 0 2 1";
    waitUntil([&] { return lab().execute(add).status == 0; }, "a resolver");
    examine(lab(), "", "", "0");
    EXPECT_NE(text.find("The phone at eth0 stands before the name servers of corp.example."), text.npos);
    lab().stop(mock);

    const std::string other = "/run/lab/wpa_supplicant 60 & sleep 0.1";
    start();
    expectWiFi(isOff("address"));
    const auto ids = [&] { return examine(lab(), other, "STATE_DIRECTORY=" + state_, "0"); };
    EXPECT_EQ(ids().find("foreignRadio"), std::string::npos) << "it serves NetworkManager";
    EXPECT_EQ(ids().find("staleJournal"), std::string::npos) << "the daemon's own";
    end(SIGKILL);
    EXPECT_NE(ids().find("staleJournal"), std::string::npos);
    EXPECT_EQ(execute("--undo").status, 0);
    EXPECT_EQ(ids().find("staleJournal"), std::string::npos);
    manager_->command("device set wlan0 managed no");
    EXPECT_NE(ids().find("foreignRadio"), std::string::npos);
}

} // namespace
} // namespace tarn
