#pragma once

#include "TarnlinkMenu/Renderer.h"

#include <functional>
#include <memory>
#include <string>

namespace tarn {

/// The application as a Mac shows it: an item in the menu bar, the panel below it and the windows.
///
/// The application's run loop serves the main dispatch queue, and so the main actor, whose stop() does not
/// end it. Desktop::quit() ends the process: run() does not return.
class AppKitRenderer final : public Renderer {
public:
    AppKitRenderer();
    ~AppKitRenderer() override;

    Desktop &desktop() override;
    /// False: the system starts an application once, and tells that one when it is opened again.
    bool isSecond() const override { return false; }
    void openWindow(const std::string &id) override;
    int run(Scenes &scenes, std::function<void()> shown) override;

private:
    struct State;
    /// What waits in the main queue holds it weakly.
    const std::shared_ptr<State> state_;
};

} // namespace tarn
