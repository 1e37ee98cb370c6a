#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

namespace tarn {

/// Whether what the services on the bus said may still hold: those who ask them on one thread learn
/// here from those who listen on another. Thread: any.
class BusNews {
public:
    /// Something may have changed.
    void arrive() { ++count_; }
    /// Somebody hears of every change from now on, and tells it here; or no longer.
    void beginListening() {
        arrive();
        ++listeners_;
    }
    void endListening() { --listeners_; }

    /// Another number when something may have changed; absent while nobody listens. To be taken before
    /// what it shall speak for is asked.
    std::optional<std::uint64_t> count() const {
        return listeners_ > 0 ? std::optional(count_.load()) : std::nullopt;
    }

private:
    std::atomic<std::uint64_t> count_ = 0;
    std::atomic<int> listeners_ = 0;
};

} // namespace tarn
