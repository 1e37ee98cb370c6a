// UpdateBenchmark PACKAGE MANIFEST KEY: what an update costs.
// Milliseconds for the SHA-256 of the package, here and by "openssl dgst"; microseconds for the check of the
// manifest (its signature beside it with ".sig") against the key, reading it included; KiB that the hash
// needed at most, and before that the library, of which most is code that others share.

#include "Benchmarks/Measure.h"
#include "TarnSystem/Files.h"
#include "TarnSystem/Updates/UpdateFeed.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace tarn;

constexpr int hashRounds = 9;
constexpr int checkRounds = 50;
constexpr int checksPerRound = 20;

/// In KiB, one line of /proc/self/status.
double memory(const std::string &name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(name + ":"))
            return std::strtod(line.c_str() + name.size() + 1, nullptr);
    bench::fail("no " + name);
}

void runOpenSSL(const char *package, const posix_spawn_file_actions_t &files) {
    const char *const arguments[] = {"openssl", "dgst", "-sha256", package, nullptr};
    pid_t child = 0;
    errno =
        posix_spawnp(&child, arguments[0], &files, nullptr, const_cast<char *const *>(arguments), environ);
    bench::check(errno == 0, arguments[0]);
    int status = 0;
    bench::check(waitpid(child, &status, 0) == child, "waitpid");
    if (status != 0)
        bench::fail("openssl failed");
}

std::string contents(const std::string &path) {
    auto read = files::read(path, UpdateFeed::mostManifestBytes);
    if (!read.contents)
        bench::fail(path + ": " + read.failure.message);
    return *std::move(read.contents);
}

} // namespace

int main(int count, char **values) {
    if (count != 4)
        bench::fail("PACKAGE MANIFEST KEY expected");
    const char *package = values[1];
    const auto manifest = contents(values[2]);
    auto signature = contents(std::string(values[2]) + ".sig");
    signature.erase(signature.find_last_not_of('\n') + 1);
    const auto check = [&] { return UpdateFeed::verifyAndDecode(manifest, signature, values[3]); };

    // As it happens: the package is hashed once its manifest is known to be good.
    const double atStart = memory("VmRSS");
    const auto sha256 = check().sha256;
    const double before = memory("VmRSS");
    if (UpdateFeed::sha256(package) != sha256)
        bench::fail("another package");
    bench::report("KiB", memory("VmHWM") - before);
    bench::report("KiB-library", before - atStart);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const auto hashes = bench::medians({bench::timed([&] { UpdateFeed::sha256(package); }),
                                        bench::timed([&] { runOpenSSL(package, files); })},
                                       hashRounds, 1);
    posix_spawn_file_actions_destroy(&files);
    bench::report("ours", hashes[0] / 1000);
    bench::report("openssl", hashes[1] / 1000);
    bench::report("check", bench::medians({bench::timed(check)}, checkRounds, checksPerRound)[0]);
}
