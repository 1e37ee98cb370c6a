#include "Platform/macOS/MacSystemClock.h"

#include <mach/mach.h>
#include <mach/mach_time.h>
#include <sys/sysctl.h>
#include <time.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarn {
namespace {

std::chrono::nanoseconds timeSinceBoot() {
    static const mach_timebase_info_data_t timebase = [] {
        mach_timebase_info_data_t info = {};
        mach_timebase_info(&info);
        return info;
    }();
    // In two parts: the product of a whole uptime and the numerator may not fit.
    const std::uint64_t ticks = mach_continuous_time();
    const std::uint64_t whole = ticks / timebase.denom * timebase.numer;
    const std::uint64_t rest = ticks % timebase.denom * timebase.numer / timebase.denom;
    return std::chrono::nanoseconds(whole + rest);
}

} // namespace

Moment MacSystemClock::now() {
    const auto sinceBoot = timeSinceBoot();
    struct timespec time = {};
    clock_gettime(CLOCK_REALTIME, &time);
    return {sinceBoot, std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec)};
}

std::string MacSystemClock::bootID() {
    std::array<char, 64> text = {};
    std::size_t size = text.size() - 1;
    if (sysctlbyname("kern.bootsessionuuid", text.data(), &size, nullptr, 0) != 0)
        return {};
    return text.data();
}

} // namespace tarn
