// ProcessBenchmark ROUNDS PROGRAM [ARGUMENT]... [-- PROGRAM [ARGUMENT]...]...
// Runs the programs in turn: the median time from start to end of each, and the most memory that a run
// needed.

#include "Benchmarks/Measure.h"

#include <algorithm>
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

    void run(const posix_spawn_file_actions_t &files) {
        pid_t child = 0;
        errno = posix_spawnp(&child, arguments.front(), &files, nullptr, arguments.data(), environ);
        bench::check(errno == 0, arguments.front());
        int status = 0;
        rusage usage{};
        bench::check(wait4(child, &status, 0, &usage) == child, "wait4");
        if (status != 0)
            bench::fail(std::string(arguments.front()) + " failed");
        memory = std::max(memory, usage.ru_maxrss);
    }
};

} // namespace

int main(int count, char **values) {
    if (count < 3)
        bench::fail("ROUNDS PROGRAM expected");
    std::vector<Program> programs(1);
    for (int i = 2; i < count; ++i)
        if (std::strcmp(values[i], "--") == 0)
            programs.emplace_back();
        else
            programs.back().arguments.push_back(values[i]);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<bench::Batch> batches;
    for (auto &program : programs) {
        if (program.arguments.empty())
            bench::fail("PROGRAM expected");
        program.arguments.push_back(nullptr);
        batches.push_back(bench::timed([&] { program.run(files); }));
    }
    const auto medians = bench::medians(batches, std::atoi(values[1]), 1);
    for (std::size_t i = 0; i < programs.size(); ++i) {
        bench::report("milliseconds-" + std::to_string(i), medians[i] / 1000);
        bench::report("KiB-" + std::to_string(i), static_cast<double>(programs[i].memory));
    }
    posix_spawn_file_actions_destroy(&files);
}
