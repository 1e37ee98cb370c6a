#pragma once

#include "TarnlinkMenu/Desktop.h"
#include "TarnlinkMenu/Observable.h"

namespace tarn {

/// Whether the Option key was held while the menu was open; then it shows what advanced users want. Letting
/// the key go changes nothing before the menu closes.
///
/// Thread: main thread. Ownership: `events` must outlive this.
class ModifierWatcher final : public Observable {
public:
    explicit ModifierWatcher(ModifierEvents &events) : events_(events) {}

    /// Published.
    bool revealed() const { return revealed_; }
    /// Watches from now on; again does nothing.
    void start();

private:
    ModifierEvents &events_;
    bool revealed_ = false;
    ModifierEvents::Token monitor_, activation_, resignation_;
};

} // namespace tarn
