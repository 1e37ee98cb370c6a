#include "Platform/Qt/ViewWindow.h"

#include <QEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

namespace tarn {

ViewWindow::ViewWindow(std::function<WindowContent()> content) : content_(std::move(content)) {
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    area_ = new QScrollArea;
    area_->setFrameShape(QFrame::NoFrame);
    area_->setWidgetResizable(true);
    area_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    area_->setFocusPolicy(Qt::NoFocus);
    pane_ = new ViewPane([this] { refreshSoon(); });
    area_->setWidget(pane_);
    outer->addWidget(area_);
}

void ViewWindow::open() {
    if (std::exchange(isPanel_, false)) {
        setWindowFlags(Qt::Dialog);
        area_->setFrameShape(QFrame::NoFrame);
    }
    show();
    raise();
    activateWindow();
}

void ViewWindow::showAt(const QPoint &place) {
    isPanel_ = true;
    setWindowFlags(Qt::Tool | Qt::FramelessWindowHint);
    area_->setFrameShape(QFrame::StyledPanel);
    refresh();
    const auto *there = QGuiApplication::screenAt(place);
    const auto room = (there ? there : screen())->availableGeometry();
    const int left =
        std::clamp(place.x() - width() / 2, room.left(), std::max(room.left(), room.right() - width()));
    // Below a bar at the top, above one at the bottom.
    const int top = place.y() < room.center().y() ? std::max(place.y(), room.top())
                                                  : std::min(place.y(), room.bottom() + 1) - height();
    move(left, top);
    show();
    raise();
    activateWindow();
}

void ViewWindow::refresh() {
    const auto content = content_();
    setWindowTitle(QString::fromStdString(content.title));
    setFixedWidth(content.width);
    height_ = content.height;
    pane_->show(content.content);
    fitHeight();
}

void ViewWindow::fitHeight() {
    // By themselves layouts hear of a change far inside them only in later turns of the loop.
    for (auto *child : pane_->findChildren<QWidget *>()) {
        child->ensurePolished();
        child->updateGeometry();
    }
    pane_->layout()->activate();
    const int inside = width() - 2 * area_->frameWidth();
    const int natural =
        pane_->hasHeightForWidth() ? pane_->heightForWidth(inside) : pane_->sizeHint().height();
    int wanted = height_.value_or(natural + 2 * area_->frameWidth());
    if (!testAttribute(Qt::WA_DontShowOnScreen))
        wanted = std::min(wanted, screen()->availableGeometry().height() - 2 * ViewPane::margin);
    setFixedHeight(wanted);
}

void ViewWindow::refreshSoon() {
    if (isPending_ || !isVisible())
        return;
    isPending_ = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            isPending_ = false;
            if (isVisible())
                refresh();
        },
        Qt::QueuedConnection);
}

void ViewWindow::showEvent(QShowEvent *event) {
    refresh();
    QDialog::showEvent(event);
}

void ViewWindow::changeEvent(QEvent *event) {
    QDialog::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange)
        refreshSoon();
}

bool ViewWindow::event(QEvent *event) {
    if (event->type() == QEvent::WindowDeactivate && isPanel_ && isVisible()) {
        left_.start();
        close();
    }
    return QDialog::event(event);
}

} // namespace tarn
