#pragma once

#include "TarnSystem/MainActor.h"
#include "TarnSystem/UserDefaults.h"
#include "TarnlinkMenu/Desktop.h"
#include "TarnlinkMenu/Observable.h"

#include <memory>

namespace tarn {

/// Gets the user's permission to read the name of the Wi-Fi network: asked for once by itself, later only
/// when the user wants to be asked ("LocationAskedAtLaunch" in the user defaults).
///
/// Thread: main thread. Ownership: what is handed over must outlive this.
class LocationAuthorizer final : public Observable {
public:
    LocationAuthorizer(Desktop &desktop, UserDefaults &defaults, MainActor &actor);
    ~LocationAuthorizer();

    /// Published.
    LocationStatus status() const { return status_; }

    /// Asks, unless it was decided before.
    void requestIfNeeded();
    /// The same once in the application's life, `delay` seconds from now.
    void requestOnceAfterLaunch(double delay);

private:
    bool wasAskedAtLaunch() const;

    Desktop &desktop_;
    UserDefaults &defaults_;
    MainActor &actor_;
    LocationStatus status_;
    std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

} // namespace tarn
