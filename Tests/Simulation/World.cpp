#include "Simulation/World.h"

#include "TarnSystem/IPProtocolConfig.h"
#include "TarnlinkDaemon/Daemon.h"
#include "TarnlinkDaemon/Seal.h"

#include <algorithm>

namespace tarn::sim {
namespace {

constexpr std::uint64_t owner = 0;
constexpr const char *resolverKey = "State:/Network/Service/vpn/DNS";
constexpr std::array protocolNames = {"IPv4", "IPv6"};
constexpr std::array serverNames = {"answers", "is slow", "is flaky", "is closed", "is silent"};

ProtocolConfiguration method(const char *name) {
    return {Value::Dictionary{{"ConfigMethod", name}}, true};
}

std::size_t index(IPProtocol protocol) {
    return protocol == IPProtocol::ipv4 ? 0 : 1;
}

std::string onOff(bool isOn) {
    return isOn ? " on" : " off";
}

std::string joined(const std::vector<std::string> &list) {
    std::string text;
    for (const auto &one : list)
        text += (text.empty() ? "" : " ") + one;
    return text;
}

/// Nobody remembers the place of a phone while it is away.
std::vector<std::string> withoutPhone(std::vector<std::string> order) {
    std::erase(order, "service-usb0");
    return order;
}

bool names(const std::vector<ServiceName> &services, const std::string &serviceID) {
    return std::ranges::find(services, serviceID, &ServiceName::serviceID) != services.end();
}

} // namespace

/// A session with the VPN's resolver.
class World::Store final : public DynamicStore {
public:
    explicit Store(World &world) : world_(world) {}

    std::optional<std::vector<std::string>> copyKeyList(const std::string &) override {
        if (world_.servers_.empty())
            return std::vector<std::string>();
        return std::vector<std::string>{resolverKey};
    }
    std::optional<Value> copyValue(const std::string &) override {
        if (world_.servers_.empty())
            return std::nullopt;
        return Value::Dictionary{{"ServerAddresses", Value::strings(world_.servers_)},
                                 {"SupplementalMatchDomains", Value::strings({"corp.example"})}};
    }
    std::optional<std::string> setValue(const std::string &key, const Value &value) override;

private:
    World &world_;
};

std::optional<std::string> World::Store::setValue(const std::string &, const Value &value) {
    std::vector<std::string> wanted;
    for (const auto &server : *value.find("ServerAddresses")->array())
        wanted.push_back(*server.string());
    if (wanted == world_.servers_)
        return std::nullopt;
    const bool takesAway = wanted != world_.ownServers_;
    const auto luck = world_.attempt("resolver asks " + wanted.front() + " first", false);
    if (luck == Luck::fails || world_.servers_.empty())
        return "the resolver does not answer";
    const auto journal = world_.journalOnDisk();
    const bool isWritten =
        journal && std::ranges::any_of(journal->resolvers, [&](const Journal::Resolver &resolver) {
            return resolver.key == resolverKey && resolver.before == world_.servers_;
        });
    world_.require(!takesAway || isWritten, "the resolver's order");
    if (luck == Luck::works) {
        world_.servers_ = wanted;
        world_.observer_.changed(resolverKey);
    }
    world_.attempted();
    return std::nullopt;
}

World::World(VirtualTime &time, std::uint64_t seed, Observer &observer)
    : random(seed), time_(time), observer_(observer), hasRadio_(!random.oneIn(20)) {
    for (const char *name : {"eth0", "eth1", "usb0", "wlan0"})
        devices_.push_back({.name = name});
    devices_[2].isTethering = true;
    devices_.back().kind = InterfaceKind::wifi;
    devices_.back().isInReach = true;
    for (const auto &device : devices_)
        order_.push_back(device.service());
    ownOrder_ = order_;
    protocols_ = {method("DHCP"), method("Automatic")};
    ownProtocols_ = protocols_;
    settle();
}

World::Device &World::find(const std::string &serviceID) {
    const auto found = std::ranges::find(devices_, serviceID, &Device::service);
    // A phone that is gone took its service along.
    if (found == devices_.end() || (found->isTethering && !found->isInReach))
        throw ServiceControlError(ServiceControlError::Kind::notFound, "There is no such service.");
    return *found;
}

bool World::isAddressLess(IPProtocol protocol, bool own) const {
    const auto &config = (own ? ownProtocols_ : protocols_)[index(protocol)];
    return IPProtocolConfig::isAddressLess(config.entries.value_or(Value()), config.enabled,
                                           protocol == IPProtocol::ipv4);
}

bool World::canWiFiCarry(bool own) const {
    const Device &wifi = devices_.back();
    return !hasRadio_ || ((own ? ownPower_ : power_) && (own ? wifi.ownEnabled : wifi.enabled) &&
                          !(isAddressLess(IPProtocol::ipv4, own) && isAddressLess(IPProtocol::ipv6, own)));
}

bool World::hasLink(const Device &device) const {
    return device.isInReach && (device.kind == InterfaceKind::wired || (power_ && device.enabled));
}

bool World::mayWork(const Device &device, const DaemonConfig &config) const {
    return device.kind == InterfaceKind::wired && device.enabled && device.isAddressed && device.hasRouter &&
           (config.probeMode == ProbeMode::off || !device.hasServers || device.server < Server::closed);
}

bool World::hasWiredPath(const DaemonConfig &config) const {
    return std::ranges::any_of(devices_, [&](const Device &device) { return mayWork(device, config); });
}

bool World::isOnline(const DaemonConfig &config) const {
    return hasWiredPath(config) || (hasRadio_ && devices_.back().isAddressed);
}

bool World::isAvailable(const DaemonConfig &config) const {
    const Device &wifi = devices_.back();
    if (hasRadio_ && wifi.isInReach && wifi.hasDHCP && canWiFiCarry(true))
        return true;
    return std::ranges::any_of(devices_, [&](const Device &device) {
        return mayWork(device, config) && device.server != Server::flaky;
    });
}

std::size_t World::linkedCables() const {
    return static_cast<std::size_t>(std::ranges::count_if(devices_, [](const Device &device) {
        return device.kind == InterfaceKind::wired && device.isInReach;
    }));
}

std::string World::wifiLeftovers() const {
    std::string found;
    if (ownPower_ && !power_)
        found += " radio";
    if (devices_.back().ownEnabled && !devices_.back().enabled)
        found += " " + devices_.back().service();
    for (const auto protocol : {IPProtocol::ipv4, IPProtocol::ipv6})
        if (!isAddressLess(protocol, true) && isAddressLess(protocol, false))
            found += std::string(" ") + protocolNames[index(protocol)];
    return found;
}

std::string World::leftovers() const {
    auto found = wifiLeftovers();
    for (const auto protocol : {IPProtocol::ipv4, IPProtocol::ipv6})
        if (!isAddressLess(protocol, true) && !isAddressLess(protocol, false) &&
            protocols_[index(protocol)] != ownProtocols_[index(protocol)])
            found += std::string(" other ") + protocolNames[index(protocol)];
    for (const auto &device : devices_)
        if (&device != &devices_.back() && device.ownEnabled && !device.enabled)
            found += " " + device.service();
    if (withoutPhone(order_) != withoutPhone(ownOrder_))
        found += " order (" + joined(order_) + ", not " + joined(ownOrder_) + ")";
    if (servers_ != ownServers_)
        found += " resolver";
    return found;
}

void World::forgetOwnersOfWiFi() {
    ownPower_ = power_;
    devices_.back().ownEnabled = devices_.back().enabled;
    ownProtocols_ = protocols_;
}

void World::forgetOwnersOfOthers() {
    for (auto &device : devices_)
        if (device.kind == InterfaceKind::wired)
            device.ownEnabled = device.enabled;
    ownOrder_ = order_;
    ownServers_ = servers_;
}

InterfaceSnapshot World::snapshot(const Device &device) const {
    InterfaceSnapshot shot;
    shot.device = device.name;
    shot.kind = device.kind;
    shot.serviceID = device.service();
    shot.serviceName = device.name;
    shot.serviceEnabled = device.enabled;
    shot.serviceOrderIndex = std::ranges::find(order_, device.service()) - order_.begin();
    shot.linkActive = hasLink(device);
    shot.isTethering = device.isTethering;
    if (!device.isAddressed)
        return shot;
    const std::string subnet = std::to_string(device.name.back() - '0') + std::to_string(device.network);
    const bool isWiFi = device.kind == InterfaceKind::wifi;
    if (!isWiFi || !isAddressLess(IPProtocol::ipv4))
        shot.ipv4 = {"10.0." + subnet + ".2"};
    if (isWiFi && !isAddressLess(IPProtocol::ipv6))
        shot.ipv6 = {{"2001:db8::" + subnet, 0}};
    if (device.hasRouter) {
        shot.ipv4Router = "10.0." + subnet + ".1";
        shot.hasDHCPLease = true;
    }
    if (device.hasServers)
        shot.dnsServers = {"10.0." + subnet + ".1"};
    return shot;
}

void World::settle() {
    for (auto &device : devices_) {
        if (device.isTethering && !device.isInReach)
            device.enabled = device.ownEnabled;
        const bool isHeld = device.kind == InterfaceKind::wifi && isAddressLess(IPProtocol::ipv4) &&
                            isAddressLess(IPProtocol::ipv6);
        if (!hasLink(device) || !device.enabled || !device.hasDHCP || isHeld) {
            device.isAddressed = false;
            device.lease = 0;
        } else if (!device.isAddressed && device.lease == 0) {
            device.lease = ++leases_;
            time_.at(time_.now() + random.time(0.2, 4), owner, [this, &device, lease = device.lease] {
                if (device.lease != lease)
                    return;
                device.isAddressed = true;
                device.lease = 0;
                settle();
            });
        }
    }
    std::vector<const Device *> present;
    for (const auto &device : devices_)
        if (device.kind == InterfaceKind::wifi ? hasRadio_ : !device.isTethering || device.isInReach)
            present.push_back(&device);
    std::ranges::sort(present, {},
                      [&](const Device *device) { return std::ranges::find(order_, device->service()); });
    std::vector<InterfaceSnapshot> before = std::move(snapshots_);
    snapshots_.clear();
    for (const auto *device : present)
        snapshots_.push_back(snapshot(*device));
    for (const auto &shot : snapshots_)
        if (std::ranges::find(before, shot) == before.end())
            observer_.changed("State:/Network/Interface/" + shot.device + "/Link");
    if (before.size() > snapshots_.size())
        observer_.changed("State:/Network/Interface/usb0/Link");
}

void World::disturb(const Device &device) {
    observer_.disturbed();
    settle();
    observer_.changed("Setup:/Network/Service/" + device.service());
}

void World::restartManager() {
    for (auto &device : devices_)
        device.enabled = device.ownEnabled;
    protocols_ = ownProtocols_;
    servers_ = ownServers_;
    disturb(devices_.back());
    observer_.changed(resolverKey);
}

void World::cutPower() {
    // Some systems keep what was configured, others only what was so at their last start.
    if (!random.oneIn(3)) {
        for (auto &device : devices_)
            device.enabled = device.ownEnabled;
        protocols_ = ownProtocols_;
        power_ = random.oneIn(2) ? ownPower_ : power_;
    }
    servers_ = ownServers_;
    ++boots_;
    bootAt_ = trueNow();
    disturb(devices_.back());
}

void World::setClock() {
    // Years back and forth.
    wall_ = seconds(random.between(1.5e9, 2e9)) - trueNow();
}

bool World::isUnsteady() const {
    return isRefusing || isUnreadable || std::ranges::any_of(devices_, [](const Device &device) {
               return device.kind == InterfaceKind::wired && device.server == Server::flaky;
           });
}

bool World::damageJournal() {
    const auto found = files.find(Daemon::journalName);
    if (found == files.end() || found->second.empty())
        return false;
    auto &byte = found->second[random.below(found->second.size())];
    byte = static_cast<char>(byte ^ static_cast<char>(1 + random.below(255)));
    observer_.note("a byte of the journal is flipped");
    forgetOwnersOfOthers();
    return true;
}

void World::happen() {
    Device &wifi = devices_.back();
    Device &device = devices_[random.below(devices_.size())];
    const auto say = [&](const std::string &what) { observer_.note("world: " + what); };
    const auto mostly = [&] { return !random.oneIn(4); };
    auto kind = random.below(24);
    // What somebody changes while it cannot look, or has not seen yet what it did itself, the daemon takes
    // for its own doing; a reading may hang for a minute.
    if (kind >= 8 && kind <= 15 &&
        (isUnreadable || time_.now() < unreadableAt_ + seconds(70) || time_.now() < switchedAt_ + seconds(5)))
        kind = 18;
    if (kind >= 8 && kind <= 15)
        ownChangedAt = time_.now();
    switch (kind) {
    default:
        device.isInReach = !device.isInReach || random.oneIn(2);
        say(device.name + (device.isInReach ? " plugged in" : " pulled out"));
        break;
    case 0:
        say(device.name + " flaps");
        for (std::size_t i = random.below(16) + 2; i > 0; --i)
            time_.at(time_.now() + random.time(0, 20), owner, [this, &device] {
                device.isInReach = !device.isInReach;
                disturb(device);
            });
        break;
    case 1:
    case 2:
    case 3:
        device.server = mostly() ? Server::answers : static_cast<Server>(random.below(5));
        say("name server behind " + device.name + " " + serverNames[static_cast<std::size_t>(device.server)]);
        break;
    case 4:
        device.hasDHCP = mostly();
        say(device.name + " DHCP" + onOff(device.hasDHCP));
        break;
    case 5:
        device.hasRouter = mostly();
        say(device.name + " router" + onOff(device.hasRouter));
        break;
    case 6:
        device.network = device.network % 9 + 1;
        say(device.name + " gets other addresses");
        break;
    case 7:
        device.hasServers = mostly();
        say(device.name + " name servers" + onOff(device.hasServers));
        break;
    case 8:
    case 9:
        power_ = !power_ || !random.oneIn(3);
        ownPower_ = power_;
        say("somebody sets the radio" + onOff(power_));
        disturb(wifi);
        return observer_.changed("State:/Network/Interface/wlan0/Link");
    case 10:
    case 11:
        if (device.isTethering && !device.isInReach)
            return;
        device.enabled = !device.enabled || !random.oneIn(3);
        device.ownEnabled = device.enabled;
        say("somebody sets " + device.service() + onOff(device.enabled));
        break;
    case 12: {
        const std::size_t which = random.below(2);
        protocols_[which] = which == 0 ? method("Manual") : method("Automatic");
        protocols_[which].entries->set("Addresses", static_cast<std::int64_t>(random.below(5)));
        if (random.oneIn(6))
            protocols_[which] = method("Off");
        ownProtocols_[which] = protocols_[which];
        say(std::string("somebody configures Wi-Fi's ") + protocolNames[which]);
        return disturb(wifi);
    }
    case 13:
        say("the network's manager starts again");
        return restartManager();
    case 14:
        // Wi-Fi never last: nobody could tell that from what the daemon does.
        order_ = {wifi.service(), devices_[0].service(), devices_[1].service(), devices_[2].service()};
        std::swap(order_[random.below(2)], order_[1 + random.below(2)]);
        if (order_[2] == wifi.service())
            std::swap(order_[2], order_[0]);
        ownOrder_ = order_;
        say("somebody sets the order " + joined(order_));
        break;
    case 15:
        servers_ = servers_.empty() ? std::vector<std::string>{"fe80::1%usb0", "10.8.0.53"}
                                    : std::vector<std::string>();
        ownServers_ = servers_;
        say("VPN" + onOff(!servers_.empty()));
        observer_.disturbed();
        return observer_.changed(resolverKey);
    case 16:
        isRefusing = !isRefusing && random.oneIn(2);
        say(isRefusing ? "every change is refused" : "changes are possible");
        break;
    case 17:
        diskFullAt = isDiskFull ? time_.now() : diskFullAt;
        isDiskFull = !isDiskFull && random.oneIn(2);
        faults += isDiskFull;
        say(isDiskFull ? "the disk is full" : "the disk has room");
        break;
    case 18:
        unreadableAt_ = isUnreadable ? time_.now() : unreadableAt_;
        isUnreadable = !isUnreadable && random.oneIn(2) && ownChangedAt + seconds(5) < time_.now();
        faults += isUnreadable;
        say(isUnreadable ? "the network cannot be read" : "the network can be read");
        break;
    }
    disturb(device);
}

Moment World::now() {
    // Somebody may set the wall clock to any time: the rest of the sum is the world's own.
    return {trueNow() - bootAt_, wall_ + trueNow()};
}

std::vector<InterfaceSnapshot> World::readInterfaces() {
    if (isUnreadable || random.oneIn(200)) {
        addFault();
        throw SystemStateError("The system does not answer.");
    }
    return snapshots_;
}

std::optional<KernelTables::ByteCounts> World::bytes(const std::string &device) {
    const auto found = std::ranges::find(devices_, device, &Device::name);
    if (found == devices_.end() || !hasLink(*found))
        return std::nullopt;
    const auto sent = static_cast<std::uint64_t>(time_.now().count() / 1'000'000);
    if (found->server <= Server::slow && found->hasRouter)
        found->received = sent;
    return KernelTables::ByteCounts{found->received, sent};
}

std::pair<Time, ProbeOutcome> World::answer(const std::string &device, const std::string &server,
                                            double timeout) {
    const auto found = std::ranges::find(devices_, device, &Device::name);
    if (found == devices_.end() || !found->isAddressed)
        return {seconds(0.001), ProbeOutcome::error("Network is unreachable")};
    if (server.find('%') == std::string::npos && !found->hasServers)
        return {seconds(timeout), ProbeOutcome::timeout()};
    switch (found->server) {
    case Server::closed:
        return {seconds(0.003), ProbeOutcome::error("Connection refused")};
    case Server::flaky:
        if (random.oneIn(2))
            break;
        [[fallthrough]];
    case Server::slow:
    case Server::answers: {
        const double share = found->server == Server::answers ? 0.02 : 0.9;
        const double latency = random.between(0.001, timeout * share);
        return {seconds(latency), ProbeOutcome::reachable(latency)};
    }
    case Server::silent:
        break;
    }
    return {seconds(timeout), ProbeOutcome::timeout()};
}

void World::addFault() {
    ++faults;
    faultAt = time_.now();
    observer_.disturbed();
}

Time World::readingTime() {
    const bool isSlow = random.oneIn(100);
    if (isSlow)
        addFault();
    if (isUnreadable && random.oneIn(2))
        return random.time(20, 60);
    return random.time(0.0005, isSlow ? 3 : 0.01);
}

void World::die() {
    isDead = true;
    observer_.note("the daemon is killed in the middle of it");
    throw Crash{};
}

World::Luck World::attempt(const std::string &what, bool takesAway) {
    if (isDead)
        throw Crash{};
    switchedAt_ = time_.now();
    observer_.switching(what, takesAway);
    if (random.oneIn(300))
        die();
    busy += random.time(0.002, 0.1);
    const bool isSlow = random.oneIn(50);
    const Luck luck = isRefusing || random.oneIn(40) ? Luck::fails
                      : random.oneIn(100)            ? Luck::pretends
                                                     : Luck::works;
    if (isSlow)
        busy += random.time(0, 10);
    if (isSlow || luck != Luck::works) {
        addFault();
        pretences += luck == Luck::pretends;
    }
    observer_.note("  " + what +
                   (luck == Luck::fails      ? ": fails"
                    : luck == Luck::pretends ? ": nothing happens"
                                             : ""));
    return luck;
}

void World::attempted() {
    settle();
    if (random.oneIn(300))
        die();
}

void World::require(bool isWritten, const std::string &what) {
    if (!isWritten)
        observer_.violated("the daemon takes away " + what + ", and its journal on disk does not say so");
}

std::optional<Journal> World::journalOnDisk() const {
    const auto found = files.find(Daemon::journalName);
    if (found == files.end())
        return std::nullopt;
    try {
        return Journal::decode(unseal(found->second));
    } catch (const DecodingError &) {
    }
    return std::nullopt;
}

std::optional<bool> World::powerOn() {
    return hasRadio_ ? std::optional(power_) : std::nullopt;
}

void World::setPower(bool on) {
    if (!hasRadio_)
        return;
    const auto luck = attempt("radio" + onOff(on), !on);
    if (luck == Luck::fails)
        throw WiFiControlError::networkManager("The radio does not answer.");
    const auto journal = journalOnDisk();
    require(on || (journal && journal->wifi && journal->wifi->mode == WiFiOffMode::radio), "the radio");
    if (luck == Luck::works) {
        power_ = on;
        ownPower_ |= on;
        observer_.changed("State:/Network/Interface/wlan0/Link");
    }
    attempted();
}

void World::setEnabled(const std::string &serviceID, bool enabled) {
    Device &device = find(serviceID);
    if (device.enabled == enabled)
        return;
    const auto luck = attempt(serviceID + onOff(enabled), !enabled);
    if (luck == Luck::fails)
        throw ServiceControlError(ServiceControlError::Kind::failed, "The manager does not answer.");
    const auto journal = journalOnDisk();
    require(enabled || (journal && (names(journal->disabledServices, serviceID) ||
                                    (journal->wifi && names(journal->wifi->services, serviceID)))),
            serviceID);
    if (luck == Luck::works) {
        device.enabled = enabled;
        device.ownEnabled |= enabled;
    }
    attempted();
}

void World::reorder(const std::vector<std::string> &serviceIDs) {
    std::vector<std::string> wanted = serviceIDs;
    std::erase_if(
        wanted, [&](const auto &serviceID) { return std::ranges::find(order_, serviceID) == order_.end(); });
    for (const auto &serviceID : order_)
        if (std::ranges::find(wanted, serviceID) == wanted.end())
            wanted.push_back(serviceID);
    if (wanted == order_)
        return;
    const bool takesAway = wanted != ownOrder_;
    const auto luck = attempt("order " + joined(wanted), false);
    if (luck == Luck::fails)
        throw ServiceControlError(ServiceControlError::Kind::busy, "Somebody holds the lock.");
    const auto journal = journalOnDisk();
    require(!takesAway || (journal && journal->order), "the order of services");
    if (luck == Luck::works)
        order_ = wanted;
    attempted();
}

ProtocolConfiguration World::configuration(const std::string &serviceID, IPProtocol protocol) {
    return find(serviceID).kind == InterfaceKind::wifi ? protocols_[index(protocol)] : method("DHCP");
}

void World::setConfiguration(const std::string &serviceID, IPProtocol protocol,
                             const ProtocolConfiguration &configuration) {
    find(serviceID);
    auto &present = protocols_[index(protocol)];
    if (present == configuration)
        return;
    const bool takesAway = IPProtocolConfig::isAddressLess(
        configuration.entries.value_or(Value()), configuration.enabled, protocol == IPProtocol::ipv4);
    const auto luck =
        attempt(std::string("Wi-Fi's ") + protocolNames[index(protocol)] + onOff(!takesAway), takesAway);
    if (luck == Luck::fails)
        throw ServiceControlError(ServiceControlError::Kind::unavailable, "The manager does not answer.");
    const auto journal = journalOnDisk();
    const bool isWritten =
        journal && journal->wifi &&
        std::ranges::find(journal->wifi->protocols, Journal::SavedProtocol{serviceID, protocol, present}) !=
            journal->wifi->protocols.end();
    require(!takesAway || isWritten, std::string("Wi-Fi's ") + protocolNames[index(protocol)]);
    if (luck == Luck::works) {
        present = configuration;
        if (!takesAway && isAddressLess(protocol, true))
            ownProtocols_[index(protocol)] = configuration;
        observer_.changed("Setup:/Network/Service/" + serviceID);
    }
    attempted();
}

std::unique_ptr<DynamicStore> World::openStore() {
    return std::make_unique<Store>(*this);
}

StateFolder::ReadResult World::read(const std::string &name) {
    const auto found = files.find(name);
    return found == files.end() ? ReadResult{} : ReadResult{found->second, {}};
}

template <class Change> std::optional<std::string> World::write(const std::string &name, Change change) {
    if (isDead)
        throw Crash{};
    const bool matters = name == Daemon::journalName;
    if (matters && random.oneIn(200))
        die();
    busy += random.time(0.0005, 0.02);
    if (auto error = change())
        return error;
    if (matters && random.oneIn(200))
        die();
    return std::nullopt;
}

std::optional<std::string> World::replace(const std::string &name, std::string_view contents) {
    return write(name, [&]() -> std::optional<std::string> {
        if (isDiskFull)
            return "No space left on device";
        files[name] = contents;
        return std::nullopt;
    });
}

std::optional<std::string> World::append(const std::string &name, std::string_view contents) {
    return write(name, [&]() -> std::optional<std::string> {
        if (isDiskFull)
            return "No space left on device";
        files[name] += contents;
        return std::nullopt;
    });
}

std::optional<std::string> World::remove(const std::string &name) {
    return write(name, [&]() -> std::optional<std::string> {
        files.erase(name);
        return std::nullopt;
    });
}

std::optional<std::string> World::keepCopy(const std::string &name) {
    return name + ".damaged-1";
}

} // namespace tarn::sim
