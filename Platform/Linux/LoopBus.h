#pragma once

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/EventLoop.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace tarn {

using BusHandle = std::unique_ptr<sd_bus, BusRelease>;

/// A connection to the system bus that the loop serves, made anew when it was lost.
///
/// Thread: main thread, the callbacks included; nothing blocks. Ownership: the loop must outlive this.
/// Errors: none; a bus that cannot be had is tried again, with growing pauses, unless nothing is there
///   at all.
class LoopBus {
public:
    /// `prepare` makes each new connection ready for use and returns 0 or more, or a negative error
    /// number. `lost` is told of every connection that ended or never came about, and why, in words.
    LoopBus(EventLoop &loop, std::function<int(sd_bus *)> prepare,
            std::function<void(const std::string &)> lost);
    LoopBus(const LoopBus &) = delete;
    LoopBus &operator=(const LoopBus &) = delete;
    ~LoopBus();

    /// Opens the bus, if it is not open, without waiting for the next attempt. Where the bus does not
    /// exist this must be called again when socketPath() has come.
    void open();
    /// Null while there is none.
    sd_bus *get() const { return bus_.get(); }
    /// The connection is of no use; it ends soon, and another is made after a pause.
    void giveUp(std::string reason);
    /// The connection does what it is for: pauses are short again.
    void succeeded() { pause_ = firstPause; }

    /// The file of the bus's socket; empty where the bus has another kind of address.
    static std::string socketPath();
    /// Opens the bus once. The greeting has not ended then; calls may be sent all the same. `gone` is
    /// called when the connection has ended, after each call under way had an error. Returns as sd-bus
    /// does.
    static int open(EventLoop &loop, BusHandle &bus, sd_bus_message_handler_t gone, void *data);

private:
    static constexpr std::chrono::seconds firstPause{1};
    static constexpr std::chrono::seconds longestPause{60};

    void lose(const std::string &reason);

    EventLoop &loop_;
    std::function<int(sd_bus *)> prepare_;
    std::function<void(const std::string &)> lost_;
    BusHandle bus_;
    MainActor::TimerID retry_ = 0;
    std::chrono::seconds pause_ = firstPause;
};

} // namespace tarn
