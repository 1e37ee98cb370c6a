#include "Platform/Linux/LinuxProcessLauncher.h"

#include "TarnSystem/Descriptor.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace tarn {
namespace {

/// The two outputs into descriptors, and signals as a program expects to find them.
class SpawnSettings {
public:
    SpawnSettings(int standardOutput, int standardError) {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, standardOutput, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, standardError, STDERR_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    SpawnSettings(const SpawnSettings &) = delete;
    SpawnSettings &operator=(const SpawnSettings &) = delete;
    ~SpawnSettings() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

std::string readToEnd(int descriptor) {
    std::string text;
    std::array<char, 4096> buffer;
    for (;;) {
        const auto size = read(descriptor, buffer.data(), buffer.size());
        if (size > 0)
            text.append(buffer.data(), static_cast<std::size_t>(size));
        else if (size == 0 || errno != EINTR)
            return text;
    }
}

std::int32_t waitForExit(pid_t process) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0)
        if (errno != EINTR)
            return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
}

/// Its number, or an error number in `error`.
pid_t spawn(const std::string &path, const std::vector<std::string> &arguments, const SpawnSettings &settings,
            int &error) {
    // The system takes them as writable, and leaves them alone.
    std::vector<char *> words = {const_cast<char *>(path.c_str())};
    for (const auto &argument : arguments)
        words.push_back(const_cast<char *>(argument.c_str()));
    words.push_back(nullptr);
    pid_t process = 0;
    error =
        posix_spawn(&process, path.c_str(), &settings.actions, &settings.attributes, words.data(), environ);
    return process;
}

ProcessLauncher::Result failed(int error) {
    return {std::generic_category().message(error), -1};
}

std::string readFromStart(int file) {
    lseek(file, 0, SEEK_SET);
    return readToEnd(file);
}

} // namespace

ProcessLauncher::Result LinuxProcessLauncher::run(const std::string &path,
                                                  const std::vector<std::string> &arguments) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return failed(errno);
    const Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    // A file takes all there is while the pipe is read.
    const Descriptor output(memfd_create("output", MFD_CLOEXEC));
    if (!output)
        return failed(errno);

    int error = 0;
    const auto process = spawn(path, arguments, SpawnSettings(output.get(), writeEnd.get()), error);
    if (error != 0)
        return failed(error);
    // The end comes when no writer is left.
    writeEnd = Descriptor();
    Result result;
    // To the end first: a program that waits for room in the pipe never exits.
    result.standardError = readToEnd(readEnd.get());
    result.status = waitForExit(process);
    result.standardOutput = readFromStart(output.get());
    return result;
}

ProcessLauncher::Result LinuxProcessLauncher::runMerged(const std::string &path,
                                                        const std::vector<std::string> &arguments) {
    const Descriptor output(memfd_create("output", MFD_CLOEXEC));
    if (!output)
        return failed(errno);
    int error = 0;
    const auto process = spawn(path, arguments, SpawnSettings(output.get(), output.get()), error);
    if (error != 0)
        return failed(error);
    Result result;
    result.status = waitForExit(process);
    result.standardOutput = readFromStart(output.get());
    return result;
}

pid_t LinuxProcessLauncher::start(const std::string &path, const std::vector<std::string> &arguments,
                                  int standardOutput) {
    int error = 0;
    const auto process = spawn(path, arguments, SpawnSettings(standardOutput, STDERR_FILENO), error);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), path);
    return process;
}

} // namespace tarn
