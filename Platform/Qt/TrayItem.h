#pragma once

#include "Platform/Linux/LoopBus.h"
#include "TarnlinkMenu/View.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tarn {

/// The application on the session bus: the name by which a second launch finds the first
/// ("com.veltrion.tarnlink.menu", org.freedesktop.Application), and the item in the desktop's tray
/// (freedesktop.org, StatusNotifierItem; its plain menu is com.canonical.dbusmenu).
///
/// Thread: main thread, the callbacks included. Ownership: the loop must outlive this. Errors: none; where
///   there is no session bus this is the only instance, and there is no tray.
class TrayItem {
public:
    /// One size of the drawing: rows of pixels in ARGB, most significant byte first.
    struct Image {
        std::int32_t size;
        std::vector<std::uint8_t> pixels;
        friend bool operator==(const Image &, const Image &) = default;
    };
    struct Content {
        /// Name in the desktop's icon theme; empty where that has none, and the images count.
        std::string iconName;
        std::vector<Image> images;
        std::string toolTip;
    };
    struct Handlers {
        /// The item was pressed there, in pixels of the screen.
        std::function<void(int x, int y)> pressed;
        /// The application was launched again.
        std::function<void()> launched;
        /// Whether a tray shows the item; told once soon after join(), and when it changes.
        std::function<void(bool)> hosted;
        /// What the plain menu offers by now.
        std::function<std::vector<view::Button>()> menu;
    };

    TrayItem(EventLoop &loop, Handlers handlers);
    TrayItem(const TrayItem &) = delete;
    TrayItem &operator=(const TrayItem &) = delete;
    ~TrayItem();

    /// Takes the name. False when another instance has it, which was then told to show itself. Waits for the
    /// bus, and no longer than a few seconds for the other.
    bool becomeOnly();
    /// Whether there is a bus, and so perhaps a tray.
    bool isOnBus() const { return bus_ != nullptr; }
    /// Offers the item to a tray, now and whenever one comes.
    void join(Content content);
    /// The tray is told of what is another than before.
    void show(Content content);

private:
    struct Protocol;

    void offer();
    void setHosted(bool isHosted);
    void tell(const char *signal);

    EventLoop &loop_;
    Handlers handlers_;
    Content content_;
    BusHandle bus_;
    std::vector<view::Button> menu_;
    std::uint32_t revision_ = 1;
    std::optional<bool> isHosted_;
    MainActor::TimerID untold_ = 0;
};

} // namespace tarn
