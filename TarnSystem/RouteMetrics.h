#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarn {

/// A service in the competition for the default route.
struct ServiceMetric {
    std::string serviceID;
    /// Of its default route; absent without one, and then the service takes no part.
    std::optional<std::uint32_t> metric;
    bool isChangeable = false;
};

/// The metrics to be changed so that they strictly increase along `order`; empty when they do.
/// As few as possible are changed, then as few as possible lowered, then each by as little as
/// possible; never below 1, because the kernel takes 0 in IPv6 for its own default. None when
/// those that are not changeable do not allow the order. Services that `order` does not name
/// take no part.
std::optional<std::vector<std::pair<std::string, std::uint32_t>>>
metricsForOrder(const std::vector<ServiceMetric> &services, const std::vector<std::string> &order);

} // namespace tarn
