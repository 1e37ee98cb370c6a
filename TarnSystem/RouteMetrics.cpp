#include "TarnSystem/RouteMetrics.h"

#include <algorithm>
#include <tuple>

namespace tarn {
namespace {

/// What it takes to keep one metric and change all between it and the kept one before.
struct Chain {
    std::size_t before = 0;
    std::tuple<std::size_t, std::size_t, std::int64_t> cost; // changed, lowered, by how much in all
};

} // namespace

std::optional<std::vector<std::pair<std::string, std::uint32_t>>>
metricsForOrder(const std::vector<ServiceMetric> &services, const std::vector<std::string> &order) {
    std::vector<const ServiceMetric *> list;
    for (const auto &serviceID : order) {
        const auto found = std::ranges::find(services, serviceID, &ServiceMetric::serviceID);
        if (found != services.end() && found->metric && std::ranges::find(list, &*found) == list.end())
            list.push_back(&*found);
    }
    // Kept ones at both ends stand for the limits.
    const std::size_t end = list.size() + 1;
    const auto metric = [&](std::size_t i) -> std::int64_t {
        return i == 0 ? -1 : i == end ? std::int64_t{UINT32_MAX} + 1 : std::int64_t{*list[i - 1]->metric};
    };
    // The new metric of each between two kept ones: its own where there is room, else the nearest.
    const auto between = [&](std::size_t first, std::size_t last) {
        std::vector<std::int64_t> values;
        auto lowest = std::max<std::int64_t>(metric(first) + 1, 1);
        for (std::size_t i = first + 1; i < last; ++i) {
            const auto highest = metric(last) - static_cast<std::int64_t>(last - i);
            values.push_back(std::min(std::max(metric(i), lowest), highest));
            lowest = values.back() + 1;
        }
        return values;
    };

    std::vector<std::optional<Chain>> chains(end + 1);
    chains[0].emplace();
    for (std::size_t last = 1; last <= end; ++last) {
        // One that cannot be changed cannot be passed over.
        for (std::size_t first = last; first-- > 0 && (first + 1 == last || list[first]->isChangeable);) {
            const auto values = between(first, last);
            const auto floor = std::max<std::int64_t>(metric(first), 0);
            if (!chains[first] || metric(first) >= metric(last) ||
                (!values.empty() && values.front() <= floor))
                continue;
            auto [changed, lowered, amount] = chains[first]->cost;
            for (std::size_t i = 0; i < values.size(); ++i) {
                const auto difference = values[i] - metric(first + 1 + i);
                changed += difference != 0;
                lowered += difference < 0;
                amount += std::max(difference, -difference);
            }
            const std::tuple cost(changed, lowered, amount);
            if (!chains[last] || cost < chains[last]->cost)
                chains[last] = {first, cost};
        }
    }
    if (!chains[end])
        return std::nullopt;

    std::vector<std::pair<std::string, std::uint32_t>> changes;
    for (std::size_t last = end; last > 0; last = chains[last]->before) {
        const auto first = chains[last]->before;
        const auto values = between(first, last);
        for (std::size_t i = values.size(); i-- > 0;)
            if (values[i] != metric(first + 1 + i))
                changes.emplace_back(list[first + i]->serviceID, static_cast<std::uint32_t>(values[i]));
    }
    std::ranges::reverse(changes);
    return changes;
}

} // namespace tarn
