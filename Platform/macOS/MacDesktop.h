#pragma once

#include "TarnlinkMenu/Desktop.h"

#include <memory>

namespace tarn {

/// The desktop by CoreLocation and AppKit.
///
/// Thread: main thread; CoreLocation answers on the run loop of the thread that makes this.
/// Ownership: nothing is told any more once it is gone.
class MacDesktop final : public Desktop {
public:
    MacDesktop();
    ~MacDesktop() override;

    LocationManager &location() override;
    ModifierEvents &modifiers() override;
    void activate() override;
    void copy(const std::string &text) override;
    /// Does nothing with what is no URL.
    void open(const std::string &url) override;
    /// Ends the process from within the application's run loop.
    void quit() override;

private:
    class Location;
    class Modifiers;
    const std::unique_ptr<Location> location_;
    const std::unique_ptr<Modifiers> modifiers_;
};

} // namespace tarn
