#pragma once

#include <functional>

namespace tarn {

/// What happens to this process and its machine beside the network.
///
/// Thread: main thread throughout, the handler included.
/// Errors: none; what the system does not tell is not told here.
class HostEvents {
public:
    enum class Event {
        stop,            ///< Asked to end: SIGTERM or SIGINT. May be told more than once.
        settingsChanged, ///< A layer of the preferences may have changed, or SIGHUP asks to read them anew.
        woke,            ///< The machine has slept.
        clockSet,        ///< Somebody set the wall clock.
    };
    using Handler = std::function<void(Event)>;

    virtual ~HostEvents() = default;
    /// Called once. From then on the signals no longer end the process by themselves. The handler
    /// may be called until this object is destroyed, never inside this call.
    virtual void start(Handler handler) = 0;
};

} // namespace tarn
