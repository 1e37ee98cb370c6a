// Loaded before other libraries, it puts a process back to 2001.

#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
    const long result = syscall(SYS_clock_gettime, clock, time);
    if (clock == CLOCK_REALTIME)
        time->tv_sec = 1'000'000'000;
    return static_cast<int>(result);
}
