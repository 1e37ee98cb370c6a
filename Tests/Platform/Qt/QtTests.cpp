// The widgets without a display, and the tray item on a bus of its own.

#include "Platform/Platform.h"
#include "Platform/Qt/QtDesktop.h"
#include "Platform/Qt/QtLoop.h"
#include "Platform/Qt/Symbols.h"
#include "Platform/Qt/TrayItem.h"
#include "Platform/Qt/ViewWindow.h"
#include "TarnCore/Status.h"
#include "TarnCore/StatusPresentation.h"
#include "TarnlinkMenu/ModifierWatcher.h"
#include "TarnlinkMenu/Renderer.h"

#include <QApplication>
#include <QKeyEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <gmock/gmock.h>
#include <sstream>
#include <thread>

namespace tarn {
namespace {

using namespace view;
using namespace std::chrono_literals;
using testing::HasSubstr, testing::StartsWith;

class QtTest : public testing::Test {
protected:
    int count = qputenv("QT_QPA_PLATFORM", "offscreen") ? 1 : 0;
    std::string program = "test";
    std::array<char *, 2> values{program.data(), nullptr};
    QApplication application{count, values.data()};

    static void press(QWidget *widget, int key) {
        for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
            QKeyEvent event(type, key, Qt::NoModifier);
            QApplication::sendEvent(widget, &event);
        }
    }
};

TEST_F(QtTest, WindowKeepsWhatStaysAndIsUsedByKeyboard) {
    std::string pressed;
    bool hasExtra = false;
    double fraction = 0.2;
    const auto button = [&](const char *id, bool isDefault = false) {
        return Button{.id = id, .title = id, .isDefault = isDefault, .action = [&, id] {
                          pressed += std::string(id) + ";";
                          hasExtra = !hasExtra;
                      }};
    };
    ViewWindow window([&] {
        Views rows = {button("first"), Row{{Progress{fraction, "part", 100}, Spacer{}}},
                      button("last", true)};
        if (hasExtra)
            rows.insert(rows.begin() + 1, {Text{"A line that is too long for a window so narrow"},
                                           button("extra"), Toggle{.id = "toggle", .title = "Toggle"}});
        return WindowContent{"menu", "Title", 160, {}, Column{rows}};
    });
    const auto find = [&](const char *id) { return window.findChild<QWidget *>(id); };
    window.show();
    const auto heightBefore = window.height();
    auto *first = find("first");
    auto *bar = window.findChild<QProgressBar *>();
    first->setFocus();
    EXPECT_EQ(first->accessibleName() + bar->accessibleName(), "firstpart");

    fraction = 0.7;
    press(first, Qt::Key_Return);
    QApplication::processEvents();
    EXPECT_EQ(pressed, "first;") << "the button with the focus, not the default";
    EXPECT_EQ(window.findChild<QProgressBar *>(), bar);
    EXPECT_EQ(bar->value(), 700);
    EXPECT_EQ(bar->width(), 100);
    EXPECT_EQ(find("first"), first);
    EXPECT_EQ(window.focusWidget(), first);
    EXPECT_GT(window.height(), heightBefore + 50) << "the long line wraps";
    std::string order;
    for (auto *next = first; next && order.size() < 30; next = next->nextInFocusChain())
        if (next->focusPolicy() != Qt::NoFocus && !next->objectName().isEmpty())
            order += next->objectName().toStdString() + " ";
    EXPECT_THAT(order, StartsWith("first extra toggle last "));

    auto *toggle = find("toggle");
    const auto plain = toggle->grab().toImage();
    toggle->setFocus();
    EXPECT_EQ(toggle->grab().toImage(), plain) << "as after a press with the mouse";
    press(toggle, Qt::Key_Backtab), press(find("extra"), Qt::Key_Tab);
    EXPECT_NE(toggle->grab().toImage(), plain);

    // It takes itself away.
    press(find("extra"), Qt::Key_Space);
    QApplication::processEvents();
    QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(find("extra"), nullptr);
    EXPECT_EQ(window.height(), heightBefore);
    press(&window, Qt::Key_Return);
    EXPECT_EQ(pressed, "first;extra;last;");
    press(&window, Qt::Key_Escape);
    EXPECT_FALSE(window.isVisible());
}

TEST_F(QtTest, AltHeldInOneWindowRevealsInTheNext) {
    QtDesktop desktop;
    ModifierWatcher watcher(desktop.modifiers());
    watcher.start();
    QWidget first, second;
    const auto enter = [](QWidget &window) {
        window.show(), window.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
    };
    enter(first);
    EXPECT_FALSE(watcher.revealed());
    QTest::keyPress(first.windowHandle(), Qt::Key_Alt, Qt::AltModifier);
    EXPECT_TRUE(watcher.revealed());
    enter(second);
    EXPECT_TRUE(watcher.revealed()) << "the old window is left after the new one was entered";
    QTest::keyRelease(second.windowHandle(), Qt::Key_Alt);
    EXPECT_TRUE(watcher.revealed());
    enter(first);
    EXPECT_FALSE(watcher.revealed());
}

TEST_F(QtTest, EveryStatusHasItsDrawing) {
    for (int kind = 0; kind <= static_cast<int>(Status::Kind::disabled); ++kind) {
        const auto name = StatusPresentation(Status{static_cast<Status::Kind>(kind), {}, {}}).symbolName;
        EXPECT_FALSE(symbols::pixmap(name, Qt::red, 16, 1).isNull()) << name;
    }
}

TEST(Display, WithoutAUsableOneSomethingElseIsDone) {
    for (const auto &[variable, value] : {std::pair("DISPLAY", ":7777"), {"QT_QPA_PLATFORM", "none"}}) {
        const auto start = [&, name = variable, text = value] {
            unsetenv("QT_QPA_PLATFORM"), setenv(name, text, 1);
            int count = 1;
            char program[] = "test", *values[] = {program, nullptr};
            const auto platform = makePlatform();
            makeRenderer(*platform, count, values, [] { _exit(7); });
        };
        EXPECT_EXIT(start(), testing::ExitedWithCode(7), "") << variable;
    }
}

TEST_F(QtTest, OurJobsRunInQtsLoopUntilToldToStop) {
    EventLoop loop;
    const QtLoop inside(loop);
    std::string trail;
    loop.post([&] { trail += "posted;"; });
    std::thread other([&] { loop.post([&] { trail += "thread;"; }); });
    other.join();
    // A timer made by Qt's own event is set although no event of ours follows.
    QTimer::singleShot(10, [&] {
        trail += "qt;";
        loop.postAfter(20ms, [&] {
            trail += "timer;";
            loop.stop();
        });
    });
    QTimer::singleShot(5000, [] { QApplication::exit(1); });
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_EQ(trail, "posted;thread;qt;timer;");
}

/// A session bus of its own, on which a mock is the tray.
class TrayTest : public testing::Test {
protected:
    void SetUp() override {
        std::istringstream lines(
            run("dbus-daemon --session --fork --print-address=1 --print-pid=1 2>/dev/null"));
        std::string address;
        lines >> address >> bus_;
        ASSERT_NE(bus_, 0);
        setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    }
    void TearDown() override { kill(bus_, SIGKILL); }
    /// What a command says, which we serve meanwhile.
    std::string run(const std::string &command) {
        std::string text;
        std::atomic<bool> isDone = false;
        std::thread other([&] {
            FILE *pipe = popen(command.c_str(), "r");
            for (int byte = fgetc(pipe); byte != EOF; byte = fgetc(pipe))
                text += static_cast<char>(byte);
            pclose(pipe);
            isDone = true;
        });
        while (!isDone)
            sd_event_run(loop.event(), 10'000);
        other.join();
        return text;
    }
    std::string call(const std::string &path, const std::string &methodAndArguments) {
        return run("gdbus call --session -t 5 -d com.veltrion.tarnlink.menu -o " + path + " -m " +
                   methodAndArguments + " 2>&1");
    }
    EventLoop loop;

private:
    pid_t bus_ = 0;
};

TEST_F(TrayTest, ItemIsOfferedWhenATrayComesAndOnlyOneApplicationRuns) {
    std::string trail;
    const auto entry = [&](std::string title) {
        return Button{.id = title, .title = title, .action = [&trail, title] { trail += title + ";"; }};
    };
    const TrayItem::Handlers handlers{
        .pressed = [&](int x, int y) { trail += std::to_string(x) + "," + std::to_string(y) + ";"; },
        .launched = [&] { trail += "launched;"; },
        .hosted = [&](bool isHosted) { trail += isHosted ? "hosted;" : "alone;"; },
        .menu = [&] { return std::vector{entry("Open_it"), entry("Quit")}; }};
    TrayItem first(loop, handlers);
    ASSERT_TRUE(first.becomeOnly());
    first.join({"", {{1, {255, 1, 2, 3}}}, "tip"});
    const auto tray = run(R"(W=org.kde.StatusNotifierWatcher
        exec 2>&1; log=$(mktemp); /usr/bin/python3 -m dbusmock --session $W /StatusNotifierWatcher $W >$log &
        gdbus wait --session -t 10 $W
        mock() { gdbus call --session -d $W -o /StatusNotifierWatcher -m org.freedesktop.DBus.Mock."$@" >/dev/null; }
        mock AddMethod $W RegisterStatusNotifierItem s '' ''
        mock AddProperty $W IsStatusNotifierHostRegistered '<true>'
        mock EmitSignal $W StatusNotifierHostRegistered '' '[]'
        sleep 0.3; kill $!; cat $log; rm $log)");
    EXPECT_THAT(tray, HasSubstr("RegisterStatusNotifierItem \"com.veltrion.tarnlink.menu\""));
    EXPECT_EQ(trail, "alone;hosted;alone;");

    trail.clear();
    const std::string item = "/StatusNotifierItem", menu = "com.canonical.dbusmenu.";
    EXPECT_EQ(call(item, "org.freedesktop.DBus.Properties.Get org.kde.StatusNotifierItem ToolTip"),
              "(<('', @a(iiay) [], 'tip', '')>,)\n");
    EXPECT_EQ(call(item, "org.freedesktop.DBus.Properties.Get org.kde.StatusNotifierItem IconPixmap"),
              "(<[(1, 1, [byte 0xff, 0x01, 0x02, 0x03])]>,)\n");
    EXPECT_EQ(
        call("/MenuBar", menu + "GetLayout 0 -- -1 '[]'"),
        "(uint32 1, (0, {'children-display': <'submenu'>}, [<(1, {'label': <'Open__it'>, 'enabled': <true>}, "
        "@av [])>, <(2, {'label': <'Quit'>, 'enabled': <true>}, @av [])>]))\n");
    EXPECT_EQ(call("/MenuBar", menu + "GetGroupProperties '[2, 9]' '[]'"),
              "([(2, {'label': <'Quit'>, 'enabled': <true>})],)\n");
    for (const auto *id : {"2", "0", "3", "-- -1"}) // The last three are no entries.
        EXPECT_EQ(call("/MenuBar", menu + "Event " + id + " clicked '<0>' 0"), "()\n");
    EXPECT_EQ(call(item, "org.kde.StatusNotifierItem.Activate 7 8"), "()\n");
    EXPECT_EQ(trail, "Quit;7,8;");

    // The tray hears of what is another than before, and of nothing else.
    trail.clear();
    sd_bus *opened = nullptr;
    ASSERT_GE(sd_bus_open_user(&opened), 0);
    const BusHandle listener(opened);
    const auto note = [](sd_bus_message *signal, void *data, sd_bus_error *) {
        *static_cast<std::string *>(data) += std::string(sd_bus_message_get_member(signal)) + ";";
        return 0;
    };
    ASSERT_GE(sd_bus_match_signal(opened, nullptr, nullptr, item.c_str(), nullptr, nullptr, note, &trail), 0);
    for (const auto &[tip, blue] : {std::pair("tip", 3), {"tip", 4}, {"tip", 4}, {"other", 4}, {"last", 5}})
        first.show({"", {{1, {255, 1, 2, static_cast<std::uint8_t>(blue)}}}, tip});
    call(item, "org.freedesktop.DBus.Peer.Ping");
    while (sd_bus_process(opened, nullptr) > 0)
        ;
    EXPECT_EQ(trail, "NewIcon;NewTitle;NewToolTip;NewIcon;NewTitle;NewToolTip;");

    trail.clear();
    std::thread launch([&] {
        EventLoop otherLoop;
        EXPECT_FALSE(TrayItem(otherLoop, handlers).becomeOnly());
        loop.stop();
    });
    loop.run();
    launch.join();
    EXPECT_EQ(trail, "launched;");
}

} // namespace
} // namespace tarn
