// The application with its windows under an X server, used by somebody who reads and presses, beside a real
// daemon.

#include "Platform/Linux/FetchClient.h"
#include "Platform/Platform.h"
#include "Support/HTTPLab.h"
#include "Support/PolkitLab.h"
#include "Support/Signer.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/UpdateRequest.h"
#include "TarnlinkDaemon/DaemonLab.h"
#include "TarnlinkMenu/MenuApp/Application.h"
#include "TarnlinkMenu/Renderer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QClipboard>
#include <QEventLoop>
#include <QLabel>
#include <QProgressBar>
#include <QScreen>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <optional>

namespace tarn {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// The window that is open and has that control, or null.
template <class Control = QAbstractButton> Control *find(const std::string &id) {
    for (const auto *window : QApplication::topLevelWidgets())
        for (auto *control : window->findChildren<Control *>(QString::fromStdString(id)))
            if (control->isVisible())
                return control;
    return nullptr;
}

void need(bool isSo, const std::string &what) {
    if (!isSo)
        throw std::runtime_error(what);
}

/// The application goes on meanwhile, and sleeps as it does in use, which it does not under
/// QTest::qWaitFor().
void await(const std::function<bool()> &condition, const std::string &what) {
    QEventLoop loop;
    QTimer look;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    QObject::connect(&look, &QTimer::timeout, [&] {
        if (condition() || std::chrono::steady_clock::now() > limit)
            loop.quit();
    });
    look.start(5);
    loop.exec();
    need(condition(), "waited in vain for " + what);
}

/// A control without which the window is not the one that is meant.
constexpr const char *menu = "menu.openAdmin", *panel = "admin.duration.label", *paused = "admin.resume",
                     *settings = "settings.tethering.title", *help = "help.diag.button";

/// Waits for a window and what can be read in it.
void see(const std::string &window, const testing::Matcher<std::string> &wanted) {
    std::string what;
    const auto isSeen = [&] {
        std::string words;
        if (const auto *control = find<QWidget>(window))
            for (const auto *label : control->window()->findChildren<QLabel *>())
                words += label->isVisible() ? label->text().toStdString() + "\n" : "";
        what = window + ": " + testing::DescribeMatcher<std::string>(wanted) + "; there is\n" + words;
        return wanted.Matches(words);
    };
    await(isSeen, what);
}

void press(const std::string &id) {
    QAbstractButton *button = nullptr;
    await([&] { return (button = find(id)) && button->isEnabled(); }, id);
    QTest::mouseClick(button, Qt::LeftButton);
}

/// An X server that only this lab sees, for everybody in it.
void startDisplay(NetworkLab &lab) {
    lab.run("command -v Xvfb; mkdir -p /var/lib/xkb /tmp/.X11-unix; mount -t tmpfs none /tmp/.X11-unix");
    lab.start("Xvfb -displayfd 3 -noreset -screen 0 1280x1024x24 -ac -nolisten tcp 3>/run/lab/display");
    std::string number;
    waitUntil([&] { return (number = readFile("/run/lab/display")).ends_with('\n'); }, "the X server");
    number.pop_back();
    setenv("DISPLAY", (":" + number).c_str(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/run/lab/none", 1);
}

/// The application of a user from its start to its end by "Quit"; `person` is called when it runs, and
/// throws when something is not as it should be, which is returned in place of "done". With a key, updates
/// are signed with it and come from servers that the lab's authority knows.
std::string runMenu(const std::function<void()> &person, const char *language = "en", uid_t user = 0,
                    const std::optional<std::string> &feedKey = {}) {
    for (const auto &[name, value] :
         {std::pair("XDG_CACHE_HOME", "/run/lab/cache"), {"QT_QPA_PLATFORM", "xcb"}, {"LC_ALL", language}})
        setenv(name, value, 1);
    int count = 1;
    std::string program = "TarnlinkMenu", result = "done";
    std::array<char *, 2> values{program.data(), nullptr};
    const auto platform = makePlatform();
    // The user may not be allowed to read where this was built.
    platform->strings().localized("menu.open");
    if (user && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(user) != 0))
        return "not that user";
    auto renderer = makeRenderer(*platform, count, values.data());
    auto &loop = dynamic_cast<EventLoop &>(platform->mainActor());
    std::optional<Application> application(
        std::in_place, *platform, renderer->desktop(), Application::Role::owner,
        [&](const std::string &id) { renderer->openWindow(id); },
        std::make_unique<FetchClient>(loop, feedKey ? HTTPLab::authorities : ""),
        feedKey.value_or(std::string(UpdateFeed::publicKeyBase64)));
    QTimer::singleShot(0, [&] {
        try {
            person();
            press("menu.button.quit");
        } catch (const std::exception &error) {
            result = error.what();
            renderer->desktop().quit();
        }
    });
    const int status = renderer->run(application->scenes(), [&] { application->status().start(); });
    application.reset();
    renderer.reset();
    // What is under way sees only at its end that nobody waits for it: a look at a feed that is not there,
    // and with a feed the question every 5 s what became of an update.
    loop.postAfter(std::chrono::seconds(feedKey ? 6 : 1), [&loop] { loop.stop(); });
    loop.run();
    return status == 0 ? result : "exit status " + std::to_string(status);
}

class Menu : public DaemonLab {
protected:
    void SetUp() override {
        DaemonLab::SetUp();
        if (!IsSkipped())
            startDisplay(lab());
    }
};

TEST_F(Menu, ShowsWhatTheDaemonSaysAndWithoutItWhatItSeesItself) {
    start();
    expectWiFi(isOff("address"));
    const auto person = [&] {
        const auto byDaemon = HasSubstr("Source: Tarnlink service");
        const auto isWired = HasSubstr("Connected through Home (eth0).");
        const auto isWiredText = [](const std::string &text) {
            return text.find("Connected through Home (eth0).") != std::string::npos;
        };
        see(menu, AllOf(byDaemon, isWired, HasSubstr("192.0.2.10")));
        lab().pull("eth0");
        see(menu, AllOf(byDaemon, HasSubstr("Wi-Fi carries the traffic."), HasSubstr("203.0.113.10")));
        lab().plug("eth0");
        see(menu, AllOf(byDaemon, isWired));

        end(SIGKILL);
        press("menu.button.refresh");
        see(menu,
            AllOf(HasSubstr("Source: this application"), HasSubstr("service does not answer"), isWired));
        press("menu.settings");
        see(settings, HasSubstr("settings cannot be changed"));
        need(!find(settings)->isEnabled(), "a setting that nobody can change is offered");
        start();
        // Nothing tells the menu that the daemon is back, or what its probe has shown.
        const auto isBack = [&] {
            press("menu.button.refresh");
            const auto labels = find<QWidget>(menu)->window()->findChildren<QLabel *>();
            return find(settings)->isEnabled() && std::ranges::any_of(labels, [&](const auto *label) {
                       return label->isVisible() && isWiredText(label->text().toStdString());
                   });
        };
        await(isBack, "the daemon");
        see(menu, AllOf(byDaemon, isWired, Not(HasSubstr("does not answer"))));
    };
    EXPECT_EQ(runMenu(person), "done");
    expectCleanEnd();
}

TEST_F(Menu, ChangesTheDaemonsSettingsAndCopiesItsDiagnostics) {
    start();
    const auto awaitSetting = [&](const std::string &setting) {
        const auto command = "busctl call com.veltrion.tarnlink.daemon /com/veltrion/tarnlink/daemon "
                             "com.veltrion.tarnlink.daemon Status | tr -d '\\\\\"' | grep " +
                             setting;
        await([&] { return lab().execute(command).status == 0; }, setting);
    };
    const auto person = [&] {
        press("menu.settings");
        see(menu, HasSubstr("Source: Tarnlink service"));
        for (const bool isAllowed : {true, false}) {
            press(settings);
            awaitSetting(std::string("tetheringWhileWiredAllowed:") + (isAllowed ? "true" : "false"));
            see(settings, Not(HasSubstr("was not changed")));
            need(find(settings)->isChecked() == isAllowed, "the switch is not where the setting is");
        }
        // Forced while its switch can still be used: the daemon refuses, and then the switch is inert.
        const char *managed = "settings.tetheringDNS.title";
        lab().write("/etc/tarnlink/managed.json", R"({"TetheringDNSFix": true})");
        press(managed);
        see(settings, AllOf(HasSubstr("The setting was not changed (managed)."),
                            HasSubstr("Set by your organisation.")));
        need(find(managed)->isChecked(), "the switch stays where it was pressed");
        need(!find(managed)->isEnabled(), "the switch can still be pressed");
        awaitSetting("tetheringDNSFix:true");

        const char *copy = "menu.button.copyDiagnostics";
        press(copy);
        await([&] { return find(copy)->text() == "Copied"; }, "the copy");
        const auto copied = QApplication::clipboard()->text().toStdString();
        auto daemons = lab().run(CTL " diagnostics").out;
        daemons.erase(0, daemons.find('\n', daemons.find("  time: ")));
        need(copied.starts_with("TarnlinkMenu ") && daemons.find("\nHistory:\n") != daemons.npos &&
                 copied.find(daemons) != copied.npos,
             copied + daemons);
    };
    EXPECT_EQ(runMenu(person), "done");
}

/// Keeps a picture, and finds what is cut off or cannot be told from the ground.
void look(QWidget &window, const std::string &name) {
    const auto picture = window.grab();
    std::filesystem::create_directories(PICTURES);
    EXPECT_TRUE(picture.save(QString::fromStdString(PICTURES "/" + name + ".png")));
    const int ground = picture.toImage().pixelColor(3, 3).lightness();
    EXPECT_EQ(ground < 128, name.find("dark") != name.npos) << name;
    for (const auto *label : window.findChildren<QLabel *>()) {
        const auto words = name + ": " + label->text().toStdString();
        const int ink = label->palette().color(QPalette::WindowText).lightness();
        EXPECT_TRUE(label->isHidden() || label->parentWidget()->rect().contains(label->geometry())) << words;
        EXPECT_TRUE(label->isHidden() || label->height() >= label->heightForWidth(label->width())) << words;
        EXPECT_TRUE(label->isHidden() || std::abs(ink - ground) > 60) << words;
    }
}

TEST_F(Menu, WindowsFitTheirContentInEachLanguageAndAppearance) {
    start();
    const struct {
        const char *id, *control, *opener;
        int width, height; ///< As high as it needs to be where that is 0.
    } windows[] = {{"menu", menu, nullptr, 340, 0},
                   {"admin", panel, menu, 380, 0},
                   {"settings", settings, "menu.settings", 400, 0},
                   {"help", help, "menu.help", 460, 520}};
    for (const char *language : {"en", "de"}) {
        const auto person = [&] {
            see(menu, HasSubstr("192.0.2.10"));
            for (const char *appearance : {"light", "dark"}) {
                QApplication::setPalette(*appearance == 'd' ? QPalette("#3a3b3f", "#26272a")
                                                            : QPalette("#ffffff", "#f6f6f7"));
                for (const auto &row : windows) {
                    if (row.opener)
                        press(row.opener);
                    see(row.control, testing::_);
                    auto &window = *find<QWidget>(row.control)->window();
                    look(window, std::string(row.id) + "-" + language + "-" + appearance);
                    EXPECT_EQ(window.width(), row.width);
                    EXPECT_TRUE(row.height ? window.height() == row.height : window.height() < 400);
                }
                for (auto *window : QApplication::topLevelWidgets())
                    window->setVisible(window == find(menu)->window());
            }
        };
        EXPECT_EQ(runMenu(person, language), "done");
    }
}

class PausePanel : public PolkitLab {
protected:
    void SetUp() override {
        PolkitLab::SetUp();
        if (IsSkipped())
            return;
        lab().addCable("eth0", {"192.0.2.10/24"}, {"192.0.2.1/24"});
        lab().run("ip route add default via 192.0.2.1 dev eth0; mkdir -m 700 /run/lab/state;"
                  "chown 5001 /run/lab/state; cp " DAEMON " /run/lab");
        startDisplay(lab());
        startBus(lab(), services);
        lab().start("setpriv --reuid 5001 --clear-groups env STATE_DIRECTORY=/run/lab/state HOME=/ "
                    "/run/lab/TarnlinkDaemon --probe-mode off");
        waitUntil([&] { return lab().execute("busctl status com.veltrion.tarnlink.daemon").status == 0; },
                  "the daemon");
    }
};

TEST_F(PausePanel, PausesAndEndsThePause) {
    const auto person = [] {
        press(menu);
        see(panel, HasSubstr("You need an administrator's password."));
        QTest::keyClick(find<QWidget>(panel), Qt::Key_Down);
        press("admin.pauseAsAdmin");
        see(paused, AllOf(HasSubstr("Paused until "), HasSubstr("The protection is paused for 60 min.")));
        see(menu, HasSubstr("An administrator has paused the protection until "));
        press(paused);
        see(panel, HasSubstr("The protection is in force again."));
        see(menu, AllOf(HasSubstr("Wired"), Not(HasSubstr("paused"))));
    };
    EXPECT_EQ(as(root, [&] { return runMenu(person, "en", alice); }), "done");
}

TEST_F(PausePanel, SaysWhyThereIsNone) {
    const struct {
        uid_t user;
        bool hasAgent;
        const char *message;
    } rows[] = {{bob, false, "Authentifizierung fehlgeschlagen (-60005)"},
                {carol, false, "Authentifizierung fehlgeschlagen (-60007)"},
                {carol, true, "Cancelled. Nothing has changed."}};
    for (const auto &row : rows) {
        const auto person = [&] {
            if (row.hasAgent)
                startRefusingAgent();
            press(menu);
            press("admin.pauseAsAdmin");
            see(panel, HasSubstr(row.message));
            need(!find(paused) && find("admin.pauseAsAdmin")->isEnabled(), "it cannot be tried again");
            see(menu, Not(HasSubstr("paused")));
        };
        EXPECT_EQ(as(root, [&] { return runMenu(person, "en", row.user); }), "done") << row.message;
    }
}

TEST_F(PausePanel, TellsWhatTheDaemonItselfRefuses) {
    // A polkit that says yes to whoever may ask the person, and no to the daemon.
    const std::string name = "org.freedesktop.PolicyKit1", path = "/org/freedesktop/PolicyKit1/Authority";
    lab().run("N=" + name + "; busctl call $N " + path + R"( org.freedesktop.DBus.Peer Ping
        rm /run/lab/services/a.service
        kill $(busctl call org.freedesktop.DBus / org.freedesktop.DBus GetConnectionUnixProcessID s $N | cut -c3-))");
    lab().start("/usr/bin/python3 -m dbusmock --system " + name + " " + path + " " + name + ".Authority");
    const auto look = "busctl introspect " + name + " " + path + " | grep Mock";
    waitUntil([&] { return lab().execute(look).status == 0; }, "the mock");
    for (const auto &row :
         {std::pair("True", "The system could not ask for an administrator. Nothing has changed."),
          {"False", "This takes an administrator. Nothing has changed."}}) {
        lab().run("busctl call " + name + " " + path + " org.freedesktop.DBus.Mock AddMethod sssss " + name +
                  ".Authority CheckAuthorization '(sa{sv})sa{ss}us' '(bba{ss})' 'ret = dbus.Struct((args[3] "
                  "== 1, " +
                  row.first + ", dbus.Dictionary({}, signature=\"ss\")), signature=\"bba{ss}\")'");
        const auto person = [&] {
            press(menu);
            press("admin.pauseAsAdmin");
            see(panel, HasSubstr(row.second));
        };
        EXPECT_EQ(as(root, [&] { return runMenu(person, "en", carol); }), "done");
    }
}

/// A session bus of its own.
class Session : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        if (IsSkipped())
            return;
        lab().addCable("eth0", {"192.0.2.10/24"}, {"192.0.2.1/24"});
        lab().run("ip route add default via 192.0.2.1 dev eth0");
        lab().writeResolvConf("nameserver 192.0.2.1\n");
        const pid_t server = lab().start(
            "dnsmasq --no-daemon --user=root --no-resolv --no-hosts --conf-file=/dev/null --local=/invalid/",
            "far");
        lab().waitForLog(server, "started");
        startDisplay(lab());
        const std::string address = "unix:path=/run/lab/session";
        setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
        lab().start("dbus-daemon --session --nofork --address=" + address);
        waitUntil([] { return std::filesystem::exists("/run/lab/session"); }, "the session bus");
    }
    /// In the corner of the screen, beside the panel's handle.
    static int darkPixels() {
        const auto corner = QGuiApplication::primaryScreen()->grabWindow(0, 14, 0, 34, 24).toImage();
        int dark = 0;
        for (int i = 0; i < corner.width() * corner.height(); ++i)
            dark += corner.pixelColor(i % corner.width(), i / corner.width()).lightness() < 100;
        return dark;
    }
    /// On the item, at that place in pixels.
    void pressItem(const std::string &place) {
        lab().start("gdbus call --session -t 10 -d com.veltrion.tarnlink.menu -o /StatusNotifierItem "
                    "-m org.kde.StatusNotifierItem.Activate " +
                    place);
    }
};

TEST_F(Session, WithoutATrayTheMenuOpensByItself) {
    EXPECT_EQ(runMenu([] { see(menu, HasSubstr("Wired")); }), "done");
}

/// A panel that others wrote.
class Tray : public Session {
protected:
    void SetUp() override {
        Session::SetUp();
        if (IsSkipped())
            return;
        lab().write("/run/lab/config/xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml", configuration);
        monitor_ = lab().start("dbus-monitor --session");
        lab().waitForLog(monitor_, "NameAcquired");
        lab().start("env NO_AT_BRIDGE=1 xfce4-panel --disable-wm-check");
        lab().run("gdbus wait --session --timeout 20 org.kde.StatusNotifierWatcher");
    }

    pid_t monitor_ = 0;

private:
    static constexpr const char *configuration = R"(<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0"><property name="configver" type="int" value="2"/>
<property name="panels" type="array"><value type="int" value="1"/><property name="panel-1" type="empty">
<property name="position" type="string" value="p=6;x=0;y=0"/><property name="length" type="uint" value="100"/>
<property name="plugin-ids" type="array"><value type="int" value="1"/></property></property></property>
<property name="plugins" type="empty"><property name="plugin-1" type="string" value="systray"/></property>
</channel>)";
};

TEST_F(Tray, APanelShowsTheItemAndItsPressOpensTheMenu) {
    const auto person = [&] {
        // With the answer it has icon and tool tip.
        const auto isAsked = [&] {
            const auto log = lab().log(monitor_);
            const auto question = log.find("member=GetAll"), icon = log.find("\"IconPixmap\"", question);
            return question < icon &&
                   log.find("\"Tarnlink: wired", log.find("\"ToolTip\"", icon)) != log.npos;
        };
        await(isAsked, "the panel's question");
        need(!find(menu), "a window although there is a tray");
        const auto isDrawn = [] { return darkPixels() > 20 && darkPixels() < 400; };
        await(isDrawn, "the symbol in the panel");
        // The panel stays light; the symbol is drawn for what the desktop says.
        QApplication::setPalette(QPalette("#3a3b3f", "#26272a"));
        await([] { return darkPixels() == 0; }, "a symbol for a dark panel");
        QApplication::setPalette(QPalette("#ffffff", "#f6f6f7"));
        await(isDrawn, "a symbol for a light panel");
        pressItem("12 26");
        see(menu, AllOf(HasSubstr("Wired"), HasSubstr("192.0.2.10")));
        std::filesystem::create_directories(PICTURES);
        EXPECT_TRUE(
            QGuiApplication::primaryScreen()->grabWindow(0, 0, 0, 480, 400).save(PICTURES "/tray.png"));
    };
    EXPECT_EQ(runMenu(person), "done");
}

TEST_F(Tray, ThePanelOpensWhereItsPixelsAre) {
    setenv("QT_SCALE_FACTOR", "2", 1);
    const auto person = [&] {
        lab().run("gdbus wait --session --timeout 20 com.veltrion.tarnlink.menu");
        pressItem("500 26");
        see(menu, HasSubstr("Wired"));
        const auto place = find(menu)->window()->geometry();
        need(std::abs(place.center().x() - 250) < 5, "it is at " + std::to_string(place.center().x()));
    };
    EXPECT_EQ(runMenu(person), "done");
}

TEST_F(Tray, ASecondLaunchOpensTheWindowOfTheFirst) {
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    const pid_t inText = lab().start("env DISPLAY=:7777 " MENU);
    lab().waitForLog(inText, "Connected through eth0");
    lab().start(MENU);
    lab().run("gdbus wait --session --timeout 20 com.veltrion.tarnlink.menu");
    int count = 1;
    char program[] = "test", *values[] = {program, nullptr};
    const QApplication viewer(count, values);
    const auto isWindowThere = [] {
        const auto screen = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
        int light = 0;
        for (int y = 100; y < screen.height(); y += 4)
            for (int x = 0; x < screen.width(); x += 4)
                light += screen.pixelColor(x, y).lightness() > 100;
        return light > 500;
    };
    lab().run("sleep 2");
    EXPECT_FALSE(isWindowThere()) << "the tray has it";
    const auto second = lab().run(MENU);
    EXPECT_THAT(second.err,
                testing::EndsWith("TarnlinkMenu: it runs already, and was asked to open its window\n"));
    waitUntil(isWindowThere, "the window of the first");
}

class Updating : public HTTPLab {
protected:
    void SetUp() override {
        HTTPLab::SetUp();
        if (IsSkipped())
            return;
        startDisplay(lab());
        // What the check at the start asks fails at once, and does not keep anybody waiting.
        lab().writeResolvConf("nameserver 192.0.2.1\n");
        const std::string www = "/run/lab/www/";
        lab().run("head -c 3000000 /dev/urandom >" + www + "package; mkdir -m 700 /var/lib/tarnlink");
        manifest_ = R"({"version": "9.8", "build": 1000000, "minOS": "3.0", "published": "", "size": 3000000,
                       "url": "https://127.0.0.1/slow/package", "sha256": ")" +
                    UpdateFeed::sha256(www + "package") + "\"}";
        lab().write(www + "feed", manifest_);
        lab().write(www + "feed.sig", signer_.sign(manifest_));
        lab().write("/var/lib/tarnlink/preferences.json", R"({"UpdateFeedURL": "https://127.0.0.1/feed"})");
        startBus(lab());
        lab().start(DAEMON " --probe-mode off");
        const std::string look =
            "busctl introspect com.veltrion.tarnlink.daemon /com/veltrion/tarnlink/daemon";
        waitUntil([&] { return lab().execute(look).status == 0; }, "the daemon");
    }

    Signer signer_;
    std::string manifest_;
};

TEST_F(Updating, UpdateIsOfferedDownloadedAndHandedOver) {
    const char *now = "settings.updates.checkNow", *install = "update.install";
    const auto isOffered = HasSubstr("Version 9.8 is available.");
    const auto person = [&] {
        see(menu, HasSubstr("Source: Tarnlink service"));
        press("menu.settings");
        press(now);
        see(install, isOffered);

        std::vector<int> values;
        const auto download = [&] {
            press(install);
            see("update.cancel", HasSubstr("Downloading version 9.8 …"));
            auto *bar = find<QProgressBar>("");
            values = {bar->value()};
            QObject::connect(bar, &QProgressBar::valueChanged, [&values, bar](int value) {
                if (bar->maximum() > 0)
                    values.push_back(value);
            });
        };
        download();
        await([&] { return values.back() > 300; }, "a third of the package");
        look(*find<QWidget>(menu)->window(), "update-en-light");
        lab().stop(nginx_);
        see(now, HasSubstr("The update could not be downloaded."));
        press("update.dismiss");
        see(install, isOffered);
        nginx_ = startNginx();
        await([&] { return lab().execute("ss -Hltn sport = 443 | grep -q .").status == 0; }, "the server");

        download();
        see(now, HasSubstr("Installing version 9.8 …"));
        need(values.size() >= 3 && std::ranges::is_sorted(values) && values.back() > 600,
             testing::PrintToString(values));
        const std::string path = "/var/lib/tarnlink/update-request.json";
        await([&] { return std::filesystem::exists(path); }, path);
        const auto request = UpdateRequest::decode(std::get<Value>(json::parse(readFile(path))));
        need(request.manifest == manifest_ && request.signature == signer_.sign(manifest_),
             "another request");
        need(readFile(request.pkgPath) == readFile("/run/lab/www/package"), request.pkgPath);
        see(menu, HasSubstr("Installing version 9.8 …"));
        need(!find(now)->isEnabled(), "another check during the installation");
    };
    EXPECT_EQ(runMenu(person, "en", 0, signer_.publicKey()), "done");
}

} // namespace
} // namespace tarn
