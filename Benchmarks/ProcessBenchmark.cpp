// ProcessBenchmark ROUNDS [--until-output] PROGRAM [ARGUMENT]... [-- PROGRAM [ARGUMENT]...]...
// Runs the programs in turn: the median time from start to end of each, or to its first output, and the most
// memory that a run needed.

#include "Benchmarks/Measure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace tarn;

struct Program {
    std::vector<char *> arguments;
    /// Peak resident memory in KiB. The kernel counts in what this process has at the start of the program,
    /// which is why that is a small one.
    long memory = 0;

    /// Returns its time in microseconds, to what comes out of `output`, where that is one.
    double run(const posix_spawn_file_actions_t &files, int output) {
        const auto start = bench::Clock::now();
        pid_t child = 0;
        errno = posix_spawnp(&child, arguments.front(), &files, nullptr, arguments.data(), environ);
        bench::check(errno == 0, arguments.front());
        double time = 0;
        if (char first = 0; output >= 0) {
            bench::check(read(output, &first, 1) == 1, "no output");
            time = bench::microsecondsSince(start);
        }
        int status = 0;
        rusage usage{};
        bench::check(wait4(child, &status, 0, &usage) == child, "wait4");
        if (output < 0)
            time = bench::microsecondsSince(start);
        if (status != 0)
            bench::fail(std::string(arguments.front()) + " failed");
        memory = std::max(memory, usage.ru_maxrss);
        return time;
    }
};

} // namespace

int main(int count, char **values) {
    const bool isUntilOutput = count > 2 && std::strcmp(values[2], "--until-output") == 0;
    const int first = isUntilOutput ? 3 : 2;
    if (count <= first)
        bench::fail("ROUNDS PROGRAM expected");
    std::vector<Program> programs(1);
    for (int i = first; i < count; ++i)
        if (std::strcmp(values[i], "--") == 0)
            programs.emplace_back();
        else
            programs.back().arguments.push_back(values[i]);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    std::array<int, 2> ends{-1, -1};
    if (isUntilOutput) {
        bench::check(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
        posix_spawn_file_actions_adddup2(&files, ends[1], STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    std::vector<bench::Batch> batches;
    for (auto &program : programs) {
        if (program.arguments.empty())
            bench::fail("PROGRAM expected");
        program.arguments.push_back(nullptr);
        batches.emplace_back([&](int runs, bench::Samples &samples) {
            for (; runs > 0; --runs)
                samples.push_back(program.run(files, ends[0]));
        });
    }
    const auto medians = bench::medians(batches, std::atoi(values[1]), 1);
    for (std::size_t i = 0; i < programs.size(); ++i) {
        bench::report("milliseconds-" + std::to_string(i), medians[i] / 1000);
        bench::report("KiB-" + std::to_string(i), static_cast<double>(programs[i].memory));
    }
    posix_spawn_file_actions_destroy(&files);
}
