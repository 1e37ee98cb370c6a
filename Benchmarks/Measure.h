#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tarn::bench {

using Clock = std::chrono::steady_clock;
/// Microseconds, one entry a run.
using Samples = std::vector<double>;
/// Does something so many times and appends what each took.
using Batch = std::function<void(int count, Samples &samples)>;

double microsecondsSince(Clock::time_point start);

/// A batch of equal calls.
Batch timed(std::function<void()> work);

double median(Samples samples);
/// The smallest sample that `share` of all do not exceed.
double percentile(Samples samples, double share);
double milliseconds(Clock::duration time);

/// The median of each batch. They take turns, `perRound` runs at a time, so that whatever else the machine
/// does hits all alike; one further round before them is not counted.
std::vector<double> medians(const std::vector<Batch> &batches, int rounds, int perRound);

/// One line of the output.
void report(const std::string &name, double value);

/// Ends the program: nothing was measured.
[[noreturn]] void fail(const std::string &why);
/// Fails with the system's last error unless the condition holds.
void check(bool condition, const char *what);

} // namespace tarn::bench
