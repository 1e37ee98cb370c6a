// The application with its windows, used by somebody who reads and presses, beside a real daemon.

#include "Platform/Platform.h"
#include "Support/PolkitLab.h"
#include "TarnlinkDaemon/DaemonLab.h"
#include "TarnlinkMenu/MenuApp/Application.h"
#include "TarnlinkMenu/Renderer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QClipboard>
#include <QEventLoop>
#include <QLabel>
#include <QTest>
#include <QTimer>
#include <algorithm>

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

/// The application of a user from its start to its end by "Quit"; `person` is called when it runs, and
/// throws when something is not as it should be, which is returned in place of "done".
std::string runMenu(const std::function<void()> &person, const char *language = "en", uid_t user = 0) {
    for (const auto &[name, value] : {std::pair("DBUS_SESSION_BUS_ADDRESS", "unix:path=/run/lab/none"),
                                      {"XDG_CACHE_HOME", "/run/lab/cache"},
                                      {"QT_QPA_PLATFORM", "offscreen"},
                                      {"LC_ALL", language}})
        setenv(name, value, 1);
    int count = 1;
    std::string program = "TarnlinkMenu", result = "done";
    std::array<char *, 2> values{program.data(), nullptr};
    const auto platform = makePlatform();
    // The user may not be allowed to read where this was built.
    platform->strings().localized("menu.open");
    if (user && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(user) != 0))
        return "not that user";
    const auto renderer = makeRenderer(*platform, count, values.data());
    Application application(*platform, renderer->desktop(), Application::Role::owner,
                            [&](const std::string &id) { renderer->openWindow(id); });
    QTimer::singleShot(0, [&] {
        try {
            see(menu, HasSubstr("Tarnlink"));
            person();
            press("menu.button.quit");
        } catch (const std::exception &error) {
            result = error.what();
            renderer->desktop().quit();
        }
    });
    const int status = renderer->run(application.scenes(), [&] { application.status().start(); });
    return status == 0 ? result : "exit status " + std::to_string(status);
}

using Menu = DaemonLab;

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
        need(copied.starts_with("TarnlinkMenu ") && copied.find("History:") != copied.npos, copied);
    };
    EXPECT_EQ(runMenu(person), "done");
}

/// Keeps a picture, and finds what is cut off or cannot be told from the ground.
void look(QWidget &window, const std::string &name) {
    const auto picture = window.grab();
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
    std::filesystem::create_directories(PICTURES);
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

} // namespace
} // namespace tarn
