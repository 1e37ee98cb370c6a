#pragma once

#include "Benchmarks/Measure.h"
#include "TarnSystem/Descriptor.h"

#include <functional>
#include <string>

namespace tarn::bench {

/// Runs work in another network; sockets stay where they were made.
void inNetwork(const char *name, const std::function<void()> &work);

/// The far end of a cable, in a network of its own.
class Cable {
public:
    Cable(const char *device, const char *network);
    void plug() const { set(true); }
    /// When it was pulled.
    Clock::time_point pull() const;

private:
    void set(bool isUp) const;

    std::string device_;
    Descriptor socket_;
};

} // namespace tarn::bench
