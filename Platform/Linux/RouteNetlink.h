#pragma once

#include "TarnSystem/Descriptor.h"
#include "TarnSystem/NetworkPicture.h"

namespace tarn {

/// Reads links, addresses and default routes from the kernel (rtnetlink(7)).
///
/// Thread: one at a time; a reading takes some tens of microseconds.
class RouteNetlink {
public:
    enum class Result {
        settled,   ///< The picture is of one moment.
        unsettled, ///< The state changed during every attempt; the picture is the last one.
        failed,    ///< The kernel could not be asked.
    };

    /// Fills links, addresses and routes. A reading during which anything changed is taken again.
    static Result read(NetworkPicture &picture);

    /// A non-blocking socket to which the kernel tells changes of what read() reads; none when
    /// it cannot be had.
    static Descriptor subscribe();
    /// Takes what has been told so far, a bounded amount in one call. True when a new reading may
    /// differ: also when the kernel had to drop news (ENOBUFS).
    static bool takeNews(const Descriptor &subscription);
};

} // namespace tarn
