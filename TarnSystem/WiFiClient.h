#pragma once

#include <optional>

namespace tarn {

/// The system's Wi-Fi.
///
/// Thread: one at a time. Errors: none.
class WiFiClient {
public:
    virtual ~WiFiClient() = default;
    /// Whether the default Wi-Fi interface has power; absent when there is no such interface.
    virtual std::optional<bool> powerOn() = 0;
};

} // namespace tarn
