#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tarn {

/// A session with the dynamic store that is told of changes. It is closed on destruction, after
/// which the callback is not called again.
///
/// Thread: main thread, the callback included; it is never called inside a call.
class DynamicStoreWatch {
public:
    /// Takes the changed keys. An empty list means that everything known may have changed.
    using Callback = std::function<void(const std::vector<std::string> &keys)>;
    /// Opens a session under the client's name; null when the system refuses one.
    using Open = std::function<std::unique_ptr<DynamicStoreWatch>(const std::string &clientName, Callback)>;

    virtual ~DynamicStoreWatch() = default;
    /// Asks for changes of the keys that match one of the patterns (see DynamicStore). False when
    /// the system refuses.
    virtual bool setNotificationKeys(const std::vector<std::string> &patterns) = 0;
    /// Lets the main loop deliver changes from now on. False when it cannot; then none arrives.
    virtual bool schedule() = 0;
};

} // namespace tarn
