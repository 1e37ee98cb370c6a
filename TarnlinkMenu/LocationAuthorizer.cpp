#include "TarnlinkMenu/LocationAuthorizer.h"

namespace tarn {
namespace {

constexpr const char *askedKey = "LocationAskedAtLaunch";

} // namespace

LocationAuthorizer::LocationAuthorizer(Desktop &desktop, UserDefaults &defaults, MainActor &actor)
    : desktop_(desktop), defaults_(defaults), actor_(actor),
      status_(desktop.location().authorizationStatus()) {
    desktop_.location().setHandler([this] { publish(status_, desktop_.location().authorizationStatus()); });
}

LocationAuthorizer::~LocationAuthorizer() {
    desktop_.location().setHandler({});
}

bool LocationAuthorizer::wasAskedAtLaunch() const {
    return defaults_.boolean(askedKey).value_or(false);
}

void LocationAuthorizer::requestIfNeeded() {
    if (status_ != LocationStatus::notDetermined)
        return;
    // The system shows its question only to the application in front.
    desktop_.activate();
    desktop_.location().requestWhenInUseAuthorization();
}

void LocationAuthorizer::requestOnceAfterLaunch(double delay) {
    if (status_ != LocationStatus::notDetermined || wasAskedAtLaunch())
        return;
    actor_.postAfter(fromSeconds(delay), [this, isAlive = std::weak_ptr(isAlive_)] {
        if (isAlive.expired() || status_ != LocationStatus::notDetermined || wasAskedAtLaunch())
            return;
        defaults_.setBoolean(askedKey, true);
        requestIfNeeded();
    });
}

} // namespace tarn
