#include "Platform/Linux/LinuxClock.h"

#include "TarnSystem/Files.h"

#include <cstddef>

namespace tarn {
namespace {

constexpr const char *bootIDFile = "/proc/sys/kernel/random/boot_id";
constexpr std::size_t largestFile = 64;

} // namespace

std::chrono::nanoseconds timeOf(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

Moment LinuxClock::now() {
    return {timeOf(CLOCK_BOOTTIME), timeOf(CLOCK_REALTIME)};
}

std::string LinuxClock::bootID() {
    const auto text = files::read(bootIDFile, largestFile).contents.value_or("");
    return text.substr(0, text.find('\n'));
}

} // namespace tarn
