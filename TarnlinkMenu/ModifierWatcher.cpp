#include "TarnlinkMenu/ModifierWatcher.h"

namespace tarn {

// The handlers end with their tokens, and so before this does.
void ModifierWatcher::start() {
    if (monitor_)
        return;
    monitor_ = events_.monitorFlags([this](bool optionHeld) {
        if (optionHeld)
            publish(revealed_, true);
    });
    resignation_ = events_.observeWindowResignedKey([this] { publish(revealed_, false); });
    activation_ = events_.observeWindowBecameKey([this] {
        if (events_.isOptionHeld())
            publish(revealed_, true);
    });
}

} // namespace tarn
