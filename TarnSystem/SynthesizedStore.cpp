#include "TarnSystem/SynthesizedStore.h"

#include "TarnCore/InterfaceSnapshot.h"
#include "TarnCore/Text.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

namespace tarn {
namespace {

constexpr std::uint16_t arphrdEther = 1; // ARPHRD_ETHER, linux/if_arp.h
constexpr std::string_view servicePrefix = "device:";

constexpr std::array<std::string_view, 3> interfaceEntities = {"Link", "IPv4", "IPv6"};
constexpr std::array<std::string_view, 4> serviceEntities = {"IPv4", "IPv6", "DHCP", "DNS"};

// A bridge or a tunnel (tun and tap devices share one kind) is no cable, and an enslaved device carries its
// master's traffic.
bool countsAsEthernet(const NetworkPicture::Link &link) {
    constexpr std::array<std::string_view, 4> noCables = {"bridge", "tun", "macvtap", "ipvtap"};
    // What may be a radio must not pass for a cable: the real radio would be switched off for it.
    return link.hardwareType == arphrdEther && !link.isLoopback && !link.isWireless && !link.isUndescribed &&
           std::ranges::find(noCables, link.linkKind) == noCables.end() && link.master == 0;
}

bool isPreferred(const NetworkPicture::DefaultRoute &route, const NetworkPicture::DefaultRoute *other) {
    return !other || route.metric < other->metric;
}

/// The zone of a scoped address, "" without one.
std::string_view zoneOf(std::string_view server) {
    const auto percent = server.find('%');
    return percent == std::string_view::npos ? std::string_view() : server.substr(percent + 1);
}

std::optional<IPAddress> addressOf(std::string_view server) {
    return IPAddress::parse(server.substr(0, server.find('%')));
}

// A stub on the own host cannot be asked through a device: the query would leave and never
// come back.
bool canBeAsked(const std::string &server) {
    const auto address = addressOf(server);
    return address && !address->isOwnHost();
}

// The same one may stand on several links.
std::string withZone(const std::string &server, const std::string &device) {
    const auto address = addressOf(server);
    const bool isLinkLocal =
        address->isIPv6 && address->bytes[0] == 0xFE && (address->bytes[1] & 0xC0) == 0x80;
    return isLinkLocal && zoneOf(server).empty() ? server + "%" + device : server;
}

void addNew(std::vector<std::string> &list, std::string entry) {
    if (std::ranges::find(list, entry) == list.end())
        list.push_back(std::move(entry));
}

// NetworkManager marks a domain that is for routing alone with "~", and both resolvers write "."
// for all names, which selects none.
std::string_view matchDomain(std::string_view domain) {
    if (domain.starts_with('~'))
        domain.remove_prefix(1);
    if (domain.ends_with('.'))
        domain.remove_suffix(1);
    return domain;
}

std::string key(std::string_view area, std::string_view name, std::string_view entity) {
    return std::string("State:/Network/").append(area).append("/").append(name).append("/").append(entity);
}

bool matchesComponent(std::string_view pattern, std::string_view component) {
    if (pattern == "[^/]+")
        return !component.empty();
    if (!pattern.starts_with('(') || !pattern.ends_with(')'))
        return pattern == component;
    auto choices = pattern.substr(1, pattern.size() - 2);
    while (const auto choice = text::nextPiece(choices, '|'))
        if (*choice == component)
            return true;
    return false;
}

} // namespace

bool matchesStorePattern(std::string_view pattern, std::string_view key) {
    for (;;) {
        // The slash inside the brackets of "[^/]+" separates nothing.
        const auto patternEnd = pattern.starts_with("[^/]+") ? 5 : pattern.find('/');
        const auto keyEnd = key.find('/');
        const bool isLast = patternEnd >= pattern.size();
        if (isLast != (keyEnd == std::string_view::npos) ||
            !matchesComponent(pattern.substr(0, patternEnd), key.substr(0, keyEnd)))
            return false;
        if (isLast)
            return true;
        pattern.remove_prefix(patternEnd + 1);
        key.remove_prefix(keyEnd + 1);
    }
}

std::string serviceIDForDevice(std::string_view device) {
    return std::string(servicePrefix).append(device);
}

std::optional<std::string> deviceForServiceID(std::string_view serviceID) {
    if (!serviceID.starts_with(servicePrefix))
        return std::nullopt;
    return std::string(serviceID.substr(servicePrefix.size()));
}

std::optional<std::string> deviceOfDNSKey(std::string_view key) {
    const auto prefix = "State:/Network/Service/" + serviceIDForDevice("");
    constexpr std::string_view suffix = "/DNS";
    if (!matchesStorePattern("State:/Network/Service/[^/]+/DNS", key) || !key.starts_with(prefix))
        return std::nullopt;
    key.remove_prefix(prefix.size());
    key.remove_suffix(suffix.size());
    return std::string(key);
}

std::int64_t ipv6FlagsFromLinux(std::uint32_t flags) {
    // IFA_F_* of linux/if_addr.h on the left.
    constexpr std::array<std::pair<std::uint32_t, std::int64_t>, 4> table = {{
        {0x40, IPv6Address::tentativeFlag},
        {0x08, IPv6Address::duplicatedFlag}, // IFA_F_DADFAILED
        {0x20, IPv6Address::deprecatedFlag},
        {0x01, IPv6Address::temporaryFlag},
    }};
    std::int64_t word = 0;
    for (const auto &[linuxFlag, flag] : table)
        if (flags & linuxFlag)
            word |= flag;
    return word;
}

std::uint32_t SynthesizedStore::Device::metric() const {
    if (route4 || route6)
        return std::min(route4 ? route4->metric : UINT32_MAX, route6 ? route6->metric : UINT32_MAX);
    // Without a route, what NetworkManager gives one by default: a cable that is not plugged in
    // must not look as if it stood behind Wi-Fi.
    return link->isWireless ? 600 : 100;
}

SynthesizedStore::SynthesizedStore(NetworkPicture picture) : picture_(std::move(picture)) {
    devices_.reserve(picture_.links.size());
    for (const auto &link : picture_.links) {
        if (link.isLoopback)
            continue;
        byIndex_.emplace(link.index, devices_.size());
        byName_.emplace(link.name, devices_.size());
        auto &device = devices_.emplace_back();
        device.link = &link;
        device.hasService = link.isWireless || countsAsEthernet(link);
    }
    assignAddressesAndRoutes();
    assignLeases();
    assignServers();
    assignManaged();
}

void SynthesizedStore::assignAddressesAndRoutes() {
    for (const auto &address : picture_.addresses)
        if (auto *device = deviceFor(address.link, {}))
            (address.address.isIPv6 ? device->ipv6 : device->ipv4).push_back(&address);
    for (const auto &route : picture_.defaultRoutes) {
        auto *device = deviceFor(route.link, {});
        if (!device)
            continue;
        auto &best = route.isIPv6 ? device->route6 : device->route4;
        if (isPreferred(route, best))
            best = &route;
    }
}

void SynthesizedStore::assignLeases() {
    for (const auto &lease : picture_.leases) {
        auto *device = deviceFor(lease.linkIndex, lease.device);
        const auto address = IPAddress::parse(lease.address);
        // Clients leave old leases behind: only one whose address is in use is held.
        const bool isCurrent =
            device && address && (!lease.expires || *lease.expires > picture_.takenAt) &&
            std::ranges::any_of(device->ipv4, [&](const auto *own) { return own->address == *address; });
        if (isCurrent)
            device->lease = &lease;
    }
}

void SynthesizedStore::assignServers() {
    // The first source that knows a server for a device counts, with everything that it says of it.
    struct Told {
        std::vector<std::string> servers;
        std::vector<std::string> domains;
    };
    using Gathered = std::unordered_map<Device *, Told>;
    const auto isOwnAddress = [this](const std::string &server) {
        return std::ranges::find(picture_.addresses, addressOf(server), &NetworkPicture::Address::address) !=
               picture_.addresses.end();
    };
    const auto add = [&](std::vector<std::string> &list, const std::vector<std::string> &servers,
                         const Device *device) {
        for (const auto &server : servers)
            if (canBeAsked(server) && !isOwnAddress(server))
                addNew(list, device ? withZone(server, device->link->name) : server);
    };
    const auto gather = [&](Gathered &source, const NetworkPicture::Servers &entry) {
        auto *device = deviceFor(entry.link, entry.device);
        if (!device)
            return;
        add(source[device].servers, entry.addresses, device);
        for (const auto &domain : entry.domains)
            if (const auto name = matchDomain(domain); !name.empty())
                addNew(source[device].domains, std::string(name));
    };
    const auto assign = [](Gathered &source) {
        for (auto &[device, told] : source)
            if (device->dnsServers.empty() && !told.servers.empty()) {
                device->dnsServers = std::move(told.servers);
                device->domains = std::move(told.domains);
            }
    };
    Gathered resolved;
    Gathered manager;
    Gathered leases;
    std::vector<std::string> common;
    for (const auto &entry : picture_.resolvedServers)
        if (entry.link == 0)
            add(common, entry.addresses, nullptr);
        else
            gather(resolved, entry);
    for (const auto &entry : picture_.networkManagerServers)
        gather(manager, entry);
    for (auto &device : devices_)
        if (device.lease)
            add(leases[&device].servers, device.lease->dnsServers, &device);
    for (auto *source : {&resolved, &manager, &leases})
        assign(*source);

    add(common, picture_.resolvConfServers, nullptr);
    std::vector<bool> wanting;
    for (const auto &device : devices_)
        wanting.push_back(device.hasService && device.dnsServers.empty());
    for (const auto &server : common) {
        // A server in one interface's own subnet is reached through that one.
        const auto address = *addressOf(server);
        const auto zone = zoneOf(server);
        std::vector<bool> isOwn(devices_.size());
        bool isSomeones = false;
        for (std::size_t i = 0; i < devices_.size(); ++i) {
            const auto &device = devices_[i];
            if (!zone.empty())
                isOwn[i] = zone == device.link->name || zone == std::to_string(device.link->index);
            else
                isOwn[i] =
                    std::ranges::any_of(address.isIPv6 ? device.ipv6 : device.ipv4, [&](const auto *own) {
                        return address.isWithin(own->address, own->prefixLength);
                    });
            isSomeones = isSomeones || isOwn[i];
        }
        for (std::size_t i = 0; i < devices_.size(); ++i)
            if (wanting[i] && (isOwn[i] || (!isSomeones && zone.empty())))
                addNew(devices_[i].dnsServers, withZone(server, devices_[i].link->name));
    }
}

void SynthesizedStore::assignManaged() {
    for (const auto &managed : picture_.managed)
        if (auto *device = deviceFor(0, managed.device))
            device->managed = &managed;
}

SynthesizedStore::Device *SynthesizedStore::deviceFor(unsigned index, std::string_view name) {
    if (index != 0) {
        const auto found = byIndex_.find(index);
        return found == byIndex_.end() ? nullptr : &devices_[found->second];
    }
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : &devices_[found->second];
}

const SynthesizedStore::Device *SynthesizedStore::deviceOfID(std::string_view serviceID) const {
    const auto device = deviceForServiceID(serviceID);
    const auto found = device ? byName_.find(*device) : byName_.end();
    return found == byName_.end() ? nullptr : &devices_[found->second];
}

std::vector<std::string> SynthesizedStore::keys(std::string_view pattern) const {
    std::vector<std::string> result;
    const auto addExisting = [&](std::string_view area, std::string_view name, auto entities) {
        for (const auto entity : entities)
            if (auto candidate = key(area, name, entity);
                matchesStorePattern(pattern, candidate) && value(candidate))
                result.push_back(std::move(candidate));
    };
    for (const auto &device : devices_) {
        addExisting("Interface", device.link->name, interfaceEntities);
        addExisting("Service", serviceIDForDevice(device.link->name), serviceEntities);
    }
    return result;
}

std::optional<Value> SynthesizedStore::value(std::string_view wanted) const {
    auto rest = wanted;
    const auto state = text::nextPiece(rest, '/');
    const auto network = text::nextPiece(rest, '/');
    const auto area = text::nextPiece(rest, '/');
    const auto name = text::nextPiece(rest, '/');
    const auto entity = text::nextPiece(rest, '/');
    if (state != "State:" || network != "Network" || !entity || !rest.empty())
        return std::nullopt;
    if (area == "Interface") {
        const auto found = byName_.find(*name);
        return found == byName_.end() ? std::nullopt : interfaceValue(devices_[found->second], *entity);
    }
    const auto *device = area == "Service" ? deviceOfID(*name) : nullptr;
    return device ? serviceValue(*device, *entity) : std::nullopt;
}

std::optional<Value> SynthesizedStore::interfaceValue(const Device &device, std::string_view entity) const {
    if (entity == "Link")
        return Value::Dictionary{{"Active", device.link->hasCarrier}};
    if (entity != "IPv4" && entity != "IPv6")
        return std::nullopt;
    const auto &list = entity == "IPv4" ? device.ipv4 : device.ipv6;
    if (list.empty())
        return std::nullopt;
    Value::Array addresses;
    Value::Array flags;
    for (const auto *address : list) {
        addresses.emplace_back(address->address.text());
        flags.emplace_back(ipv6FlagsFromLinux(address->flags));
    }
    Value::Dictionary entries{{"Addresses", std::move(addresses)}};
    if (entity == "IPv6")
        entries.emplace_back("Flags", std::move(flags));
    return entries;
}

std::optional<Value> SynthesizedStore::serviceValue(const Device &device, std::string_view entity) const {
    if (!device.hasService && (entity != "DNS" || device.domains.empty()))
        return std::nullopt;
    if (entity == "IPv4" || entity == "IPv6") {
        const auto *route = entity == "IPv4" ? device.route4 : device.route6;
        if (!route)
            return std::nullopt;
        return Value::Dictionary{{"InterfaceName", device.link->name}, {"Router", route->gateway.text()}};
    }
    if (entity == "DHCP" && device.lease)
        return Value(Value::Dictionary());
    if (entity != "DNS" || device.dnsServers.empty())
        return std::nullopt;
    Value::Dictionary entries{{"ServerAddresses", Value::strings(device.dnsServers)}};
    if (!device.domains.empty())
        entries.emplace_back("SupplementalMatchDomains", Value::strings(device.domains));
    return entries;
}

std::vector<std::string> SynthesizedStore::serviceOrder() const {
    std::vector<const Device *> services;
    for (const auto &device : devices_)
        if (device.hasService)
            services.push_back(&device);
    std::ranges::sort(services, {},
                      [](const Device *device) { return std::tuple(device->metric(), device->link->index); });
    std::vector<std::string> order;
    for (const auto *device : services)
        order.push_back(serviceIDForDevice(device->link->name));
    return order;
}

std::optional<NetworkService> SynthesizedStore::service(std::string_view serviceID) const {
    const auto *device = deviceOfID(serviceID);
    if (!device || !device->hasService)
        return std::nullopt;
    const auto &link = *device->link;
    NetworkService service;
    service.hasInterface = true;
    service.bsdName = link.name;
    service.interfaceType = link.isWireless ? "IEEE80211" : "Ethernet";
    if (!link.alias.empty())
        service.interfaceDisplayName = link.alias;
    if (!link.driver.empty())
        service.driver = link.driver;
    const auto *managed = device->managed;
    service.name = managed && !managed->profile.empty() ? managed->profile : link.name;
    service.enabled = !managed || !managed->isDisabled;
    return service;
}

} // namespace tarn
