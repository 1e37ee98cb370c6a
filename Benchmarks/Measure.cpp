#include "Benchmarks/Measure.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace tarn::bench {

double microsecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

Batch timed(std::function<void()> work) {
    return [moved = std::move(work)](int count, Samples &samples) {
        for (int i = 0; i < count; ++i) {
            const auto start = Clock::now();
            moved();
            samples.push_back(microsecondsSince(start));
        }
    };
}

double percentile(Samples samples, double share) {
    std::ranges::sort(samples);
    const auto rank = std::ceil(share * static_cast<double>(samples.size()));
    return samples[static_cast<std::size_t>(std::max(rank, 1.0)) - 1];
}

double milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

double median(Samples samples) {
    if (samples.empty())
        fail("no samples");
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::ranges::nth_element(samples, middle);
    return *middle;
}

std::vector<double> medians(const std::vector<Batch> &batches, int rounds, int perRound) {
    std::vector<Samples> samples(batches.size());
    for (int round = -1; round < rounds; ++round) {
        for (std::size_t i = 0; i < batches.size(); ++i)
            batches[i](perRound, samples[i]);
        if (round < 0)
            for (auto &list : samples)
                list.clear();
    }
    std::vector<double> result;
    for (auto &list : samples)
        result.push_back(median(std::move(list)));
    return result;
}

void report(const std::string &name, double value) {
    std::printf("%s %.17g\n", name.c_str(), value);
}

void fail(const std::string &why) {
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, why.c_str());
    std::exit(2);
}

void check(bool condition, const char *what) {
    if (!condition)
        fail(std::string(what) + ": " + std::strerror(errno));
}

} // namespace tarn::bench
