#include "Platform/Qt/QtRenderer.h"

#include "Platform/Platform.h"
#include "Platform/Qt/Symbols.h"

#include <QImage>
#include <QtEndian>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace tarn {
namespace {

bool isSet(const char *variable) {
    const char *value = std::getenv(variable);
    return value && *value;
}

/// GNOME's bar is dark in both of its appearances.
bool isTrayDark() {
    return qEnvironmentVariable("XDG_CURRENT_DESKTOP").contains("GNOME") ||
           QApplication::palette().color(QPalette::Window).lightness() < 128;
}

TrayItem::Image image(const std::string &symbol, const QColor &color, int size) {
    const auto drawn =
        symbols::pixmap(symbol, color, size, 1).toImage().convertToFormat(QImage::Format_ARGB32);
    TrayItem::Image made{size, {}};
    made.pixels.reserve(static_cast<std::size_t>(size * size) * 4);
    for (int y = 0; y < drawn.height(); ++y)
        for (int x = 0; x < drawn.width(); ++x) {
            const auto pixel = drawn.pixel(x, y);
            for (const int shift : {24, 16, 8, 0})
                made.pixels.push_back(static_cast<std::uint8_t>(pixel >> shift));
        }
    return made;
}

} // namespace

QtRenderer::QtRenderer(EventLoop &loop, int &count, char **values)
    : application_(count, values), loop_(loop),
      tray_(loop, {.pressed = [this](int x, int y) { trayPressed(x, y); },
                   .launched = [this] { openWindow("menu"); },
                   .hosted =
                       [this](bool isHosted) {
                           if (!shown_)
                               return;
                           if (!isHosted)
                               openWindow("menu");
                           std::exchange(shown_, {})();
                       },
                   .menu = [this] { return scenes_->plainMenu(); }}),
      isSecond_(!tray_.becomeOnly()) {
    QApplication::setApplicationName("Tarnlink");
    QApplication::setDesktopFileName("com.veltrion.tarnlink.menu");
    QApplication::setQuitOnLastWindowClosed(false);
}

ViewWindow &QtRenderer::window(const std::string &id) {
    auto &window = windows_[id];
    if (!window) {
        window = std::make_unique<ViewWindow>([this, id] { return scenes_->window(id); });
        window->setWindowIcon(symbols::icon(scenes_->menuBarItem().name,
                                            QApplication::palette().color(QPalette::WindowText),
                                            QApplication::palette().color(QPalette::WindowText)));
    }
    return *window;
}

void QtRenderer::openWindow(const std::string &id) {
    window(id).open();
}

void QtRenderer::trayPressed(int x, int y) {
    auto &menu = window("menu");
    if (menu.isVisible() || menu.wasJustLeft())
        menu.close();
    else
        menu.showAt({x, y});
}

TrayItem::Content QtRenderer::trayContent() const {
    const auto item = scenes_->menuBarItem();
    const bool isDark = isTrayDark(), isWarning = item.tone == view::Tone::warning;
    const QColor color = isDark ? (isWarning ? "#ffb34d" : "#f4f4f4") : (isWarning ? "#a84a00" : "#2b2b2b");
    TrayItem::Content content{.iconName = {}, .images = {}, .toolTip = item.label};
    const auto themed = "tarnlink-" + item.name + "-symbolic";
    if (QIcon::hasThemeIcon(QString::fromStdString(themed)))
        content.iconName = themed;
    for (const int size : {16, 22, 24, 32, 48})
        content.images.push_back(image(item.name, color, size));
    return content;
}

int QtRenderer::run(Scenes &scenes, std::function<void()> shown) {
    scenes_ = &scenes;
    shown_ = std::move(shown);
    const auto subscription = scenes.observe([this] {
        tray_.show(trayContent());
        for (const auto &[id, window] : windows_)
            window->refreshSoon();
    });
    tray_.join(trayContent());
    const int result = QApplication::exec();
    windows_.clear();
    return result;
}

std::unique_ptr<Renderer> makeRenderer(Platform &platform, int &count, char **values) {
    auto *loop = dynamic_cast<EventLoop *>(&platform.mainActor());
    // Qt ends the process when it has no display.
    if (!loop || !(isSet("DISPLAY") || isSet("WAYLAND_DISPLAY") || isSet("QT_QPA_PLATFORM")))
        return nullptr;
    return std::make_unique<QtRenderer>(*loop, count, values);
}

} // namespace tarn
