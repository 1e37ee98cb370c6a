#include "TarnSystem/SynthesizedStore.h"

#include "Support/Words.h"
#include "TarnSystem/Json.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace tarn {
namespace {

IPAddress ip(const std::string &text) {
    return IPAddress::parse(text).value();
}

/// Words such as "eth1" (a link with the index 1), "br3:bridge", "lo5:loopback", "1=10.0.0.5/24" (an address)
/// and "1>10.0.0.1*600" (a default route with its metric); "wlan4" is wireless.
NetworkPicture picture(const std::string &text) {
    NetworkPicture result;
    for (const auto &word : words(text)) {
        const auto end = word.find_first_of("/*"), colon = std::min(word.find(':'), word.size() - 1);
        const auto index = static_cast<unsigned>(word[0] - '0');
        if (word[1] == '=') {
            const auto length = static_cast<unsigned>(std::stoul(word.substr(end + 1)));
            result.addresses.push_back({index, ip(word.substr(2, end - 2)), length, 0});
        } else if (word[1] == '>') {
            const auto gateway = ip(word.substr(2, end - 2));
            const auto metric = static_cast<std::uint32_t>(std::stoul(word.substr(end + 1)));
            result.defaultRoutes.push_back({index, gateway.isIPv6, gateway, metric});
        } else {
            auto &link = result.links.emplace_back();
            link.name = word.substr(0, word.find(':'));
            link.index = static_cast<unsigned>(link.name.back() - '0');
            link.hardwareType = 1;
            link.linkKind = word.substr(colon + 1);
            link.isLoopback = link.linkKind == "loopback";
            link.isWireless = word.starts_with("wl");
        }
    }
    return result;
}

std::string value(const SynthesizedStore &store, const std::string &key) {
    const auto found = store.value("State:/Network/" + key);
    return found ? json::serialize(*found) : "none";
}

/// The devices that have a service, in the service order.
std::string order(const SynthesizedStore &store) {
    std::string text;
    for (const auto &id : store.serviceOrder())
        text += (text.empty() ? "" : " ") + store.service(id).value().bsdName.value();
    return text;
}

std::string serviceID(const SynthesizedStore &store, const std::string &device) {
    const auto ids = store.serviceOrder();
    const auto found =
        std::ranges::find_if(ids, [&](const auto &id) { return store.service(id)->bsdName == device; });
    return found == ids.end() ? "" : *found;
}

std::string ofService(const SynthesizedStore &store, const std::string &device, const std::string &entity) {
    return value(store, "Service/" + serviceID(store, device) + "/" + entity);
}

/// The name servers of a device's service, with blanks between them.
std::string servers(const NetworkPicture &given, const std::string &device) {
    const SynthesizedStore store(given);
    std::string text;
    if (const auto dns = store.value("State:/Network/Service/" + serviceID(store, device) + "/DNS"))
        for (const auto &server : *dns->find("ServerAddresses")->array())
            text += (text.empty() ? "" : " ") + *server.string();
    return text;
}

TEST(SynthesizedStore, ServiceIsWhatCountsAsEthernetOrIsWireless) {
    for (const char *link : {"eth1", "eth1:veth", "bond1:bond", "eth1:vlan", "wlan1"}) {
        const SynthesizedStore store(picture(link));
        EXPECT_EQ(store.service(store.serviceOrder().at(0))->interfaceType,
                  link[0] == 'w' ? "IEEE80211" : "Ethernet");
        auto other = picture(link);
        other.links[0].hardwareType = 65534; // ARPHRD_NONE
        EXPECT_EQ(order(SynthesizedStore(other)), link[0] == 'w' ? "wlan1" : "");
        other = picture(link);
        other.links[0].master = 7;
        EXPECT_EQ(order(SynthesizedStore(other)), link[0] == 'w' ? "wlan1" : "") << "enslaved";
        other = picture(link);
        other.links[0].isUndescribed = true;
        EXPECT_EQ(order(SynthesizedStore(other)), link[0] == 'w' ? "wlan1" : "") << "it may be a radio";
    }
    for (const std::string link : {"br1:bridge", "tap1:tun", "mvt1:macvtap", "lo1:loopback"}) {
        const SynthesizedStore store(picture(link));
        EXPECT_EQ(order(store), "") << link;
        const bool hasKey = value(store, "Interface/" + link.substr(0, link.find(':')) + "/Link") != "none";
        EXPECT_EQ(hasKey, link != "lo1:loopback");
    }
}

TEST(SynthesizedStore, RouterOfTheLowestMetricCounts) {
    const SynthesizedStore store(
        picture("eth1 eth2 1>10.0.0.2*200 1>10.0.0.1*100 1>10.0.0.3*100 1>fe80::1*1024 9>10.9.9.9*0"));
    EXPECT_EQ(ofService(store, "eth1", "IPv4"), R"({"InterfaceName":"eth1","Router":"10.0.0.1"})");
    EXPECT_EQ(ofService(store, "eth1", "IPv6"), R"({"InterfaceName":"eth1","Router":"fe80::1"})");
    EXPECT_EQ(ofService(store, "eth2", "IPv4"), "none");
}

TEST(SynthesizedStore, ServiceOrderIsByMetricThenIndex) {
    const std::string links = "wlan4 eth3 eth2 lo5:loopback br6:bridge ";
    for (const char *row : {" > eth2 eth3 wlan4", "4>10.0.0.1*600 3>10.1.0.1*700 > eth2 wlan4 eth3",
                            "4>10.0.0.1*50 3>10.1.0.1*700 3>fe80::1*50 > eth3 wlan4 eth2",
                            "6>10.0.0.1*1 3>10.1.0.1*1 > eth3 eth2 wlan4"})
        EXPECT_EQ(order(SynthesizedStore(picture(links + sides(row).first))), sides(row).second);
}

TEST(SynthesizedStore, LeaseIsHeldWhileItsAddressIsInUseAndItsTimeRuns) {
    const auto isHeld = [](const DHCPLease &lease) {
        auto given = picture("eth1 eth2 1=10.0.0.5/24");
        given.takenAt = 1000;
        given.leases = {lease};
        return ofService(SynthesizedStore(given), "eth1", "DHCP") == "{}";
    };
    EXPECT_TRUE(isHeld({"", 1, "10.0.0.5", {}, {}}));
    EXPECT_TRUE(isHeld({"eth1", 0, "10.0.0.5", {}, 1001}));
    EXPECT_FALSE(isHeld({"eth1", 0, "10.0.0.5", {}, 1000})) << "over";
    EXPECT_FALSE(isHeld({"eth1", 0, "10.0.0.6", {}, {}}) || isHeld({"eth1", 0, "", {}, {}}));
    EXPECT_FALSE(isHeld({"eth2", 0, "10.0.0.5", {}, {}}) || isHeld({"eth9", 0, "10.0.0.5", {}, {}}));
    EXPECT_FALSE(isHeld({"", 0, "10.0.0.5", {}, {}}) || isHeld({"", 9, "10.0.0.5", {}, {}}));
}

TEST(SynthesizedStore, FirstSourceThatKnowsAServerCounts) {
    auto given = picture("eth1 1=10.0.0.5/24");
    given.resolvedServers = {
        {1, "", {"127.0.0.53", "10.0.0.11"}, {}}, {0, "", {"10.0.0.10"}, {}}, {9, "", {"10.0.0.99"}, {}}};
    given.networkManagerServers = {{0, "eth1", {"::1", "10.0.0.12"}, {}}, {0, "eth9", {"10.0.0.99"}, {}}};
    given.leases = {{"eth1", 0, "10.0.0.5", {"0.0.0.0", "10.0.0.13"}, {}}};
    given.resolvConfServers = {"127.0.0.53", "10.0.0.14", "::1%lo", "10.0.0.10", "no address"};
    EXPECT_EQ(servers(given, "eth1"), "10.0.0.11");
    given.resolvedServers[0].addresses.pop_back();
    EXPECT_EQ(servers(given, "eth1"), "10.0.0.12");
    given.networkManagerServers.clear();
    EXPECT_EQ(servers(given, "eth1"), "10.0.0.13");
    given.leases.clear();
    EXPECT_EQ(servers(given, "eth1"), "10.0.0.10 10.0.0.14")
        << "what is common to all links, each server once";
    given.resolvedServers.clear();
    given.resolvConfServers = {"127.0.0.1", "::1", "::ffff:127.0.0.53", "10.0.0.5"};
    EXPECT_EQ(ofService(SynthesizedStore(given), "eth1", "DNS"), "none");
}

TEST(SynthesizedStore, CommonServerBelongsToTheSubnetOrZoneThatItLiesIn) {
    // A server, then what eth1 and eth2 get; br3 has no service, but a subnet.
    for (const auto &row : rows("9.9.9.9 9.9.9.9 9.9.9.9; 10.0.1.53 10.0.1.53 -; 10.0.2.53 - 10.0.2.53; "
                                "10.0.9.53 10.0.9.53 10.0.9.53; 172.17.0.2 - -; fd00:1::53 fd00:1::53 -; "
                                "2620::fe 2620::fe 2620::fe; fe80::53%eth1 fe80::53%eth1 -; "
                                "fe80::53%2 - fe80::53%2; fe80::53%eth9 - -; fe80::53 fe80::53%eth1 -")) {
        auto given = picture(
            "eth1 eth2 br3:bridge 1=10.0.1.5/24 2=10.0.2.5/24 3=172.17.0.1/16 1=fd00:1::5/64 1=fe80::5/64");
        given.resolvConfServers = {words(row)[0]};
        EXPECT_EQ(servers(given, "eth1"), words(row)[1]) << row;
        EXPECT_EQ(servers(given, "eth2"), words(row)[2]) << row;
    }
}

TEST(SynthesizedStore, DomainsComeWithTheServersOfTheirSource) {
    // A server and its domains, then the domains that count; tun1 has no service, eth2 has.
    for (const auto &row : rows("10.0.0.1 ~a.example b.example a.example. > \"a.example\",\"b.example\"; "
                                "10.0.0.1 . ~. ~ > ; - a.example > none")) {
        auto given = picture("tun1:tun eth2");
        auto domains = words(sides(row).first);
        const std::vector addresses = {domains[0]};
        domains.erase(domains.begin());
        for (const unsigned link : {1U, 2U})
            given.networkManagerServers.push_back({link, "", addresses, domains});
        given.resolvedServers = {
            {0, "", {}, {"global"}}, {1, "", {}, {"alone"}}, {2, "", {"::1"}, {"alone"}}};
        const SynthesizedStore store(given);
        const std::string list = sides(row).second, servers = R"({"ServerAddresses":["10.0.0.1"])";
        const auto full = list == "none" ? list : servers + R"(,"SupplementalMatchDomains":[)" + list + "]}";
        EXPECT_EQ(value(store, "Service/device:tun1/DNS"), list.empty() ? "none" : full);
        EXPECT_EQ(ofService(store, "eth2", "DNS"), list.empty() ? servers + "}" : full);
        EXPECT_EQ(store.keys("State:/Network/Service/device:tun1/[^/]+").size(),
                  list.starts_with('"') ? 1 : 0);
        EXPECT_TRUE(order(store) == "eth2" && !store.service("device:tun1"));
        given.resolvedServers = {{1, "", {"10.0.0.2"}, {}}, {2, "", {"10.0.0.2"}, {}}};
        EXPECT_EQ(ofService(SynthesizedStore(given), "eth2", "DNS"), R"({"ServerAddresses":["10.0.0.2"]})");
    }
}

TEST(SynthesizedStore, LinkLocalServerIsOnItsDevice) {
    for (const auto &row : rows("fe80::5 fe80::5%eth1; febf::5 febf::5%eth1; fe80::5%eth1 fe80::5%eth1; "
                                "fe80::5%1 fe80::5%1; fec0::5 fec0::5; 254.128.0.5 254.128.0.5")) {
        auto given = picture("eth1");
        given.networkManagerServers = {{0, "eth1", {words(row)[0], words(row)[0]}, {}}};
        EXPECT_EQ(servers(given, "eth1"), words(row)[1]) << row;
    }
}

TEST(SynthesizedStore, NameIsTheActiveProfilesAndDisabledIsWhatWeDisabled) {
    auto given = picture("eth1 eth2 eth3 eth4 wlan5 tun6:tun");
    given.managed = {{"eth1", "Home \n cable", false}, {"eth2", "", false},    {"eth3", "", true},
                     {"wlan5", "Caf\u00e9", false},    {"tun6", "VPN", false}, {"eth9", "Gone", true}};
    const SynthesizedStore store(given);
    std::string found;
    for (const auto &id : store.serviceOrder())
        found += *store.service(id)->name + (store.service(id)->enabled ? "; " : " off; ");
    EXPECT_EQ(found, "Home \n cable; eth2; eth3 off; eth4; Caf\u00e9; ");
    EXPECT_TRUE(store.service("device:eth1")) << "the identifier does not follow the name";
}

TEST(StorePattern, MatchesKeysAsAWhole) {
    for (const auto &row :
         rows("a/b a/b; a/[^/]+ a/b; [^/]+/c a/c; a/[^/]+/[^/]+ a/b/c; a/(b|cd) a/b; a/(b|cd)/e a/cd/e"))
        EXPECT_TRUE(matchesStorePattern(words(row)[0], words(row)[1])) << row;
    for (const auto &row : rows("a/b a/bc; a/b a/b/c; a/b a; a/b a/b/; a/[^/]+ a/b/c; a/[^/]+ a/; "
                                "a/[^/]+/c a//c; a/(b|cd) a/c; a/(b|cd) a/b|cd; a/(b|cd) a/(b|cd); - a"))
        EXPECT_FALSE(matchesStorePattern(words(row)[0], words(row)[1])) << row;
}

TEST(IPAddress, ReadsTheUsualFormsAlone) {
    for (const auto &text : rows("; host; 10.0.0; 10.0.0.256; 10.0.0.5 ; 10.0.0.5/8; fe80::1%eth1; 1::2::3"))
        EXPECT_FALSE(IPAddress::parse(text)) << text;
    EXPECT_FALSE(IPAddress::parse(std::string_view("10.0.0.5\0x", 10))) << "a zero byte ends no address";
}

TEST(SynthesizedStore, AddressesStandInTheirOrderWithTheirFlags) {
    auto given = picture("eth1 1=10.0.0.5/24 1=fe80::1/64 1=10.0.0.4/32 1=fd00::2/64 9=10.9.9.9/8");
    given.links[0].hasCarrier = true;
    given.addresses[3].flags = 0x21;
    const SynthesizedStore store(given);
    EXPECT_EQ(value(store, "Interface/eth1/Link"), R"({"Active":true})");
    EXPECT_EQ(value(store, "Interface/eth1/IPv4"), R"({"Addresses":["10.0.0.5","10.0.0.4"]})");
    EXPECT_EQ(value(store, "Interface/eth1/IPv6"), R"({"Addresses":["fe80::1","fd00::2"],"Flags":[0,144]})");
    std::int64_t sum = 0;
    for (int bit = 0; bit < 32; ++bit)
        sum += ipv6FlagsFromLinux(std::uint32_t{1} << bit);
    EXPECT_EQ(sum, 0x96) << "one bit each, and no other";
    EXPECT_TRUE(ipv6FlagsFromLinux(0x01) == 0x80 && ipv6FlagsFromLinux(0x08) == 0x04);
    EXPECT_TRUE(ipv6FlagsFromLinux(0x20) == 0x10 && ipv6FlagsFromLinux(0x40) == 0x02);
}

TEST(IPAddress, KnowsItsNetworkAndItsKind) {
    EXPECT_TRUE(ip("10.0.1.130").isWithin(ip("10.0.1.200"), 25) &&
                ip("fd00::1:2").isWithin(ip("fd00::1:3"), 127));
    EXPECT_FALSE(ip("10.0.1.130").isWithin(ip("10.0.1.20"), 25) ||
                 ip("10.0.1.1").isWithin(ip("10.0.1.2"), 99));
    EXPECT_TRUE(ip("10.0.1.1").isWithin(ip("192.168.0.1"), 0) && !ip("::a00:1").isWithin(ip("10.0.0.1"), 0));
    for (const auto &own : words("127.0.0.1 127.255.0.1 0.0.0.0 ::1 ::"))
        EXPECT_TRUE(ip(own).isOwnHost()) << own;
    for (const auto &other : words("128.0.0.1 126.0.0.1 0.0.0.1 ::2 1:: ::ffff:0.0.0.1"))
        EXPECT_FALSE(ip(other).isOwnHost()) << other;
}

} // namespace
} // namespace tarn
