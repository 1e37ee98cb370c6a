#include "TarnSystem/SystemStateReader.h"

#include "Support/Words.h"
#include "TarnSystem/Json.h"

#include <gtest/gtest.h>
#include <map>

namespace tarn {
namespace {

/// A recorded machine.
class Machine final : public WiFiClient {
public:
    /// Devices with a link key, in the order of the key list; none when the list cannot be had.
    std::optional<std::vector<std::string>> devices = std::vector<std::string>();
    /// Store values as one JSON object; "I/" and "S/" stand for the areas of interfaces and services.
    std::string values = "{}";
    std::optional<std::vector<std::string>> order = std::vector<std::string>();
    std::map<std::string, NetworkService> services;
    std::optional<bool> power;
    bool isSynchronized = false;
    int openSessions = 0;

    NetworkService &add(const std::string &id, std::optional<std::string> device,
                        const char *type = "Ethernet") {
        order->push_back(id);
        return services[id] = {true, std::move(device), type, std::nullopt, std::nullopt, "N-" + id, true};
    }
    std::optional<bool> powerOn() override { return power; }
    std::optional<Interface> interface() override { return std::nullopt; }
    PowerResult setPower(bool) override { return {}; }
};

/// A session of either sort.
class Session final : public DynamicStore, public NetworkPreferences {
public:
    explicit Session(Machine &machine) : machine_(machine) { ++machine_.openSessions; }
    ~Session() override { --machine_.openSessions; }

    std::optional<std::vector<std::string>> copyKeyList(const std::string &pattern) override {
        EXPECT_EQ(pattern, "State:/Network/Interface/[^/]+/Link");
        if (!machine_.devices)
            return std::nullopt;
        std::vector<std::string> keys = {"State:/Network/Interface", "//State:///Network/"};
        for (const auto &device : *machine_.devices)
            keys.push_back("State:/Network/Interface/" + device + "/Link");
        return keys;
    }
    std::optional<Value> copyValue(const std::string &key) override {
        const auto *value = values_.find(key[15] + key.substr(key.find('/', 15)));
        return value ? std::optional(*value) : std::nullopt;
    }
    std::optional<std::string> setValue(const std::string &, const Value &) override { return "refused"; }
    void synchronize() override { machine_.isSynchronized = true; }
    std::optional<std::vector<std::string>> currentServiceOrder() override {
        EXPECT_TRUE(machine_.isSynchronized);
        return machine_.order;
    }
    std::optional<NetworkService> copyService(const std::string &id) override {
        return machine_.services.contains(id) ? std::optional(machine_.services[id]) : std::nullopt;
    }

private:
    Machine &machine_;
    const Value values_ = std::get<Value>(json::parse(machine_.values));
};

SystemStateReader readerOf(Machine &machine) {
    return {std::make_unique<Session>(machine), std::make_unique<Session>(machine), machine};
}

/// One line for each snapshot, in the order read: what differs from nothing.
std::string read(Machine &machine) {
    std::string text;
    const auto add = [&](bool isPresent, const std::string &word) { text += isPresent ? " " + word : ""; };
    for (const auto &entry : readerOf(machine).readInterfaces()) {
        text += (text.empty() ? "" : "\n") + entry.device + " " + std::string(rawValue(entry.kind));
        add(entry.serviceOrderIndex.has_value(), std::to_string(entry.serviceOrderIndex.value_or(0)));
        add(entry.serviceID || !entry.serviceName.empty(),
            entry.serviceID.value_or("") + "/" + entry.serviceName);
        add(!entry.serviceEnabled, "disabled");
        add(entry.linkActive, "link");
        for (const auto &address : entry.ipv4)
            add(true, address);
        for (const auto &[address, flags] : entry.ipv6)
            add(true, address + "/" + std::to_string(flags));
        for (const auto &router : {entry.ipv4Router, entry.ipv6Router})
            add(router.has_value(), "via " + router.value_or(""));
        add(entry.hasDHCPLease, "lease");
        for (const auto &server : entry.dnsServers)
            add(true, "server " + server);
        add(entry.isTethering, "tethering");
    }
    return text;
}

TEST(SystemStateReader, ServiceOrderComesFirstThenTheName) {
    Machine machine;
    machine.devices = words("en7 en2 utun3 utun9 awdl0 llw0 anpi1 anri0 ap1 lo0 en12 en10 p2p0 en0");
    machine.add("W", "en0", "IEEE80211");
    machine.order->push_back("unknown");
    machine.add("E", "en7").enabled = false;
    machine.add("no device", std::nullopt);
    machine.add("no interface", "en2").hasInterface = false;
    // A configured service is listed without a link key, too, whatever its device is called.
    machine.add("V", "utun4", "VPN");
    machine.add("U", "utun3", "ethernet");
    machine.services["U"].name.reset();
    machine.add("B", "bridge0").interfaceType.reset();
    EXPECT_EQ(read(machine),
              "en0 wifi 0 W/N-W\nen7 wired 2 E/N-E disabled\nutun4 other 5 V/N-V\nutun3 other 6 U/\n"
              "bridge0 other 7 B/N-B\nen10 wired\nen12 wired\nen2 wired\np2p0 other");
}

TEST(SystemStateReader, LastServiceOfADeviceCounts) {
    Machine machine;
    machine.devices = words("en7 en8");
    machine.add("A", "en7");
    machine.add("B", "en8");
    machine.add("C", "en7", "Bridge");
    EXPECT_EQ(read(machine), "en8 wired 1 B/N-B\nen7 other 2 C/N-C");
    machine.order.reset();
    EXPECT_EQ(read(machine), "en7 wired\nen8 wired") << "no current set";
}

TEST(SystemStateReader, ValuesAreTakenAsTheyStand) {
    Machine machine;
    machine.devices = words("en7 en8");
    machine.values = R"({
        "I/en7/Link": {"Active": true},
        "I/en7/IPv4": {"Addresses": ["10.0.0.5", "169.254.1.1"]},
        "I/en7/IPv6": {"Addresses": ["fe80::1%en7", "fd00::2", "fd00::3"], "Flags": [1024]},
        "S/E/IPv4": {"Router": "10.0.0.1"}, "S/E/IPv6": {"Router": "fe80::2%en7"}, "S/E/DHCP": {},
        "S/E/DNS": {"ServerAddresses": ["10.0.0.1", "fd00::53"]},
        "I/en8/Link": {"Active": false}, "I/en8/IPv6": {"Addresses": ["fd00::8"], "Flags": [2, 4]}})";
    machine.add("E", "en7");
    EXPECT_EQ(read(machine),
              "en7 wired 0 E/N-E link 10.0.0.5 169.254.1.1 fe80::1%en7/1024 fd00::2/0 fd00::3/0 "
              "via 10.0.0.1 via fe80::2%en7 lease server 10.0.0.1 server fd00::53\nen8 wired fd00::8/2");
}

TEST(SystemStateReader, ValuesOfAnotherTypeCountAsAbsent) {
    for (
        const char *values :
        {R"({"I/en7/Link": true, "I/en7/IPv4": ["10.0.0.5"], "I/en7/IPv6": "fd00::2", "S/E/IPv4": "10.0.0.1",
              "S/E/IPv6": 1, "S/E/DHCP": true, "S/E/DNS": []})",
         R"({"I/en7/Link": {"Active": 1}, "I/en7/IPv4": {"Addresses": "10.0.0.5"}, "I/en7/IPv6": {"Flags": [2]},
              "S/E/IPv4": {"Router": ["10.0.0.1"]}, "S/E/IPv6": {"Router": 1}, "S/E/DHCP": [],
              "S/E/DNS": {"ServerAddresses": ["1.1.1.1", null]}})"}) {
        Machine machine;
        machine.values = values;
        machine.add("E", "en7");
        EXPECT_EQ(read(machine), "en7 wired 0 E/N-E") << values;
    }
    Machine machine;
    machine.values = R"({"I/en7/IPv6": {"Addresses": ["fd00::2"], "Flags": [2.0]}})";
    machine.add("E", "en7");
    EXPECT_EQ(read(machine), "en7 wired 0 E/N-E fd00::2/0");
}

TEST(SystemStateReader, TetheringIsToldByNameOrDriver) {
    // A service's name, its interface's name, its driver.
    const auto tethers = [](const std::string &row) {
        Machine machine;
        auto &service = machine.add("A", "en7");
        std::tie(service.name, service.interfaceDisplayName, service.driver) =
            std::tuple(words(row)[0], words(row)[1], words(row)[2]);
        return read(machine).ends_with(" tethering");
    };
    for (const auto &row :
         rows("iPhone-USB - -; - My-iPad -; iPad - -; - iPhone -; USB - ipheth; USB - rndis_host"))
        EXPECT_TRUE(tethers(row)) << row;
    for (const auto &row : rows("IPHONE-USB ipad -; USB - cdc_ncm; USB - cdc_ether"))
        EXPECT_FALSE(tethers(row)) << row;
}

TEST(SystemStateReader, ErrorsSayWhatFailedAndMissingWiFiIsNone) {
    Machine machine;
    const auto failure = [&](std::unique_ptr<DynamicStore> store,
                             std::unique_ptr<NetworkPreferences> services) -> std::string {
        try {
            SystemStateReader(std::move(store), std::move(services), machine).readInterfaces();
        } catch (const SystemStateError &error) {
            return error.description();
        }
        return "none";
    };
    const auto session = [&] { return std::make_unique<Session>(machine); };
    EXPECT_EQ(failure(nullptr, session()), "SCDynamicStoreCreate failed");
    EXPECT_EQ(failure(session(), nullptr), "SCPreferencesCreate failed");
    machine.devices.reset();
    EXPECT_EQ(failure(session(), session()), "SCDynamicStoreCopyKeyList failed");
    EXPECT_EQ(machine.openSessions, 0);
    for (const auto power : {std::optional<bool>(), std::optional(true), std::optional(false)}) {
        machine.power = power;
        EXPECT_EQ(readerOf(machine).wifiPowerOn(), power);
    }
}

} // namespace
} // namespace tarn
