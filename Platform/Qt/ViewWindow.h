#pragma once

#include "Platform/Qt/ViewPane.h"

#include <QDialog>
#include <QElapsedTimer>
#include <QScrollArea>
#include <functional>
#include <optional>

namespace tarn {

/// A window that shows what a function of the models says. Escape closes it, Return presses its default
/// button.
///
/// Thread: main thread.
class ViewWindow final : public QDialog {
public:
    explicit ViewWindow(std::function<WindowContent()> content);

    /// Opens it, or brings it to the front.
    void open() override;
    /// Opens it as a panel near that place of the screen, which closes when it is left.
    void showAt(const QPoint &place);
    /// A panel was closed by the press elsewhere that is being handled.
    bool wasJustLeft() const { return left_.isValid() && left_.elapsed() < 250; }

    /// Draws what there is to show by now.
    void refresh();
    /// The same soon, once for any number of calls. Does nothing while the window is closed.
    void refreshSoon();

protected:
    void showEvent(QShowEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool event(QEvent *event) override;

private:
    void fitHeight();

    std::function<WindowContent()> content_;
    QScrollArea *area_ = nullptr;
    ViewPane *pane_ = nullptr;
    std::optional<int> height_;
    bool isPending_ = false;
    bool isPanel_ = false;
    QElapsedTimer left_;
};

} // namespace tarn
