#include "TarnlinkDaemon/Switcher.h"

#include "Support/FakeServices.h"
#include "Support/Words.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

using Kind = Command::Kind;
using enum IPProtocol;

/// A store with one resolver, which cannot be written under the key "locked".
struct Store final : DynamicStore {
    explicit Store(std::optional<Value> &of) : resolver(of) {}
    std::optional<std::vector<std::string>> copyKeyList(const std::string &) override { return {}; }
    std::optional<Value> copyValue(const std::string &) override { return resolver; }
    std::optional<std::string> setValue(const std::string &key, const Value &value) override {
        if (key == "locked")
            return "refused";
        resolver = value;
        return std::nullopt;
    }
    std::optional<Value> &resolver;
};

struct Cache final : DNSCacheFlushing {
    std::vector<std::int32_t> flush() override { throw error; }
    DNSCacheFlushError error = DNSCacheFlushError::notFound();
};

TEST(Switcher, TriesEveryStepAndTellsTheFirstFailure) {
    FakeServices services;
    services.enabled = {{"a", true}, {"b", false}};
    services.protocols = {{"a.ipv4", configured("[1]")}, {"a.ipv6", configured("[2]")}};
    Cache cache;
    std::optional<Value> resolver =
        Value::Dictionary{{"ServerAddresses", Value::strings(words("::2 ::1"))}, {"Other", 2}};
    Switcher switcher(services, services, cache, [&](auto &) { return std::make_unique<Store>(resolver); });
    const auto run = [&](const Command &command) {
        services.calls.clear();
        return switcher.carryOut(command).value_or("done");
    };

    Command on{.kind = Kind::wifiOn, .power = true, .services = {{"gone", ""}, {"b", "B"}}};
    on.protocols = {{"gone", ipv4, {}, {}}, {"a", ipv4, {}, configured("[3]")}};
    services.failing = {{"power on", {}}, {"+b", FakeServices::Kind::busy}};
    EXPECT_EQ(run(on), "NetworkManager: no radio");
    EXPECT_EQ(services.calls, "power on;+gone;+b;set gone.ipv4;set a.ipv4;");
    on.power = false;
    EXPECT_EQ(run(on), "The network preferences are in use by another program.: words");
    services.failing.clear();
    EXPECT_EQ(run(on), "done");
    Command off{.kind = Kind::wifiOff, .mode = WiFiOffMode::service, .services = {{"gone", ""}, {"a", "A"}}};
    EXPECT_EQ(run(off), "There is no such network service or protocol.: words");
    EXPECT_EQ(services.calls, "-gone;-a;");
    off.mode = WiFiOffMode::radio;
    EXPECT_EQ(run(off), "done");
    EXPECT_EQ(services.calls, "power off;");

    // What somebody else changed is left alone; what is as wanted already is no failure.
    off.mode = WiFiOffMode::address;
    off.protocols = {{"a", ipv4, configured("[9]"), configured("[0]")},
                     {"a", ipv6, configured("[2]"), configured("[0]")}};
    EXPECT_EQ(run(off), "The network preferences were changed by another program.");
    EXPECT_EQ(services.protocols["a.ipv4"], configured("[3]"));
    EXPECT_EQ(services.protocols["a.ipv6"], configured("[0]"));
    services.protocols["a.ipv4"] = configured("[0]");
    EXPECT_EQ(run(off), "done");

    EXPECT_EQ(run({.kind = Kind::flushCache}), "done");
    cache.error = DNSCacheFlushError::signalFailed(7, 1);
    EXPECT_EQ(run({.kind = Kind::flushCache}), cache.error.description());
    Command servers{.kind = Kind::setServers, .order = words("::1 ::2"), .key = "locked"};
    EXPECT_EQ(run(servers), "refused");
    servers.key = "free";
    EXPECT_EQ(run(servers), "done");
    EXPECT_EQ(json::serialize(*resolver), R"({"ServerAddresses":["::1","::2"],"Other":2})");
    servers.order = words("::3 ::1");
    EXPECT_EQ(run(servers), "done");
    EXPECT_EQ(resolver->stringList("ServerAddresses"), words("::1 ::2")) << "its owner's";
    resolver.reset();
    EXPECT_EQ(run(servers), "done");
    EXPECT_EQ(describe({.kind = Kind::enableService, .services = {{"a", "Wi\nFi"}, {"b", ""}}}),
              "enable Wi\\u000aFi, b");
}

} // namespace
} // namespace tarn
