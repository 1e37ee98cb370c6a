#include "TarnCore/ServiceOrder.h"

#include <algorithm>
#include <cstdint>

namespace tarn::ServiceOrder {

std::optional<std::vector<std::string>> reorderIfNeeded(const std::vector<InterfaceSnapshot> &interfaces) {
    std::int64_t firstWiFi = INT64_MAX;
    std::int64_t lastWired = INT64_MIN;
    for (const auto &snapshot : interfaces) {
        if (!snapshot.serviceID || !snapshot.serviceOrderIndex)
            continue;
        if (snapshot.kind == InterfaceKind::wifi)
            firstWiFi = std::min(firstWiFi, *snapshot.serviceOrderIndex);
        else if (snapshot.kind == InterfaceKind::wired)
            lastWired = std::max(lastWired, *snapshot.serviceOrderIndex);
    }
    if (lastWired < firstWiFi)
        return std::nullopt;

    std::vector<const InterfaceSnapshot *> services;
    for (const auto &snapshot : interfaces)
        if (snapshot.serviceID && snapshot.serviceOrderIndex)
            services.push_back(&snapshot);
    const auto position = [](const InterfaceSnapshot *service) { return *service->serviceOrderIndex; };
    // The reader delivers them in this order already.
    if (!std::ranges::is_sorted(services, {}, position))
        std::ranges::stable_sort(services, {}, position);

    const auto isWiFi = [](const InterfaceSnapshot *service) { return service->kind == InterfaceKind::wifi; };
    const auto isWired = [](const InterfaceSnapshot *service) {
        return service->kind == InterfaceKind::wired;
    };
    const auto wifi = std::ranges::find_if(services, isWiFi);
    if (std::none_of(wifi, services.end(), isWired))
        return std::nullopt;

    std::ranges::stable_partition(services, isWired);
    std::vector<std::string> order;
    order.reserve(services.size());
    for (const auto *service : services)
        order.push_back(*service->serviceID);
    return order;
}

} // namespace tarn::ServiceOrder
