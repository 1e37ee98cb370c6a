#pragma once

#include "TarnlinkMenu/Desktop.h"

namespace tarn {

/// What a terminal has of a desktop: nobody holds keys or presses buttons, and no permission is asked for.
class TerminalDesktop final : public Desktop, private LocationManager, private ModifierEvents {
public:
    LocationManager &location() override { return *this; }
    ModifierEvents &modifiers() override { return *this; }
    void activate() override {}
    void copy(const std::string &) override {}
    void open(const std::string &) override {}
    void quit() override {}

private:
    LocationStatus authorizationStatus() override { return LocationStatus::authorized; }
    void setHandler(std::function<void()>) override {}
    void requestWhenInUseAuthorization() override {}
    Token monitorFlags(std::function<void(bool)>) override { return nullptr; }
    Token observeWindowBecameKey(std::function<void()>) override { return nullptr; }
    Token observeWindowResignedKey(std::function<void()>) override { return nullptr; }
    bool isOptionHeld() override { return false; }
};

} // namespace tarn
