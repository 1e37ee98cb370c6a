#pragma once

#include "Platform/Qt/QtDesktop.h"
#include "Platform/Qt/QtLoop.h"
#include "Platform/Qt/TrayItem.h"
#include "Platform/Qt/ViewWindow.h"
#include "TarnlinkMenu/Renderer.h"

#include <QApplication>
#include <QTimer>
#include <map>
#include <memory>
#include <string>

namespace tarn {

/// Tells when the desktop's colours have changed.
class RecolouredApplication final : public QApplication {
public:
    using QApplication::QApplication;
    std::function<void()> recoloured;

protected:
    bool event(QEvent *event) override;
};

/// The windows in Qt Widgets, and the tray item that opens them. Where the desktop has no tray, the menu is a
/// window that opens by itself, and again at each further launch.
class QtRenderer final : public Renderer {
public:
    /// Needs a display. `loop` must outlive this; it is served inside run().
    QtRenderer(EventLoop &loop, int &count, char **values);

    bool isSecond() const override { return isSecond_; }
    Desktop &desktop() override { return desktop_; }
    void openWindow(const std::string &id) override;
    int run(Scenes &scenes, std::function<void()> shown) override;

private:
    ViewWindow &window(const std::string &id);
    const TrayItem::Content &trayContent();
    void trayPressed(int x, int y);
    void trayHosted(bool isHosted);
    void openAlone();

    RecolouredApplication application_;
    QtDesktop desktop_;
    QtLoop loop_;
    TrayItem tray_;
    const bool isSecond_;
    Scenes *scenes_ = nullptr;
    TrayItem::Content content_;
    /// Name and colour of what is in `content_`.
    std::pair<std::string, QColor> drawn_;
    std::function<void()> shown_;
    /// The menu window opens by itself, once it is seen that no tray comes and there is something to show.
    bool isOpening_ = false;
    QTimer patience_;
    std::map<std::string, std::unique_ptr<ViewWindow>> windows_;
};

} // namespace tarn
