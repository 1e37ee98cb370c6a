#pragma once

#include "Platform/Linux/BusNews.h"
#include "Platform/Linux/LoopBus.h"

#include <functional>

namespace tarn {

/// Tells when systemd-resolved or NetworkManager came, went, or changed something that is read
/// from them. The bus itself may come and go. `news`, which must outlive this, hears of it first.
///
/// Thread: main thread, the callback included. Errors: none; a bus that cannot be had is tried
///   again, with growing pauses, unless nothing is there at all.
class BusSignals {
public:
    BusSignals(EventLoop &loop, BusNews &news, std::function<void()> changed);
    BusSignals(const BusSignals &) = delete;
    BusSignals &operator=(const BusSignals &) = delete;
    ~BusSignals();

    /// As LoopBus::open().
    void open() { bus_.open(); }

private:
    int subscribe(sd_bus *bus);
    /// Whether that is a change.
    bool setListening(bool isListening);

    BusNews &news_;
    std::function<void()> changed_;
    bool isListening_ = false;
    LoopBus bus_;
};

} // namespace tarn
