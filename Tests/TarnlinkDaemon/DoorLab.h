#pragma once

#include "Support/PolkitLab.h"

#include <unistd.h>

namespace tarn {

/// The daemon as a process on a bus with the policy that is installed, and a real polkitd.
class DoorLab : public PolkitLab {
protected:
    /// As distributions have it, but for the path.
    static constexpr const char *systemBus =
        "<busconfig><type>system</type><listen>unix:path=/run/lab/bus</listen>%s"
        "<policy context='default'><allow user='*'/><deny own='*'/><deny send_type='method_call'/>"
        "<allow receive_sender='*'/><allow send_requested_reply='true'/><allow "
        "send_destination='org.freedesktop.DBus'/>"
        "<allow own='org.freedesktop.PolicyKit1'/><allow "
        "send_destination='org.freedesktop.PolicyKit1'/></policy>"
        "<include ignore_missing='yes'>%s</include></busconfig>";

    void SetUp() override {
        PolkitLab::SetUp();
        if (IsSkipped())
            return;
        lab().addCable("eth0", {"192.0.2.10/24"}, {"192.0.2.1/24"});
        // Where every user can run them.
        lab().run("ip route add default via 192.0.2.1 dev eth0; mkdir -m 700 /run/lab/state;"
                  "chown 5001 /run/lab/state; cp " DAEMON " " CTL " /run/lab");
    }
    /// The bus, and on it the daemon as the user that it has when it is installed.
    void start(bool hasPolkit = true) {
        auto configuration = std::string(systemBus);
        for (const auto &part : {std::string(hasPolkit ? services : ""), policy_})
            configuration.replace(configuration.find("%s"), 2, part);
        lab().write("/run/lab/system.conf", configuration);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/lab/bus", 1);
        unlink("/run/lab/bus");
        bus_ = lab().start("dbus-daemon --nofork --print-address --config-file=/run/lab/system.conf");
        lab().waitForLog(bus_, "unix:");
        daemon_ = lab().start(command_ + options_);
        waitUntil([&] { return ctl("root", "status").out.find("Wired") != std::string::npos; }, "the door");
    }
    NetworkLab::Result run(const std::string &user, const std::string &command) {
        return lab().execute("setpriv --reuid " + user + " --clear-groups " + command);
    }
    NetworkLab::Result busctl(const std::string &user, const std::string &method) {
        return run(user, "busctl call com.veltrion.tarnlink.daemon /com/veltrion/tarnlink/daemon "
                         "com.veltrion.tarnlink.daemon " +
                             method);
    }
    NetworkLab::Result ctl(const std::string &user, const std::string &arguments) {
        return run(user, "/run/lab/tarnlinkctl " + arguments);
    }
    void signalPolkit(const std::string &signal) {
        lab().run("kill -" + signal +
                  " $(busctl call org.freedesktop.DBus /org/freedesktop/DBus "
                  "org.freedesktop.DBus GetConnectionUnixProcessID s org.freedesktop.PolicyKit1 | cut -c3-)");
    }

    std::string policy_ = PACKAGING "/dbus/com.veltrion.tarnlink.daemon.conf";
    const std::string command_ =
        "setpriv --reuid 5001 --clear-groups env STATE_DIRECTORY=/run/lab/state HOME=/ "
        "/run/lab/TarnlinkDaemon";
    std::string options_ = " --probe-mode off";
    pid_t bus_ = 0;
    pid_t daemon_ = 0;
};

} // namespace tarn
