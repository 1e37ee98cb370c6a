#pragma once

#include <functional>
#include <memory>
#include <string>

namespace tarn {

/// Whether the system reveals the name of the Wi-Fi network to this application.
enum class LocationStatus { notDetermined, restricted, denied, authorized };

/// The system's permission to know the location, which the name of a Wi-Fi network gives away.
///
/// Thread: main thread, handlers included. Where the system has no such permission it counts as given.
class LocationManager {
public:
    virtual ~LocationManager() = default;
    virtual LocationStatus authorizationStatus() = 0;
    /// Told of every change from now on; replaces an earlier handler.
    virtual void setHandler(std::function<void()> changed) = 0;
    virtual void requestWhenInUseAuthorization() = 0;
};

/// What the desktop tells of keys and windows, for ModifierWatcher.
class ModifierEvents {
public:
    virtual ~ModifierEvents() = default;
    /// Each monitor lives until what it returns is destroyed. The event itself goes on unchanged.
    using Token = std::shared_ptr<void>;
    /// The set of modifier keys changed while this application is in front.
    virtual Token monitorFlags(std::function<void(bool optionHeld)> changed) = 0;
    virtual Token observeWindowBecameKey(std::function<void()> became) = 0;
    virtual Token observeWindowResignedKey(std::function<void()> resigned) = 0;
    virtual bool isOptionHeld() = 0;
};

/// What else an application asks of its desktop. Thread: main thread.
class Desktop {
public:
    virtual ~Desktop() = default;
    virtual LocationManager &location() = 0;
    virtual ModifierEvents &modifiers() = 0;
    /// Brings the application in front of others.
    virtual void activate() = 0;
    /// Puts a text on the general pasteboard in place of what was there.
    virtual void copy(const std::string &text) = 0;
    virtual void open(const std::string &url) = 0;
    virtual void quit() = 0;
};

} // namespace tarn
