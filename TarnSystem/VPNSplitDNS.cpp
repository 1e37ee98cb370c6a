#include "TarnSystem/VPNSplitDNS.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tarn::VPNSplitDNS {

std::vector<Resolver> resolvers(DynamicStore &store) {
    std::vector<Resolver> found;
    for (const auto &key : store.copyKeyList(keyPattern).value_or(std::vector<std::string>())) {
        const auto value = store.copyValue(key);
        if (!value)
            continue;
        auto servers = value->stringList(serversKey);
        auto domains = value->stringList(domainsKey);
        if (servers && domains && !domains->empty())
            found.push_back({key, *std::move(servers), *std::move(domains)});
    }
    return found;
}

std::vector<ScopedResolver> scoped(const Resolver &resolver) {
    std::vector<ScopedResolver> list;
    for (const auto &domain : resolver.domains)
        list.push_back({domain, resolver.servers});
    return list;
}

std::vector<ScopedResolver> scopedResolvers(DynamicStore &store) {
    std::vector<ScopedResolver> list;
    for (const auto &resolver : resolvers(store))
        std::ranges::move(scoped(resolver), std::back_inserter(list));
    return list;
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
