#include "Support/ManualActor.h"
#include "Support/Words.h"
#include "TarnSystem/PictureChanges.h"
#include "TarnSystem/SCDynamicStoreEventSource.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <tuple>

namespace tarn {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAreArray;
using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

std::string withoutArea(const std::string &key) {
    return key.substr(key.find("/Network/") + 9);
}

/// A store whose changes the test tells.
class EventSource : public testing::Test {
protected:
    struct Watch final : DynamicStoreWatch {
        explicit Watch(EventSource &owner) : test(owner) {}
        ~Watch() override { test.callback = nullptr; }
        bool setNotificationKeys(const Strings &list) override {
            test.patterns = list;
            return true;
        }
        bool schedule() override { return true; }
        EventSource &test;
    };

    void start(double debounce) {
        source.start(debounce, [this](Strings keys) {
            std::ranges::sort(keys);
            batches.emplace_back(std::chrono::round<std::chrono::milliseconds>(actor.now() - began).count(),
                                 std::move(keys));
        });
    }
    void change(const std::string &keys) {
        Strings list;
        for (const auto &key : words(keys))
            list.push_back((key.starts_with("Service/S") ? "Setup:/Network/" : "State:/Network/") + key);
        callback(list);
    }
    /// The keys of each batch with its moment in milliseconds.
    std::string told() {
        std::string text;
        for (const auto &[when, keys] : batches) {
            text += (text.empty() ? "" : "; ") + std::to_string(when);
            for (const auto &key : keys)
                text += " " + withoutArea(key);
        }
        batches.clear();
        return text;
    }

    ManualActor actor;
    const MainActor::TimePoint began = actor.now();
    bool isRefused = false;
    std::string openedAs;
    Strings patterns;
    DynamicStoreWatch::Callback callback;
    std::vector<std::pair<long, Strings>> batches;
    SCDynamicStoreEventSource source{
        [this](const std::string &name, DynamicStoreWatch::Callback toCall) -> std::unique_ptr<Watch> {
            openedAs = name;
            callback = std::move(toCall);
            return isRefused ? nullptr : std::make_unique<Watch>(*this);
        },
        actor};
};

TEST_F(EventSource, FirstChangeFixesTheMomentOfDelivery) {
    start(1);
    EXPECT_EQ(openedAs, "tarnlink.daemon");
    EXPECT_THAT(patterns, ElementsAre("State:/Network/Interface/[^/]+/(Link|IPv4|IPv6)",
                                      "State:/Network/Service/[^/]+/(IPv4|IPv6|DHCP|DNS)",
                                      "State:/Network/Global/(IPv4|IPv6)", "Setup:/Network/Service/[^/]+"));
    change("Interface/a/Link");
    actor.advance(500ms);
    change("Interface/b/Link Interface/a/Link");
    actor.advance(400ms);
    change("Interface/c/Link Interface/utun1/Link");
    actor.advance(300ms);
    change("Interface/d/Link");
    actor.advance(10s);
    EXPECT_EQ(told(), "1000 Interface/a/Link Interface/b/Link Interface/c/Link; 2200 Interface/d/Link");
    EXPECT_EQ(actor.waiting(), 0u);
}

TEST_F(EventSource, IgnoredDevicesNeitherOpenABatchNorRideAlong) {
    start(0);
    const auto isTold = [&](const std::string &key) {
        change(key);
        actor.runDue();
        return !told().empty();
    };
    for (const char *key :
         {"Interface/lo0/IPv4", "Interface/awdl0/Link", "Interface/llw0/Link", "Interface/utun4/IPv4",
          "Interface/anpi0/Link", "Interface/anri1/Link", "Interface/ap1/Link", "Interface//ap1/Link"})
        EXPECT_FALSE(isTold(key)) << key;
    for (const char *key : {"Interface/lo01/IPv4", "Interface/lo/IPv4", "Interface/en0/Link", "Interface",
                            "Global/IPv4", "Service/ABC/DNS", "Service/utun4/IPv4", "Service/SETUP"})
        EXPECT_TRUE(isTold(key)) << key;
}

TEST_F(EventSource, NoDelayStillGathersWhatCameTogether) {
    for (const double debounce : {0.0, -1.0, std::nan("")}) {
        start(debounce);
        change("Interface/a/Link");
        change("Interface/b/Link Interface/a/Link");
        EXPECT_THAT(batches, IsEmpty());
        actor.runDue();
        EXPECT_EQ(told(), "0 Interface/a/Link Interface/b/Link");
    }
}

TEST_F(EventSource, StopDropsWhatWasGathered) {
    start(1);
    change("Interface/a/Link");
    source.stop();
    EXPECT_EQ(callback, nullptr);
    EXPECT_EQ(actor.waiting(), 0u);
    source.stop();
    start(1);
    change("Interface/b/Link");
    start(2);
    change("Interface/c/Link");
    actor.advance(10s);
    EXPECT_EQ(told(), "2000 Interface/c/Link");

    // A handler may end its own subscription, and one that cannot be had leaves the source idle.
    source.start(0, [&](const Strings &) { source.stop(); });
    change("Interface/a/Link");
    actor.runDue();
    EXPECT_EQ(callback, nullptr);
    isRefused = true;
    start(0);
    actor.advance(10s);
    EXPECT_EQ(told(), "");
}

TEST_F(EventSource, VoidStoreIsAChangeOfEverything) {
    start(0);
    callback({});
    actor.runDue();
    EXPECT_EQ(told(), "0 Global/IPv4");
}

TEST_F(EventSource, BurstIsOneCallWithEachKeyOnce) {
    start(0.3);
    for (int i = 0; i < 100'000; ++i)
        change("Interface/en" + std::to_string(i % 50) + "/Link Interface/utun" + std::to_string(i) +
               "/Link");
    EXPECT_EQ(actor.waiting(), 1u);
    actor.advance(10s);
    ASSERT_THAT(batches, SizeIs(1));
    EXPECT_THAT(batches[0].second, SizeIs(50));
}

// What differs between two pictures.

NetworkPicture::Link link(unsigned index, const std::string &name) {
    NetworkPicture::Link result;
    result.index = index;
    result.name = name;
    result.hardwareType = 1;
    return result;
}

TEST(PictureChanges, EachDifferenceHasItsKeys) {
    NetworkPicture before;
    before.links = {link(1, "lo"), link(2, "eth0"), link(3, "tun0")};
    before.links[0].isLoopback = true;
    before.links[1].hasCarrier = true;
    before.addresses = {{2, *IPAddress::parse("192.0.2.10"), 24, 0},
                        {2, *IPAddress::parse("fe80::1"), 64, 0}};
    before.defaultRoutes = {{2, false, *IPAddress::parse("192.0.2.1"), 100}};
    using Change = std::function<void(NetworkPicture &)>;
    const std::vector<std::tuple<std::string, Change, std::string>> changes = {
        {"nothing", [](auto &) {}, "-"},
        {"carrier", [](auto &p) { p.links[1].hasCarrier = false; }, "Interface/eth0/Link"},
        {"carrier back", [](auto &p) { p.links[1].carrierChanges += 2; }, "Interface/eth0/Link"},
        {"loopback", [](auto &p) { p.links[0].hasCarrier = true; }, "-"},
        {"address of the loopback", [](auto &p) { p.addresses.push_back({1, {}, 8, 0}); }, "-"},
        {"name for people", [](auto &p) { p.links[1].alias = "iPad"; },
         "Interface/eth0/Link Service/device:eth0"},
        {"bridged", [](auto &p) { p.links[1].master = 7; }, "Interface/eth0/Link Service/device:eth0"},
        {"renamed", [](auto &p) { p.links[2].name = "tun1"; },
         "Interface/tun0/Link Service/device:tun0 Interface/tun1/Link Service/device:tun1"},
        {"new", [](auto &p) { p.links.push_back(link(4, "eth1")); },
         "Interface/eth1/Link Service/device:eth1"},
        {"gone", [](auto &p) { p.links.erase(p.links.begin() + 2); },
         "Interface/tun0/Link Service/device:tun0"},
        {"address", [](auto &p) { p.addresses[0].prefixLength = 16; }, "Interface/eth0/IPv4"},
        {"flag", [](auto &p) { p.addresses[1].flags = 8; }, "Interface/eth0/IPv6"},
        {"metric", [](auto &p) { p.defaultRoutes[0].metric = 99; }, "Service/device:eth0/IPv4 Global/IPv4"},
        {"tunnel", [](auto &p) { p.defaultRoutes.push_back({3, true, *IPAddress::parse("fe80::9"), 5}); },
         "Service/device:tun0/IPv6 Global/IPv6"},
    };
    for (const auto &[name, change, expected] : changes) {
        auto after = before;
        change(after);
        for (const bool isForth : {true, false}) {
            Strings keys;
            for (const auto &key : isForth ? PictureChanges::kernelKeys(before, after)
                                           : PictureChanges::kernelKeys(after, before))
                keys.push_back(withoutArea(key));
            EXPECT_THAT(keys, UnorderedElementsAreArray(expected == "-" ? Strings() : words(expected)))
                << name;
        }
        EXPECT_EQ(PictureChanges::carrierChanged(before, after), name.starts_with("carrier")) << name;
    }
    EXPECT_EQ(PictureChanges::carrierChanged(NetworkPicture(), before), true);
    EXPECT_THAT(PictureChanges::resolverKeys(before), SizeIs(4));
    EXPECT_THAT(PictureChanges::managerKeys(before), SizeIs(6));
}

} // namespace
} // namespace tarn
