#include "Platform/Linux/LinuxRandom.h"

#include <cerrno>
#include <sys/random.h>
#include <system_error>

namespace tarn {

std::uint64_t LinuxRandom::next() {
    std::uint64_t number = 0;
    // Up to 256 bytes come whole once the kernel's pool is initialised; before that only a
    // signal ends the wait.
    while (getrandom(&number, sizeof number, 0) != sizeof number)
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "getrandom");
    return number;
}

} // namespace tarn
