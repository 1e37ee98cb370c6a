#pragma once

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/PolkitAuthorizations.h"
#include "Support/NetworkManagerLab.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <vector>

namespace tarn {

/// A lab with several users, our policy, and a real polkitd that the bus starts. The policy's defaults
/// count, but alice may do everything and bob nothing. Of the others, who all have no session, dora has one
/// and sits in front of the machine.
class PolkitLab : public LabTest {
protected:
    static constexpr uid_t root = 0, tarnlink = 5001, alice = 5002, bob = 5003, carol = 5004, dora = 5005;
    /// What startBus() wants.
    static constexpr const char *services = "<servicedir>/run/lab/services</servicedir>";

    void SetUp() override {
        LabTest::SetUp();
        if (IsSkipped())
            return;
        const auto rights =
            lab().execute("setpriv --reuid 5001 --clear-groups true && mount -t cgroup2 none /sys/fs/cgroup");
        if (rights.status != 0)
            GTEST_SKIP() << rights.err;
        lab().run(std::string("POLICY=" PACKAGING "/polkit/com.veltrion.tarnlink.policy\n") + prepare);
        lab().write("/etc/polkit-1/rules.d/1.rules",
                    "polkit.addRule(function(action, subject) {"
                    "    if (subject.user === 'alice') return polkit.Result.YES;"
                    "    if (subject.user === 'bob') return polkit.Result.NO; });");
    }
    void TearDown() override {
        for (const pid_t process : processes_) {
            kill(-process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
    }
    /// What `work` says in a process of that user, which lives on until the end of the test.
    std::string as(uid_t user, const std::function<std::string()> &work) {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        const pid_t child = fork();
        if (child == 0) {
            setsid();
            if (user == dora) // She sits in front of the machine.
                mount("/run/lab/cgroup", "/proc/self/cgroup", nullptr, MS_BIND, nullptr);
            if (user != root && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(user) != 0))
                _exit(1);
            const auto result = work();
            if (write(ends[1], result.data(), result.size()) >= 0)
                pause();
            _exit(1);
        }
        processes_.push_back(child);
        close(ends[1]);
        std::array<char, 1024> buffer;
        const auto size = read(ends[0], buffer.data(), buffer.size());
        close(ends[0]);
        return {buffer.data(), size < 0 ? 0 : static_cast<std::size_t>(size)};
    }
    /// For this process an agent whose person answers every question with "no"; ready when this returns.
    static void startRefusingAgent() {
        const auto refuse = [](sd_bus_message *, void *, sd_bus_error *error) {
            return sd_bus_error_set(error, "org.freedesktop.PolicyKit1.Error.Cancelled", "");
        };
        const sd_bus_vtable members[] = {SD_BUS_VTABLE_START(0),
                                         SD_BUS_METHOD("BeginAuthentication", "sssa{ss}sa(sa{sv})", "",
                                                       refuse, SD_BUS_VTABLE_UNPRIVILEGED),
                                         SD_BUS_VTABLE_END};
        const auto self = *currentProcess();
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        if (fork() == 0) {
            sd_bus *bus = nullptr;
            if (sd_bus_open_system(&bus) >= 0 &&
                sd_bus_add_object_vtable(bus, nullptr, "/agent",
                                         "org.freedesktop.PolicyKit1.AuthenticationAgent", members,
                                         nullptr) >= 0 &&
                sd_bus_call_method(bus, "org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
                                   "org.freedesktop.PolicyKit1.Authority", "RegisterAuthenticationAgent",
                                   nullptr, nullptr, "(sa{sv})ss", "unix-process", 2, "pid", "u", self.pid,
                                   "start-time", "t", self.startTime, "C", "/agent") >= 0 &&
                write(ends[1], "r", 1) == 1)
                while (sd_bus_process(bus, nullptr) >= 0)
                    usleep(1000);
            _exit(1);
        }
        close(ends[1]);
        char ready = 0;
        EXPECT_EQ(read(ends[0], &ready, 1), 1) << "no agent";
        close(ends[0]);
    }

private:
    static constexpr const char *prepare = R"(set -e
for at in /etc/polkit-1 /usr/share/polkit-1 /etc/pam.d; do mount -t tmpfs -o mode=755 none $at; done
mkdir -p /etc/polkit-1/rules.d /usr/share/polkit-1/rules.d /usr/share/polkit-1/actions /run/lab/services
cp $POLICY /usr/share/polkit-1/actions
cp /etc/passwd /run/lab
for user in tarnlink:x:5001 alice:x:5002 bob:x:5003 carol:x:5004 dora:x:5005; do
    echo $user:65534::/:/bin/sh >>/run/lab/passwd
done
mount --bind /run/lab/passwd /etc/passwd
printf '[D-BUS Service]\nName=org.freedesktop.PolicyKit1\nExec=/usr/lib/polkit-1/polkitd\n' >/run/lab/services/a.service
mkdir -p /run/dbus /run/systemd/sessions /run/systemd/users
ln -s /run/lab/bus /run/dbus/system_bus_socket # for polkit's helper
echo 0::/user.slice/user-5005.slice/session-c1.scope >/run/lab/cgroup
printf 'UID=5005\nACTIVE=1\nSTATE=active\nSEAT=seat0\n' >/run/systemd/sessions/c1
echo STATE=active >/run/systemd/users/5005)";

    std::vector<pid_t> processes_;
};

} // namespace tarn
