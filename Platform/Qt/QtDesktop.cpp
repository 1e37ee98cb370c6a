#include "Platform/Qt/QtDesktop.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QKeyEvent>
#include <QUrl>
#include <QWidget>
#include <utility>

namespace tarn {

QtDesktop::QtDesktop() {
    qApp->installEventFilter(this);
}

void QtDesktop::activate() {
    for (auto *window : QApplication::topLevelWidgets())
        if (window->isVisible()) {
            window->raise();
            window->activateWindow();
        }
}

void QtDesktop::copy(const std::string &text) {
    QApplication::clipboard()->setText(QString::fromStdString(text));
}

void QtDesktop::open(const std::string &url) {
    QDesktopServices::openUrl(QUrl(QString::fromStdString(url)));
}

void QtDesktop::quit() {
    QCoreApplication::quit();
}

bool QtDesktop::eventFilter(QObject *watched, QEvent *event) {
    const auto type = event->type();
    if (type == QEvent::KeyPress || type == QEvent::KeyRelease) {
        // Each event passes window and control; once is enough.
        if (watched->isWindowType() && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Alt)
            tell(flags_, type == QEvent::KeyPress);
    } else if (type == QEvent::WindowActivate || type == QEvent::WindowDeactivate) {
        const auto *widget = qobject_cast<QWidget *>(watched);
        if (!widget || !widget->isWindow())
            return false;
        if (type == QEvent::WindowDeactivate)
            tell(resigned_, isOptionHeld());
        // Between two of ours the new one is told before the old one; it counts last.
        if (type == QEvent::WindowActivate || QApplication::activeWindow())
            tell(became_, isOptionHeld());
    }
    return false;
}

QtDesktop::Token QtDesktop::monitorFlags(std::function<void(bool optionHeld)> changed) {
    return add(flags_, std::move(changed));
}

QtDesktop::Token QtDesktop::observeWindowBecameKey(std::function<void()> became) {
    return add(became_, [became = std::move(became)](bool) { became(); });
}

QtDesktop::Token QtDesktop::observeWindowResignedKey(std::function<void()> resigned) {
    return add(resigned_, [resigned = std::move(resigned)](bool) { resigned(); });
}

bool QtDesktop::isOptionHeld() {
    return QGuiApplication::queryKeyboardModifiers().testFlag(Qt::AltModifier);
}

QtDesktop::Token QtDesktop::add(Monitors &monitors, Monitor monitor) {
    std::erase_if(monitors, [](const auto &one) { return one.expired(); });
    auto added = std::make_shared<Monitor>(std::move(monitor));
    monitors.push_back(added);
    return added;
}

void QtDesktop::tell(const Monitors &monitors, bool optionHeld) {
    // A copy: handlers may change the list.
    for (const auto told = monitors; const auto &weak : told)
        if (const auto monitor = weak.lock())
            (*monitor)(optionHeld);
}

} // namespace tarn
