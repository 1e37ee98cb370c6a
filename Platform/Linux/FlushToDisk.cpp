#include "TarnSystem/Files.h"

#include <cerrno>
#include <unistd.h>

namespace tarn::files {

bool flushToDisk(int descriptor) {
    int result = 0;
    do
        result = fsync(descriptor);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

} // namespace tarn::files
