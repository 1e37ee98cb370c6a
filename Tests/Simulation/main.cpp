#include "Simulation/Simulation.h"

#include "TarnCore/Text.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace tarn;

constexpr const char *help = R"(Usage: TarnlinkSimulation [OPTION]...
Runs the daemon on simulated machines and checks that nobody is left offline.

  --days N        simulated days of each run (100)
  --runs N        runs, with as many seeds (10)
  --seed N        the first seed (1)
  --jobs N        runs at a time (one for each processor)
  --trace         print every line of what happens; one run at a time
  --broken PART   replace a part of the daemon by one that does not do its duty:
                  forgetful-switcher, lying-disk, hopeful-prober, deaf-reader

Exit status: 0 all was well, 1 something was not, 2 wrong use.
)";

struct Arguments {
    sim::Options options;
    std::int64_t runs = 10;
    std::int64_t jobs = std::max<std::int64_t>(std::thread::hardware_concurrency(), 1);
};

bool parse(int count, char **values, Arguments &arguments) {
    for (int i = 1; i < count; ++i) {
        const std::string_view name = values[i];
        if (name == "--trace") {
            arguments.options.isTraced = true;
            continue;
        }
        if (++i == count)
            return false;
        if (name == "--broken") {
            arguments.options.broken = values[i];
            if (std::ranges::find(sim::brokenParts, std::string_view(values[i])) == sim::brokenParts.end())
                return false;
            continue;
        }
        const auto number = text::parseInteger(values[i]);
        if (!number || *number < 1)
            return false;
        if (name == "--days")
            arguments.options.days = static_cast<double>(*number);
        else if (name == "--seed")
            arguments.options.seed = static_cast<std::uint64_t>(*number);
        else if (name == "--runs")
            arguments.runs = *number;
        else if (name == "--jobs")
            arguments.jobs = *number;
        else
            return false;
    }
    return true;
}

void print(const sim::Options &options, const sim::Result &result) {
    if (!options.isTraced)
        for (const auto &line : result.lines)
            std::printf("%s\n", line.c_str());
    std::printf("again with: TarnlinkSimulation --trace --runs 1 --days %.0f --seed %llu%s%s\n\n",
                options.days, static_cast<unsigned long long>(options.seed),
                options.broken.empty() ? "" : " --broken ", options.broken.c_str());
}

} // namespace

int main(int count, char **values) {
    Arguments arguments;
    if (!parse(count, values, arguments)) {
        std::fputs(help, stderr);
        return 2;
    }
    const auto started = std::chrono::steady_clock::now();
    std::mutex lock;
    sim::Result total; // guarded by lock
    unsigned long long violations = 0;
    std::atomic<std::int64_t> next = 0;
    const auto work = [&] {
        for (std::int64_t run = next++; run < arguments.runs; run = next++) {
            sim::Options options = arguments.options;
            options.seed += static_cast<std::uint64_t>(run);
            const auto result = sim::simulate(options);
            const std::lock_guard guard(lock);
            total.days += result.days;
            total.events += result.events;
            total.switches += result.switches;
            total.probes += result.probes;
            total.checks += result.checks;
            if (result.violation.empty())
                continue;
            ++violations;
            print(options, result);
        }
    };
    std::vector<std::thread> threads;
    for (std::int64_t i = 0; i < (arguments.options.isTraced ? 1 : arguments.jobs); ++i)
        threads.emplace_back(work);
    for (auto &thread : threads)
        thread.join();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    std::printf("%.0f simulated days, %llu events, %llu probes, %llu switches, %llu checks at rest, "
                "%llu violations, %.1f seconds\n",
                total.days, static_cast<unsigned long long>(total.events),
                static_cast<unsigned long long>(total.probes),
                static_cast<unsigned long long>(total.switches),
                static_cast<unsigned long long>(total.checks), violations, took.count());
    return violations == 0 ? 0 : 1;
}
