#include "TarnSystem/Files.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace tarn::files {

bool flushToDisk(int descriptor) {
#ifdef F_FULLFSYNC
    // fsync() alone leaves the data in the drive's own cache. Not every file system offers more.
    if (fcntl(descriptor, F_FULLFSYNC) == 0)
        return true;
#endif
    int result = 0;
    do
        result = fsync(descriptor);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

} // namespace tarn::files
