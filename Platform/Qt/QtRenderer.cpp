#include "Platform/Qt/QtRenderer.h"

#include "Platform/Platform.h"
#include "Platform/Qt/Symbols.h"

#include <QImage>
#include <QScreen>
#include <QtEndian>
#include <chrono>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace tarn {
namespace {

constexpr std::chrono::milliseconds trayDelay{1500};

bool isSet(const char *variable) {
    const char *value = std::getenv(variable);
    return value && *value;
}

/// GNOME's bar is dark in both of its appearances.
bool isTrayDark() {
    return qEnvironmentVariable("XDG_CURRENT_DESKTOP").contains("GNOME") ||
           QApplication::palette().color(QPalette::Window).lightness() < 128;
}

/// Trays count the pixels of all screens, and Qt the points of each from where its pixels begin.
QPoint inPoints(QPoint pixel) {
    for (const auto *screen : QGuiApplication::screens()) {
        const auto ratio = screen->devicePixelRatio();
        const auto place = screen->geometry();
        const QPointF inside = QPointF(pixel - place.topLeft()) / ratio;
        if (QRectF({}, place.size()).contains(inside))
            return place.topLeft() + inside.toPoint();
    }
    return pixel;
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

/// Qt's application cannot be made without a display, and says so with a message after which Qt ends the
/// process. To try the display before, in whatever way, would be a good part of a start.
class FatalMessages {
public:
    explicit FatalMessages(std::function<void()> instead) {
        instead_ = std::move(instead);
        usual_ = qInstallMessageHandler(handle);
    }
    FatalMessages(const FatalMessages &) = delete;
    FatalMessages &operator=(const FatalMessages &) = delete;
    ~FatalMessages() { qInstallMessageHandler(usual_); }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message) {
        if (type == QtFatalMsg && instead_)
            instead_();
        usual_(type, context, message);
    }

    static inline std::function<void()> instead_;
    static inline QtMessageHandler usual_ = nullptr;
};

} // namespace

QtRenderer::QtRenderer(EventLoop &loop, int &count, char **values)
    : application_(count, values), loop_(loop),
      tray_(loop, {.pressed = [this](int x, int y) { trayPressed(x, y); },
                   .launched = [this] { openWindow("menu"); },
                   .hosted = [this](bool isHosted) { trayHosted(isHosted); },
                   .menu = [this] { return scenes_->plainMenu(); }}),
      isSecond_(!tray_.becomeOnly()) {
    QApplication::setApplicationName("Tarnlink");
    QApplication::setDesktopFileName("com.veltrion.tarnlink.menu");
    QApplication::setQuitOnLastWindowClosed(false);
    patience_.setSingleShot(true);
    patience_.callOnTimeout([this] { openAlone(); });
}

bool RecolouredApplication::event(QEvent *event) {
    const bool isDone = QApplication::event(event);
    if (event->type() == QEvent::ApplicationPaletteChange && recoloured)
        recoloured();
    return isDone;
}

ViewWindow &QtRenderer::window(const std::string &id) {
    auto &window = windows_[id];
    if (!window) {
        window = std::make_unique<ViewWindow>([this, id] { return scenes_->window(id); });
        window->setWindowIcon(symbols::icon(scenes_->menuBarItem().name,
                                            QApplication::palette().color(QPalette::WindowText),
                                            QApplication::palette().color(QPalette::WindowText), {1, 2, 3}));
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
        menu.showAt(inPoints({x, y}));
}

void QtRenderer::trayHosted(bool isHosted) {
    isOpening_ = !isHosted && (isOpening_ || shown_);
    if (!shown_)
        return;
    // At login the tray may come a little later than we.
    if (isOpening_ && tray_.isOnBus())
        patience_.start(trayDelay);
    std::exchange(shown_, {})();
}

void QtRenderer::openAlone() {
    // Earlier it would have nothing to show that is true.
    if (!isOpening_ || patience_.isActive() || !scenes_->isSettled())
        return;
    isOpening_ = false;
    openWindow("menu");
}

const TrayItem::Content &QtRenderer::trayContent() {
    if (!tray_.isOnBus())
        return content_;
    const auto item = scenes_->menuBarItem();
    const bool isDark = isTrayDark(), isWarning = item.tone == view::Tone::warning;
    const QColor color = isDark ? (isWarning ? "#ffb34d" : "#f4f4f4") : (isWarning ? "#a84a00" : "#2b2b2b");
    content_.toolTip = item.label;
    // Changes are many, and drawings of another kind or colour few.
    if (std::pair(item.name, color) == std::exchange(drawn_, {item.name, color}))
        return content_;
    const auto themed = "tarnlink-" + item.name + "-symbolic";
    content_.iconName = QIcon::hasThemeIcon(QString::fromStdString(themed)) ? themed : "";
    content_.images.clear();
    for (const int size : {16, 22, 24, 32, 48})
        content_.images.push_back(image(item.name, color, size));
    return content_;
}

int QtRenderer::run(Scenes &scenes, std::function<void()> shown) {
    scenes_ = &scenes;
    shown_ = std::move(shown);
    const auto subscription = scenes.observe([this] {
        tray_.show(trayContent());
        for (const auto &[id, window] : windows_)
            window->refreshSoon();
        openAlone();
    });
    application_.recoloured = [this] { tray_.show(trayContent()); };
    tray_.join(trayContent());
    const int result = QApplication::exec();
    application_.recoloured = {};
    patience_.stop();
    windows_.clear();
    return result;
}

std::unique_ptr<Renderer> makeRenderer(Platform &platform, int &count, char **values,
                                       std::function<void()> withoutDisplay) {
    auto *loop = dynamic_cast<EventLoop *>(&platform.mainActor());
    if (!loop || !(isSet("DISPLAY") || isSet("WAYLAND_DISPLAY") || isSet("QT_QPA_PLATFORM")))
        return nullptr;
    const FatalMessages watched(std::move(withoutDisplay));
    return std::make_unique<QtRenderer>(*loop, count, values);
}

} // namespace tarn
