#include "TarnSystem/VPNSplitDNS.h"

#include <algorithm>
#include <optional>

namespace tarn::VPNSplitDNS {

std::vector<ScopedResolver> scopedResolvers(DynamicStore &store) {
    std::vector<ScopedResolver> resolvers;
    const auto keys = store.copyKeyList(keyPattern);
    if (!keys)
        return resolvers;
    for (const auto &key : *keys) {
        const auto value = store.copyValue(key);
        if (!value)
            continue;
        const auto servers = value->stringList(serversKey);
        auto domains = value->stringList(domainsKey);
        if (!servers || !domains)
            continue;
        for (auto &domain : *domains)
            resolvers.push_back({std::move(domain), *servers});
    }
    return resolvers;
}

std::vector<ScopedResolver> scopedResolvers(const StoreOpener &openStore) {
    const auto store = openStore(clientName);
    return store ? scopedResolvers(*store) : std::vector<ScopedResolver>();
}

std::vector<Suspect> suspects(const std::vector<ScopedResolver> &resolvers) {
    std::vector<Suspect> found;
    for (const auto &[domain, servers] : resolvers) {
        if (servers.size() < 2 || !servers.front().starts_with("fe80:"))
            continue;
        const auto &first = servers.front();
        const auto percent = first.find('%');
        if (percent == std::string::npos || percent + 1 == first.size())
            continue;
        found.push_back({first.substr(percent + 1), domain, first});
    }
    return found;
}

bool tetheringResolverShadowsSplitDNS(const std::vector<ScopedResolver> &resolvers, std::string_view device) {
    const auto list = suspects(resolvers);
    return std::ranges::find(list, device, &Suspect::device) != list.end();
}

} // namespace tarn::VPNSplitDNS
