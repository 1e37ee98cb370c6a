#include "Platform/Linux/TerminalAgent.h"

#include "Platform/Linux/PolkitAuthorizations.h"
#include "TarnSystem/Descriptor.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-login.h>
#include <unistd.h>

namespace tarn {
namespace {

constexpr const char *program = "/usr/bin/pkttyagent";
// polkit may have to start first.
constexpr int longestStart = 5000; // milliseconds

} // namespace

std::unique_ptr<AuthenticationAgent> TerminalAgent::open() {
    const auto self = currentProcess();
    std::array<int, 2> ends{};
    if (!self || self->uid == 0 || !isatty(STDIN_FILENO) || pipe2(ends.data(), O_CLOEXEC) != 0)
        return nullptr;
    const Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    const auto subject = std::to_string(self->pid) + "," + std::to_string(self->startTime);
    const auto notify = std::to_string(writeEnd.get());
    // Others are agents of sessions. Without one polkit would not ask a fallback.
    const bool hasSession =
        sd_pid_get_session(0, nullptr) >= 0 || sd_uid_get_display(self->uid, nullptr) >= 0;

    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        return nullptr;
    if (child == 0) {
        // Only what may be called after a fork of several threads (signal-safety(7)).
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() == parent && fcntl(writeEnd.get(), F_SETFD, 0) == 0)
            execl(program, program, "--process", subject.c_str(), "--notify-fd", notify.c_str(),
                  hasSession ? "--fallback" : nullptr, nullptr);
        _exit(127);
    }
    auto agent = std::make_unique<TerminalAgent>(child);
    // It closes the descriptor when it is registered. So does its end, after which polkit has nobody to ask.
    writeEnd = Descriptor();
    pollfd closing{readEnd.get(), POLLIN, 0};
    int ready = 0;
    do
        ready = poll(&closing, 1, longestStart);
    while (ready < 0 && errno == EINTR);
    if (ready <= 0)
        return nullptr;
    return agent;
}

TerminalAgent::~TerminalAgent() {
    kill(process_, SIGTERM);
    // One that was stopped with its terminal would not hear it.
    kill(process_, SIGCONT);
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace tarn
