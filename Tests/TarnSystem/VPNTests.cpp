#include "Support/Words.h"
#include "TarnSystem/SynthesizedStore.h"
#include "TarnSystem/VPNDetector.h"
#include "TarnSystem/VPNSplitDNS.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(VPNDetector, FirstTunnelWithARoutableAddressIsActive) {
    // Interfaces with their addresses, then the tunnel.
    for (const auto &row : rows(
             "utun3 fe80::1 10.8.0.2 > utun3 10.8.0.2; utun0 fe80::1, ipsec0 100.64.0.9 > ipsec0 100.64.0.9; "
             "en0 10.0.0.5, wg0 10.0.0.6, xtun0 10.0.0.7 > ; tap0 fd00::2 > tap0 fd00::2; "
             "gpd0 2001:db8::2 > gpd0 2001:db8::2; ppp0 169.254.1.1 127.0.0.1 fe80::1 > ; "
             "tun0 2001:db8::2 169.254.1.1 192.0.2.7 192.0.2.8, utun0 10.0.0.1 > tun0 192.0.2.7")) {
        auto [left, expected] = sides(row);
        std::vector<VPNDetector::TunnelInterface> interfaces;
        for (std::istringstream list(left); std::getline(list, left, ',');) {
            auto addresses = words(left);
            auto &interface = interfaces.emplace_back(VPNDetector::TunnelInterface{addresses[0], {}, {}});
            for (std::size_t i = 1; i < addresses.size(); ++i)
                (addresses[i].find(':') == std::string::npos ? interface.ipv4 : interface.ipv6)
                    .push_back(addresses[i]);
        }
        const auto found = VPNDetector::activeTunnel(interfaces);
        EXPECT_EQ(found ? found->device + " " + found->address : "", expected) << row;
    }
}

/// A store with these values as DNS entries of services.
class Store final : public DynamicStore {
public:
    explicit Store(std::vector<Value> values) : values_(std::move(values)) {}
    std::optional<std::vector<std::string>> copyKeyList(const std::string &pattern) override {
        if (!matchesStorePattern(pattern, "State:/Network/Service/0/DNS") || values_.empty())
            return std::nullopt;
        return words("0 1 2 3 4 5 6 7 8 9 10 11 12 13");
    }
    std::optional<Value> copyValue(const std::string &key) override {
        const auto i = std::stoul(key);
        return i < values_.size() ? std::optional(values_[i]) : std::nullopt;
    }
    std::optional<std::string> setValue(const std::string &, const Value &) override { return "refused"; }

private:
    std::vector<Value> values_;
};

TEST(VPNSplitDNS, SuspectsStandFirstBeforeOthers) {
    std::vector<Value> values = {
        "text", Value::Dictionary{{"ServerAddresses", Value::strings({"fe80::2%en9", "::2"})}}};
    for (const auto &row :
         rows("fe80::1%en8 10.0.0.53 > corp b; fe80::1%en8 > alone; 10.0.0.53 fe80::1%en8 > second; "
              "fe80::1% 10.0.0.53 > empty; fe80::1 10.0.0.53 > bare; fd00::1%en8 10.0.0.53 > ula; "
              "fe80::7%a%b 10.0.0.53 > two;  > none; fe80::1%en7 10.0.0.53 > ")) {
        const auto [servers, domains] = sides(row);
        values.push_back(Value::Dictionary{{"ServerAddresses", Value::strings(words(servers))},
                                           {"SupplementalMatchDomains", Value::strings(words(domains))}});
    }
    values.push_back(values[2]);
    values.back().set("ServerAddresses", Value::Array{"fe80::1%en8", 1});
    std::string found;
    const auto resolvers = VPNSplitDNS::scopedResolvers([&](const std::string &client) {
        found = client + ":";
        return std::make_unique<Store>(values);
    });
    for (const auto &resolver : resolvers)
        found += " " + resolver.domain;
    for (const auto &suspect : VPNSplitDNS::suspects(resolvers))
        found += "; " + suspect.domain + " " + suspect.device + " " + suspect.server;
    EXPECT_EQ(found, "TarnlinkDNS: corp b alone second empty bare ula two none; corp en8 fe80::1%en8; "
                     "b en8 fe80::1%en8; two a%b fe80::7%a%b");
    EXPECT_TRUE(VPNSplitDNS::tetheringResolverShadowsSplitDNS(resolvers, "en8"));
    EXPECT_FALSE(VPNSplitDNS::tetheringResolverShadowsSplitDNS(resolvers, "en"));
    Store unreadable({});
    EXPECT_TRUE(VPNSplitDNS::scopedResolvers(unreadable).empty());
    EXPECT_TRUE(VPNSplitDNS::scopedResolvers([](const std::string &) { return nullptr; }).empty());
}

} // namespace
} // namespace tarn
