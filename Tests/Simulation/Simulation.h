#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>

namespace tarn::sim {

struct Options {
    std::uint64_t seed = 1;
    double days = 100;
    /// The part that is broken; empty for none.
    std::string broken = {};
    /// Every line goes to the standard output at once.
    bool isTraced = false;
};

struct Result {
    /// What was not as it has to be, first; empty when all was well.
    std::string violation;
    /// The last lines before that.
    std::deque<std::string> lines;
    /// Of all lines: equal for equal runs.
    std::uint64_t fingerprint = 0xcbf29ce484222325;
    double days = 0;
    std::uint64_t events = 0;
    std::uint64_t switches = 0;
    std::uint64_t probes = 0;
    std::uint64_t readings = 0;
    std::uint64_t checks = 0;
    std::uint64_t deaths = 0;
};

/// Daemons with one part that does not do its duty, each of which has to be found out.
inline constexpr std::array brokenParts = {
    "forgetful-switcher", // reports Wi-Fi as on without switching it, once something has failed
    "lying-disk",         // reports the journal as written without writing it
    "hopeful-prober",     // every name server answers
    "deaf-reader",        // reads the network but once
};

/// Runs the daemon on a simulated machine until something is not as it has to be or the days are over:
/// with a path, the machine is online; without a wired one, Wi-Fi is on; while nothing happens, nothing is
/// switched; nothing is switched off that the journal on disk does not name; nothing of ours is left
/// behind a clean end; a pause ends at its time. Equal options give equal results.
///
/// Thread: any, several at a time.
Result simulate(const Options &options);

} // namespace tarn::sim
