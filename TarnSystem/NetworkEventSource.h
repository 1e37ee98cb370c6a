#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tarn {

/// Tells its owner, in batches, which network settings have changed.
///
/// Thread: main thread throughout, the handler included; slow work goes elsewhere.
class NetworkEventSource {
public:
    /// Takes the changed store keys, each once, in no particular order.
    using Handler = std::function<void(const std::vector<std::string> &keys)>;

    virtual ~NetworkEventSource() = default;
    /// Subscribes; an earlier subscription ends. `debounce` is in seconds and runs from a batch's
    /// first change; later changes ride along and do not lengthen it.
    virtual void start(double debounce, Handler handler) = 0;
    /// Ends the subscription: the handler is not called again, what was gathered is dropped.
    virtual void stop() = 0;
};

} // namespace tarn
