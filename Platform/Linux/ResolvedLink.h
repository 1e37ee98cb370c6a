#pragma once

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/BusNews.h"

#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// Changes the name servers of devices in systemd-resolved while it runs (org.freedesktop.resolve1(5)).
/// Nothing is written: its restart, or whoever configures the device anew, undoes it.
///
/// Thread: one at a time. No answer is waited for longer than 5 seconds.
class ResolvedLink {
public:
    /// Changes are told to `news`, which must outlive this.
    explicit ResolvedLink(BusNews &news) : news_(news) {}

    /// Of an address with a zone, the zone must be the device's name or index. Returns why it was not
    /// done, in words for people; none when it was.
    std::optional<std::string> setServers(const std::string &device, const std::vector<std::string> &servers);

private:
    BusNews &news_;
    BusService resolved_{"org.freedesktop.resolve1"};
    BusConnection bus_{{&resolved_}, std::chrono::seconds(5)};
};

} // namespace tarn
