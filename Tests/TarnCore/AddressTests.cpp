#include "TarnCore/AddressClassifier.h"

#include "Support/Words.h"
#include "TarnCore/InterfaceSnapshot.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

static int allocations = 0;

// Not inlined: a compiler that sees both halves takes them for a mismatch.
[[gnu::noinline]] void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    ++allocations;
    return std::malloc(size);
}

void *operator new(std::size_t size) {
    if (void *memory = operator new(size, std::nothrow))
        return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void *memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void *memory, std::size_t) noexcept {
    std::free(memory);
}

namespace tarn {
namespace {

TEST(AddressClassifier, IPv4IsRoutableBeyondItsLink) {
    // Pieces that are empty or no number are skipped.
    for (const auto &address :
         words("10.0.0.5 172.16.0.1 192.168.1.20 100.64.0.1 8.8.8.8 223.255.255.255 1.0.0.0 "
               "126.0.0.1 128.0.0.1 169.1.2.3 169.253.1.1 168.254.1.1 1.2.3.x.4 1..2.3.4 "
               ".1.2.3.4. +1.2.3.4 0x1.1.2.3.4 01.002.3.4 99999999999999999999.1.2.3.4"))
        EXPECT_TRUE(AddressClassifier::isRoutableIPv4(address)) << address;
    for (const auto &address :
         rows("169.254.10.1; 0.1.2.3; 127.0.0.1; 224.0.0.251; 255.255.255.255; 256.1.1.1; "
              "1.1.1.256; 1.2.3.-4; 1.2.3; 1.2.3.4.5; ; ...; fe80::1; 1 .2.3.4; 1.2.3.4%en0; "
              "1.2.3.4\n; x.127.0.0.1; 99999999999999999999.2.3.4; x.1.2.3.4.5"))
        EXPECT_FALSE(AddressClassifier::isRoutableIPv4(address)) << address;
}

TEST(AddressClassifier, IPv6IsRoutableByItsFirstGroup) {
    for (const auto &address :
         rows("2001:db8::1; 2001:db8::1%en5; 2000::; 3fff:ffff::1; 3FFE::1; fd12:3456::1; "
              "fc00::1; FDFF::1; 2001; 2001:not an address; %2001::1; %%2001::1%en0; "
              "+2001::1; 02001::1"))
        EXPECT_TRUE(AddressClassifier::isRoutableIPv6(address)) << address;
    for (const auto &address :
         rows("fe80::1; fe80::1%en0; FEBF::1; fec0::1; fe00::1; fbff::1; ff02::1; 1fff::1; "
              "4000::1; 64:ff9b::1; 200::1; 12000::1; ::1; ::; :2001::1; ; %; %en0; 20g1::1; "
              "0x2001::1;  2001::1; -2001::1; 20010000000000002001::1"))
        EXPECT_FALSE(AddressClassifier::isRoutableIPv6(address)) << address;
}

TEST(InterfaceSnapshot, RoutableListsKeepOrderAndLeaveOutUnprovenAddresses) {
    InterfaceSnapshot snapshot;
    EXPECT_TRUE(!snapshot.firstRoutableIPv4() && !snapshot.firstRoutableIPv6());
    snapshot.ipv4 = words("169.254.3.4 10.0.0.9 127.0.0.1 10.0.0.5");
    snapshot.ipv6 = {{"fe80::1%en7", 0}, {"fd00::2", 0x02}, {"fd00::4", 0x04},
                     {"fd00::1", 0x10},  {"fd00::3", 0x96}, {"fd00::8", ~0x06}};
    EXPECT_EQ(snapshot.routableIPv4(), words("10.0.0.9 10.0.0.5"));
    EXPECT_EQ(snapshot.routableIPv6(), (std::vector<IPv6Address>{{"fd00::1", 0x10}, {"fd00::8", ~0x06}}));
    EXPECT_EQ(snapshot.firstRoutableIPv4(), &snapshot.ipv4[1]);
    EXPECT_EQ(snapshot.firstRoutableIPv6(), &snapshot.ipv6[3]);
    EXPECT_TRUE(snapshot.ipv6[3].isDeprecated() && !snapshot.ipv6[3].isTemporary());
    EXPECT_TRUE(snapshot.ipv6[1].isTentative() && snapshot.ipv6[2].isDuplicated() &&
                snapshot.ipv6[5].isTemporary());
}

TEST(InterfaceSnapshot, RoutableAddressNeedsLinkAndIsFoundWithoutAllocating) {
    InterfaceSnapshot snapshot;
    snapshot.ipv4 = {"169.254.100.100", "no address, but too long for a small string"};
    snapshot.ipv6 = {{"2001:0db8:0000:0000:0000:0000:0000:0001%en7", 0x02},
                     {"2001:0db8:0000:0000::0001%en7", 0}};
    EXPECT_FALSE(snapshot.hasRoutableAddress());
    snapshot.linkActive = true;
    const int before = allocations;
    const bool isFound = snapshot.hasRoutableAddress();
    const int after = allocations;
    EXPECT_TRUE(isFound && after == before);
    EXPECT_TRUE(snapshot.routableIPv6().size() == 1 && allocations > after) << "the counter does not count";
    snapshot.ipv6.pop_back();
    EXPECT_FALSE(snapshot.hasRoutableAddress()) << "tentative alone";
    snapshot.ipv4 = {"10.0.0.5"};
    EXPECT_TRUE(snapshot.hasRoutableAddress());
}

TEST(InterfaceSnapshot, GatewayIsARouterOrALease) {
    InterfaceSnapshot none, ipv4, ipv6, lease;
    ipv4.ipv4Router = ipv6.ipv6Router = "";
    lease.hasDHCPLease = true;
    EXPECT_TRUE(!none.hasGateway() && ipv4.hasGateway() && ipv6.hasGateway() && lease.hasGateway());
}

TEST(InterfaceSnapshot, CandidateIsWiredAndHasAService) {
    for (const auto &raw : words("wifi wired other")) {
        InterfaceSnapshot snapshot;
        snapshot.kind = interfaceKind(raw).value();
        EXPECT_TRUE(rawValue(snapshot.kind) == raw && !snapshot.isWiredCandidate());
        snapshot.serviceID = "";
        EXPECT_EQ(snapshot.isWiredCandidate(), raw == "wired");
    }
    for (const auto &raw : rows("; WiFi; Wired; wired ; ethernet"))
        EXPECT_EQ(interfaceKind(raw), std::nullopt) << raw;
}

} // namespace
} // namespace tarn
