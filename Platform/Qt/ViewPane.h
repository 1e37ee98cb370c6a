#pragma once

#include "TarnlinkMenu/View.h"

#include <QWidget>
#include <functional>
#include <memory>

namespace tarn {

/// Draws a tree of values. What has the same structure as before is changed in place, so that bars move and
/// the focus stays where it is.
///
/// Thread: main thread. Ownership: Qt's; trees and their actions are copied.
class ViewPane final : public QWidget {
public:
    /// Around the content, in points.
    static constexpr int margin = 16;

    /// `acted` is called after each action of a control, when the tree may be another.
    explicit ViewPane(std::function<void()> acted, QWidget *parent = nullptr);
    ~ViewPane() override;

    void show(const View &view);

    struct Drawn;

private:
    std::function<void()> acted_;
    std::unique_ptr<Drawn> root_;
};

} // namespace tarn
