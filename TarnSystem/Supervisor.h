#pragma once

#include "TarnSystem/MainActor.h"

#include <optional>

namespace tarn {

/// Who started this daemon and looks after it: systemd by sd_notify(3), launchd, or nobody.
///
/// Thread: any. Errors: none; a supervisor that does not listen is left alone.
class Supervisor {
public:
    virtual ~Supervisor() = default;
    /// The daemon does its work from now on.
    virtual void ready() = 0;
    virtual void stopping() = 0;
    /// How often alive() has to be said at the least; absent when nobody wants to hear it.
    virtual std::optional<MainActor::Duration> watchdogInterval() = 0;
    virtual void alive() = 0;
};

} // namespace tarn
