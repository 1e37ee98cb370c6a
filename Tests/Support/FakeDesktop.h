#pragma once

#include "TarnlinkMenu/Desktop.h"

#include <string>
#include <utility>

namespace tarn {

/// A desktop whose keys, windows and permission the test moves.
struct FakeDesktop final : Desktop, LocationManager, ModifierEvents {
    /// What was asked of it, each with ";".
    std::string calls;
    LocationStatus permission = LocationStatus::notDetermined;
    std::function<void()> permissionChanged;
    bool optionHeld = false;
    std::function<void(bool)> flags;
    std::function<void()> becameKey, resignedKey;

    void change(LocationStatus status) {
        permission = status;
        if (permissionChanged)
            permissionChanged();
    }
    LocationManager &location() override { return *this; }
    ModifierEvents &modifiers() override { return *this; }
    void activate() override { calls += "activate;"; }
    void copy(const std::string &text) override { calls += "copy " + text + ";"; }
    void open(const std::string &url) override { calls += "open " + url + ";"; }
    void quit() override { calls += "quit;"; }
    LocationStatus authorizationStatus() override { return permission; }
    void setHandler(std::function<void()> changed) override { permissionChanged = std::move(changed); }
    void requestWhenInUseAuthorization() override { calls += "ask;"; }
    Token monitorFlags(std::function<void(bool)> changed) override { return keep(flags, changed); }
    Token observeWindowBecameKey(std::function<void()> became) override { return keep(becameKey, became); }
    Token observeWindowResignedKey(std::function<void()> ended) override { return keep(resignedKey, ended); }
    bool isOptionHeld() override { return optionHeld; }

private:
    template <class Handler> static Token keep(Handler &place, Handler handler) {
        place = std::move(handler);
        return {&place, [](Handler *kept) { *kept = {}; }};
    }
};

} // namespace tarn
