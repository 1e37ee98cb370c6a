#pragma once

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/BusNews.h"
#include "Platform/Linux/EventLoop.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

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

    /// Opens the bus if it is not open. Where the bus does not exist this must be called again
    /// when socketPath() has come.
    void open();

    /// The file of the bus's socket; empty where the bus has another kind of address.
    static std::string socketPath();

private:
    void lost();
    void setListening(bool isListening);

    EventLoop &loop_;
    BusNews &news_;
    bool isListening_ = false;
    std::function<void()> changed_;
    std::unique_ptr<sd_bus, BusRelease> bus_;
    MainActor::TimerID retry_ = 0;
    std::chrono::seconds pause_;
};

} // namespace tarn
