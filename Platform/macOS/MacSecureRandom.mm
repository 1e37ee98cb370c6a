#include "Platform/macOS/MacSecureRandom.h"

#include <stdlib.h>

namespace tarn {

std::uint64_t MacSecureRandom::next() {
    std::uint64_t number = 0;
    // Of the system's sources the one that cannot fail.
    ::arc4random_buf(&number, sizeof number);
    return number;
}

} // namespace tarn
