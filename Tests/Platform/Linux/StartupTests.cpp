// What starts by itself: the daemon by systemd, asked over a real bus, and the application by real files.

#include "Platform/Linux/AutostartItem.h"
#include "Platform/Linux/SystemdRegistration.h"
#include "Support/NetworkLab.h"
#include "Support/NetworkManagerLab.h"

#include <unistd.h>

namespace tarn {
namespace {

using enum RegistrationState;
struct Starting : LabTest {};

TEST_F(Starting, DaemonAsSystemdTellsOfItsUnit) {
    SystemdRegistration daemon;
    EXPECT_EQ(daemon.state(), std::nullopt) << "no bus";
    startBus(lab());
    EXPECT_EQ(daemon.state(), std::nullopt) << "no systemd";
    const std::string name = "org.freedesktop.systemd1", path = " /org/freedesktop/systemd1 ";
    const auto mock = lab().start("/usr/bin/python3 -m dbusmock --system " + name + path + name + ".Manager");
    waitUntil([&] { return lab().execute("busctl introspect " + name + path).status == 0; }, "mock");
    const std::string error =
        "raise dbus.exceptions.DBusException(\"no\", name=\"org.freedesktop.DBus.Error.";
    for (const auto &[code, state] : std::vector<std::pair<std::string, std::optional<RegistrationState>>>{
             {"ret = \"enabled\" if args[0] == \"tarnlink.service\" else \"bad\"", enabled},
             {"ret = \"masked\"", requiresApproval},
             {error + "FileNotFound\")", notFound},
             {error + "AccessDenied\")", std::nullopt}}) {
        lab().run("busctl call " + name + path + "org.freedesktop.DBus.Mock AddMethod sssss " + name +
                  ".Manager GetUnitFileState s s '" + code + "'");
        EXPECT_EQ(daemon.state(), state) << code;
    }
    kill(mock, SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(daemon.state(), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    kill(mock, SIGCONT);
}

TEST_F(Starting, UsersEntryOverridesTheSystemsAndOnlyItIsChanged) {
    const auto own = lab().folder() + "/home/autostart/t.desktop",
               first = lab().folder() + "/first/t.desktop", second = lab().folder() + "/second/t.desktop";
    const std::string entry = "[Desktop Entry]\nExec=t\n";
    AutostartItem item(own, {first, second});
    EXPECT_EQ(item.state(), notFound);
    EXPECT_TRUE(item.set(true)) << "nothing to copy";
    lab().write(second, entry);
    EXPECT_EQ(item.state(), enabled);
    EXPECT_EQ(item.set(false), std::nullopt);
    EXPECT_EQ(item.state(), notRegistered);
    EXPECT_EQ(readFile(own), "[Desktop Entry]\nHidden=true\nExec=t\n");
    EXPECT_EQ(readFile(second), entry);
    EXPECT_EQ(item.set(true), std::nullopt);
    EXPECT_NE(access(own.c_str(), F_OK), 0) << "what a later package brings is to count";
    lab().write(own, "[Desktop Entry]\nHidden=true\n");
    EXPECT_EQ(item.set(true), std::nullopt);
    EXPECT_NE(access(own.c_str(), F_OK), 0) << "it has no command of its own";
    lab().write(first, "[Desktop Entry]\nHidden=true\n");
    EXPECT_EQ(item.state(), notRegistered) << "the first folder counts";
    EXPECT_TRUE(item.set(true)) << "nothing that it could start";
    lab().write(own, entry + "X-Delay=9\nX-GNOME-Autostart-enabled=false\n");
    EXPECT_EQ(item.set(true), std::nullopt);
    EXPECT_EQ(readFile(own), entry + "X-Delay=9\n");
    EXPECT_TRUE(AutostartItem("", {second}).set(false)) << "nowhere to write it";
    lab().run("rm " + own + " && mkdir " + own);
    EXPECT_EQ(item.state(), std::nullopt);
    EXPECT_TRUE(item.set(false));
}

} // namespace
} // namespace tarn
