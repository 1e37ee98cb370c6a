#pragma once

#include "TarnlinkMenu/Desktop.h"
#include "TarnlinkMenu/Scenes.h"

#include <functional>
#include <memory>
#include <string>

namespace tarn {

class Platform;

/// Draws the scenes with one toolkit and runs the application.
///
/// Thread: main thread. Ownership: the platform it was made with outlives it; the scenes outlive run().
class Renderer {
public:
    virtual ~Renderer() = default;
    /// Whether another instance runs already, which has been told to show itself: this one has nothing to do
    /// then and is to end.
    virtual bool isSecond() const = 0;
    /// Of use before run(), too.
    virtual Desktop &desktop() = 0;
    /// Opens a window, or brings it to the front: "menu", "admin", "settings", "help". Only inside run().
    virtual void openWindow(const std::string &id) = 0;
    /// Serves the main actor and shows the scenes, drawn anew whenever they say that they have changed,
    /// until Desktop::quit(). `shown` is called once, when the menu-bar item, or the window in its place, is
    /// first to be seen. Returns the exit status.
    virtual int run(Scenes &scenes, std::function<void()> shown) = 0;
};

/// The windows of this build; null when it has none, or no display to show them on. `count` and `values` are
/// main()'s and stay as long as the process does; the toolkit takes its own words out of them. A display that
/// turns out to be of no use is the end of some toolkits and of the process with them: `withoutDisplay` is
/// called then, on the main thread, and does not return; nothing of the toolkit may be used any more.
std::unique_ptr<Renderer> makeRenderer(Platform &platform, int &count, char **values,
                                       std::function<void()> withoutDisplay = {});

} // namespace tarn
