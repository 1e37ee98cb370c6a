// What the guard wants changed, given what it decided and what the journal says is ours.

#include "TarnSystem/IPProtocolConfig.h"
#include "TarnlinkDaemon/Guard.h"

#include <algorithm>
#include <array>
#include <tuple>

namespace tarn {
namespace {

using Kind = Command::Kind;

struct ProtocolOf {
    IPProtocol protocol;
    const std::optional<ProtocolConfiguration> Reading::WiFiService::*configuration;
};
constexpr std::array protocols = {ProtocolOf{IPProtocol::ipv4, &Reading::WiFiService::ipv4},
                                  ProtocolOf{IPProtocol::ipv6, &Reading::WiFiService::ipv6}};

bool isIPv4(IPProtocol protocol) {
    return protocol == IPProtocol::ipv4;
}

ProtocolConfiguration addressLess(IPProtocol protocol) {
    return {Value::Dictionary{{std::string(IPProtocolConfig::configMethodKey),
                               IPProtocolConfig::addressLessMethod(isIPv4(protocol))}},
            true};
}

Command::ProtocolChange restoring(const std::string &serviceID, IPProtocol protocol,
                                  const std::optional<Value> &saved) {
    return {serviceID, protocol, std::nullopt, {IPProtocolConfig::restored(saved, isIPv4(protocol)), true}};
}

template <class List> auto findService(List &list, const std::string &serviceID) {
    return std::ranges::find_if(list, [&](const auto &entry) { return entry.serviceID == serviceID; });
}

template <class List> bool hasService(const List &list, const std::string &serviceID) {
    return findService(list, serviceID) != list.end();
}

auto findProtocol(std::vector<Journal::SavedProtocol> &list, const std::string &serviceID,
                  IPProtocol protocol) {
    return std::ranges::find_if(
        list, [&](const auto &entry) { return entry.serviceID == serviceID && entry.protocol == protocol; });
}

std::vector<std::string> serviceOrder(const std::vector<InterfaceSnapshot> &interfaces) {
    std::vector<const InterfaceSnapshot *> ordered;
    for (const auto &snapshot : interfaces)
        if (snapshot.serviceID && snapshot.serviceOrderIndex)
            ordered.push_back(&snapshot);
    std::ranges::stable_sort(ordered, {}, [](const auto *snapshot) { return *snapshot->serviceOrderIndex; });
    std::vector<std::string> order;
    for (const auto *snapshot : ordered)
        order.push_back(*snapshot->serviceID);
    return order;
}

/// How the services of an earlier order stand now: as then, as we put them (the wired ones first), or as
/// somebody else has put them since. Services that are not there now, or were not then, do not count, and
/// neither do phones: away while the others were put in order, they come back behind Wi-Fi.
enum class Standing { asBefore, asOurs, otherwise };
Standing standing(const std::vector<std::string> &before, const std::vector<InterfaceSnapshot> &interfaces) {
    const auto common = [&](std::vector<std::string> list, const std::vector<std::string> &other) {
        std::erase_if(list, [&](const auto &one) {
            return std::ranges::find(other, one) == other.end() ||
                   std::ranges::any_of(interfaces, [&](const InterfaceSnapshot &snapshot) {
                       return snapshot.serviceID == one && snapshot.isTethering;
                   });
        });
        return list;
    };
    const auto order = serviceOrder(interfaces);
    const auto present = common(order, before);
    auto expected = common(before, order);
    if (present == expected)
        return Standing::asBefore;
    std::ranges::stable_partition(expected, [&](const auto &service) {
        return std::ranges::any_of(interfaces, [&](const InterfaceSnapshot &snapshot) {
            return snapshot.serviceID == service && snapshot.kind == InterfaceKind::wired;
        });
    });
    return present == expected ? Standing::asOurs : Standing::otherwise;
}

bool isLinkLocalOn(const std::string &server, const std::string &device) {
    return server.starts_with("fe80:") && server.ends_with("%" + device);
}

} // namespace

std::vector<Guard::Wish> Guard::wishes() const {
    std::vector<Wish> list;
    if (isAwaitingReading())
        return list;
    if (isStopping_) {
        if (mustSwitchOn())
            list.push_back(wifiOn());
        else
            addWiFiUndoing(list);
        addUndoing(list, true);
        if (isFlushDue_)
            list.push_back({flushKey, {.kind = Kind::flushCache}, std::nullopt});
        return list;
    }
    if (!decision_)
        return list;
    if (mustSwitchOn())
        list.push_back(wifiOn());
    for (const auto &action : decision_->actions) {
        switch (action.kind) {
        case Action::Kind::setWiFiPower:
            if (mustSwitchOn())
                break;
            if (action.power)
                // Whoever is offline waits for nothing else.
                list.insert(list.begin(), wifiOn());
            else if (auto wish = wifiOff())
                list.push_back(*std::move(wish));
            break;
        case Action::Kind::enableService:
            list.push_back({"enable " + action.serviceID,
                            {.kind = Kind::enableService, .services = {{action.serviceID, action.name}}},
                            std::nullopt});
            break;
        case Action::Kind::disableService: {
            auto journal = journal_;
            if (!hasService(journal.disabledServices, action.serviceID))
                journal.disabledServices.push_back({action.serviceID, action.name});
            list.push_back({"disable " + action.serviceID,
                            {.kind = Kind::disableService, .services = {{action.serviceID, action.name}}},
                            std::move(journal)});
            break;
        }
        case Action::Kind::reorderServices: {
            auto journal = journal_;
            if (!journal.order || standing(*journal.order, reading_.interfaces) == Standing::otherwise)
                journal.order = serviceOrder(reading_.interfaces);
            list.push_back(
                {"order", {.kind = Kind::reorderServices, .order = action.order}, std::move(journal)});
            break;
        }
        case Action::Kind::probe:
            break;
        }
    }
    // One service with one protocol can carry; what else we took off is owed all the same.
    const auto status = decision_->status.kind;
    if (status != Status::Kind::wired && status != Status::Kind::wiredPending && !mustSwitchOn() &&
        reading_.canWiFiCarry())
        addWiFiUndoing(list);
    if (!config_.enabled || isPaused())
        // Nobody minds them now, and they may be the only path left.
        addUndoing(list, !config_.enabled);
    else
        addResolverWishes(list);
    if (isFlushDue_)
        list.push_back({flushKey, {.kind = Kind::flushCache}, std::nullopt});
    return list;
}

Guard::Wish Guard::wifiOn() const {
    const auto ours = journal_.wifi.value_or(Journal::WiFi{WiFiOffMode::address, {}, {}, false});
    // A reading from before it was switched last proves nothing.
    const bool isCurrent = isWiFiCurrent();
    Command command{.kind = Kind::wifiOn,
                    .power = mustSwitchOn() || reading_.wifiPower == false ||
                             (!isCurrent && ours.mode == WiFiOffMode::radio),
                    .services = ours.services};
    for (const auto &saved : ours.protocols) {
        if (!isCurrent || !isBack(saved))
            command.protocols.push_back(
                restoring(saved.serviceID, saved.protocol, saved.configuration.entries));
    }
    for (const auto &service : reading_.wifiServices) {
        if (!service.enabled && !hasService(command.services, service.serviceID))
            command.services.push_back({service.serviceID, service.name});
        if (hasService(ours.protocols, service.serviceID))
            continue;
        // Taken off by somebody else, and wanted all the same; or by us, nobody knows how far.
        const bool isOff = service.isAddressLess();
        if (isOff || (ours.isUnknown && service.ipv4 && isAddressLess(*service.ipv4, IPProtocol::ipv4)))
            command.protocols.push_back(restoring(service.serviceID, IPProtocol::ipv4, std::nullopt));
        if (isOff)
            command.protocols.push_back(restoring(service.serviceID, IPProtocol::ipv6, std::nullopt));
    }
    return {wifiOnKey, std::move(command), std::nullopt};
}

const ProtocolConfiguration *Guard::configurationOf(const std::string &serviceID, IPProtocol protocol) const {
    const auto service = findService(reading_.wifiServices, serviceID);
    if (service == reading_.wifiServices.end())
        return nullptr;
    const auto &configuration = isIPv4(protocol) ? service->ipv4 : service->ipv6;
    return configuration ? &*configuration : nullptr;
}

std::optional<Guard::Wish> Guard::wifiOff() const {
    if (!reading_.wifiPower && reading_.wifiServices.empty())
        return std::nullopt;
    Command command{.kind = Kind::wifiOff, .mode = config_.wifiOffMode};
    auto journal = journal_;
    if (!journal.wifi)
        journal.wifi = Journal::WiFi{};
    auto &ours = *journal.wifi;
    // A radio that was switched off earlier stays ours; the rest is undone in every mode.
    if (!journal_.wifi || ours.mode != WiFiOffMode::radio)
        ours.mode = config_.wifiOffMode;
    for (const auto &service : reading_.wifiServices) {
        if (!service.enabled || service.isAddressLess())
            continue;
        if (config_.wifiOffMode == WiFiOffMode::service) {
            command.services.push_back({service.serviceID, service.name});
            if (!hasService(ours.services, service.serviceID))
                ours.services.push_back({service.serviceID, service.name});
        }
        if (config_.wifiOffMode != WiFiOffMode::address)
            continue;
        for (const auto &[protocol, configuration] : protocols) {
            const auto &present = service.*configuration;
            // What has no address is not ours to give one later.
            if (!present || isAddressLess(*present, protocol))
                continue;
            command.protocols.push_back({service.serviceID, protocol, present, addressLess(protocol)});
            const auto found = findProtocol(ours.protocols, service.serviceID, protocol);
            if (found == ours.protocols.end())
                ours.protocols.push_back({service.serviceID, protocol, *present});
            else
                found->configuration = *present;
        }
    }
    // Not connected: there is nothing to take off until it is.
    if (config_.wifiOffMode != WiFiOffMode::radio && command.services.empty() && command.protocols.empty())
        return std::nullopt;
    return Wish{"wifi off", std::move(command), std::move(journal)};
}

void Guard::addWiFiUndoing(std::vector<Wish> &list) const {
    if (!journal_.wifi)
        return;
    const bool isCurrent = isWiFiCurrent();
    Command command{.kind = Kind::wifiOn};
    // Where nothing can switch the radio, it may never have gone off. What is not there or not told can
    // wait until it is, but not beyond the end.
    command.power = journal_.wifi->mode == WiFiOffMode::radio &&
                    (!isCurrent || reading_.wifiPower == false || (isStopping_ && !reading_.wifiPower));
    for (const auto &service : journal_.wifi->services) {
        const auto present = findService(reading_.wifiServices, service.serviceID);
        if (!isCurrent || (present == reading_.wifiServices.end() ? isStopping_ : !present->enabled))
            command.services.push_back(service);
    }
    for (const auto &saved : journal_.wifi->protocols) {
        const auto *present = configurationOf(saved.serviceID, saved.protocol);
        if (!isCurrent || (present ? isAddressLess(*present, saved.protocol) : isStopping_))
            command.protocols.push_back(
                restoring(saved.serviceID, saved.protocol, saved.configuration.entries));
    }
    if (command.power || !command.services.empty() || !command.protocols.empty())
        list.insert(list.begin(), {wifiOnKey, std::move(command), std::nullopt});
}

bool Guard::isBack(const Journal::SavedProtocol &saved) const {
    const auto *present = configurationOf(saved.serviceID, saved.protocol);
    return present && !isAddressLess(*present, saved.protocol);
}

void Guard::forgetConfigured() {
    if (!journal_.wifi || !isWiFiCurrent())
        return;
    std::erase_if(journal_.wifi->protocols, [&](const auto &saved) { return isBack(saved); });
}

void Guard::addUndoing(std::vector<Wish> &list, bool all) const {
    for (const auto &service : journal_.disabledServices)
        list.push_back({"enable " + service.serviceID,
                        {.kind = Kind::enableService, .services = {service}},
                        std::nullopt});
    if (all && journal_.order)
        list.push_back(
            {"order back", {.kind = Kind::reorderServices, .order = *journal_.order}, std::nullopt});
    for (const auto &resolver : journal_.resolvers)
        if (all)
            list.push_back(puttingBack(resolver));
}

Guard::Wish Guard::puttingBack(const Journal::Resolver &resolver) {
    return {"resolver back " + resolver.key,
            {.kind = Kind::setServers, .order = resolver.before, .key = resolver.key},
            std::nullopt};
}

const InterfaceSnapshot *Guard::tetheringBehind(const std::vector<std::string> &servers) const {
    for (const auto &snapshot : reading_.interfaces)
        if (snapshot.isTethering && snapshot.linkActive && snapshot.serviceEnabled &&
            std::ranges::any_of(servers,
                                [&](const auto &server) { return isLinkLocalOn(server, snapshot.device); }))
            return &snapshot;
    return nullptr;
}

void Guard::addResolverWishes(std::vector<Wish> &list) const {
    for (const auto &ours : journal_.resolvers)
        if ((!config_.fixShadowedDNS || !tetheringBehind(ours.before)) &&
            std::ranges::any_of(reading_.resolvers, [&](const Reading::Resolver &resolver) {
                return resolver.key == ours.key && resolver.servers == ours.after;
            }))
            list.push_back(puttingBack(ours));
    if (!config_.fixShadowedDNS)
        return;
    for (const auto &resolver : reading_.resolvers) {
        const auto *phone = tetheringBehind(resolver.servers);
        if (!phone ||
            !VPNSplitDNS::tetheringResolverShadowsSplitDNS(VPNSplitDNS::scoped(resolver), phone->device))
            continue;
        auto servers = resolver.servers;
        std::ranges::stable_partition(
            servers, [&](const auto &server) { return !isLinkLocalOn(server, phone->device); });
        // Nobody else is there to be asked first.
        if (servers == resolver.servers)
            continue;
        auto journal = journal_;
        std::erase_if(journal.resolvers, [&](const auto &entry) { return entry.key == resolver.key; });
        journal.resolvers.push_back({resolver.key, resolver.servers, servers});
        list.push_back({"resolver " + resolver.key,
                        {.kind = Kind::setServers, .order = servers, .key = resolver.key},
                        std::move(journal)});
    }
}

Journal Guard::tidied(const std::vector<Wish> &wanted) const {
    auto journal = journal_;
    const auto isWanted = [&](const std::string &key) {
        return std::ranges::find(wanted, key, &Wish::key) != wanted.end();
    };
    // Only what is seen to be undone is forgotten; not knowing is no proof.
    if (journal.wifi && !journal.wifi->isUnknown && !isWanted("wifi off") && !isWanted(wifiOnKey)) {
        auto &ours = *journal.wifi;
        std::erase_if(ours.services, [&](const auto &entry) {
            const auto service = findService(reading_.wifiServices, entry.serviceID);
            return service != reading_.wifiServices.end() && service->enabled;
        });
        std::erase_if(ours.protocols, [&](const auto &entry) { return isBack(entry); });
        const bool isRadioUndone = ours.mode != WiFiOffMode::radio || reading_.wifiPower == true;
        if (isRadioUndone && ours.services.empty() && ours.protocols.empty())
            journal.wifi.reset();
    }
    std::erase_if(journal.disabledServices, [&](const auto &entry) {
        return !isWanted("disable " + entry.serviceID) &&
               std::ranges::any_of(reading_.interfaces, [&](const InterfaceSnapshot &snapshot) {
                   return snapshot.serviceID == entry.serviceID && snapshot.serviceEnabled;
               });
    });
    if (journal.order) {
        const auto now = standing(*journal.order, reading_.interfaces);
        // With a service away nobody can tell.
        const auto order = serviceOrder(reading_.interfaces);
        const bool isWhole = std::ranges::all_of(*journal.order, [&](const auto &service) {
            return std::ranges::find(order, service) != order.end();
        });
        if (now == Standing::otherwise || (isWhole && now == Standing::asBefore && !isWanted("order")))
            journal.order.reset();
    }
    std::erase_if(journal.resolvers, [&](const auto &entry) {
        const auto found = std::ranges::find(reading_.resolvers, entry.key, &Reading::Resolver::key);
        // Set by its owner since. One that is not there may only not be told of.
        return !isWanted("resolver " + entry.key) && found != reading_.resolvers.end() &&
               found->servers != entry.after;
    });
    return journal;
}

} // namespace tarn
