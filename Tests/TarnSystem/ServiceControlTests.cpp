#include "TarnSystem/ServiceController.h"

#include "Support/Words.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/ManagedIPSettings.h"
#include "TarnSystem/RouteMetrics.h"
#include "TarnSystem/ServiceErrors.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

using Kind = NetworkPreferencesEditor::Result::Kind;
using enum IPProtocol;

ProtocolConfiguration configuration(const std::string &entries) {
    return {std::get<Value>(json::parse(entries)), true};
}

/// Services a (enabled), b and c; what is done to them is written down, and one step fails.
class Editor final : public NetworkPreferencesEditor {
public:
    Editor(std::string &trace, const std::string &failing) : trace_(trace), failing_(failing) {}
    void synchronize() override { trace_.clear(); }
    std::optional<std::vector<std::string>> currentServiceOrder() override { return words("a b c"); }
    std::optional<NetworkService> copyService(const std::string &id) override {
        return id == "x" ? std::nullopt : std::optional(NetworkService{true, {}, {}, {}, {}, {}, id == "a"});
    }
    Result lock() override { return step("lock"); }
    void unlock() override { step("unlock"); }
    Result setServiceOrder(const std::vector<std::string> &order) override {
        return step("set:" + json::serialize(Value::strings(order)));
    }
    Result setServiceEnabled(const std::string &id, bool on) override {
        return step("set:" + id + (on ? "+" : "-"));
    }
    std::optional<ProtocolConfiguration> copyProtocol(const std::string &, IPProtocol) override {
        return configuration("[1]");
    }
    Result setProtocol(const std::string &id, IPProtocol, const ProtocolConfiguration &to) override {
        return step("set:" + id + json::serialize(*to.entries));
    }
    Result commitChanges() override { return step("commit"); }
    Result applyChanges() override { return step("apply"); }

private:
    Result step(const std::string &name) {
        trace_ += (trace_.empty() ? "" : " ") + name;
        return name.starts_with(failing_) ? Result{Kind::stale, "words"} : Result();
    }

    std::string &trace_;
    const std::string &failing_;
};

TEST(ServiceControl, ChangesAreMadeUnderTheLockAndOnlyWhereNeeded) {
    std::string trace, failing = "opening";
    ServiceController services(
        [&] { return failing == "opening" ? nullptr : std::make_unique<Editor>(trace, failing); });
    const auto run = [&](const std::string &what) {
        try {
            if (what[0] == '+' || what[0] == '-')
                services.setEnabled(what.substr(1), what[0] == '+');
            else if (what[1] == '=')
                services.setConfiguration(what.substr(0, 1), ipv4, configuration(what.substr(2)));
            else
                services.reorder(words(what));
        } catch (const ServiceControlError &error) {
            trace += "!" + error.description();
        }
        return trace;
    };
    EXPECT_EQ(run("+a"), "!The network preferences are not available.");
    failing = "nothing";
    const std::string table =
        R"(+b > lock set:b+ commit apply unlock; -a > lock set:a- commit apply unlock; +a > ; )"
        R"(a=[2] > lock set:a[2] commit apply unlock; a=[1] > ; a x b > ; )"
        R"(c x c a > lock set:["c","a","b"] commit apply unlock; )"
        R"(+x > !There is no such network service or protocol.)";
    for (const auto &row : rows(table))
        EXPECT_EQ(run(sides(row).first), sides(row).second);
    const std::string steps = "lock set:b+ commit apply ";
    for (const auto *step : {"lock", "set", "commit", "apply"}) {
        failing = step;
        const auto expected = steps.substr(0, steps.find(' ', steps.find(step)));
        EXPECT_EQ(run("+b"), expected + (failing == "lock" ? "" : " unlock") +
                                 "!The network preferences were changed by another program.");
    }
    // What was committed then has yet to take effect.
    failing = "nothing";
    EXPECT_EQ(run("+a"), "lock apply unlock");
    EXPECT_EQ(run("+a"), "");
}

TEST(ServiceControl, ErrorsAreClassed) {
    EXPECT_EQ(managerErrorKind("org.freedesktop.NetworkManager.Settings.PermissionDenied"), Kind::denied);
    EXPECT_EQ(managerErrorKind(""), Kind::failed);
    EXPECT_EQ(scStatusKind(1006), Kind::busy);
    EXPECT_EQ(scStatusKind(0), Kind::failed);
}

TEST(ServiceControl, SettingsAreTranslatedBothWays) {
    const auto at = [](const char *text, unsigned length) {
        return ManagedIPSettings::Address{IPAddress::parse(text).value(), length};
    };
    const auto router = [](const char *text) { return IPAddress::parse(text); };
    const std::vector<std::tuple<IPProtocol, ManagedIPSettings, std::string>> table = {
        {ipv4, {"shared", {}, {}}, "Manual\""},
        {ipv6, {"ignore", {}, {}}, "Automatic\""},
        {ipv4,
         {"manual", {at("10.0.0.5", 8), at("192.0.2.1", 31)}, router("10.0.0.1")},
         R"(Manual","Addresses":["10.0.0.5","192.0.2.1"],"SubnetMasks":["255.0.0.0","255.255.255.254"],)"
         R"("Router":"10.0.0.1")"},
        {ipv6,
         {"manual", {at("2001:db8::1", 64)}, router("fe80::1")},
         R"(Manual","Addresses":["2001:db8::1"],"PrefixLength":[64],"Router":"fe80::1")"}};
    for (const auto &[protocol, settings, entries] : table) {
        const auto found = configurationFromManaged(settings, protocol).value();
        EXPECT_EQ(json::serialize(*found.entries), "{\"ConfigMethod\":\"" + entries + "}");
        const bool isOwnWord = settings.method == "ignore" || settings.method == "shared";
        EXPECT_EQ(managedFromConfiguration(found, protocol) == settings, !isOwnWord) << entries;
        // What the profile says already is left in its own words.
        const auto change = managedChange(found, protocol, &settings);
        EXPECT_TRUE(change && change->isFromProfile && !change->method && !change->addresses) << entries;
    }
    EXPECT_FALSE(configurationFromManaged({"ignore", {}, {}}, ipv4));
    EXPECT_FALSE(configurationFromManaged({"manual", {at("10.0.0.5", 33)}, {}}, ipv4));
    EXPECT_FALSE(configurationFromManaged({"manual", {at("10.0.0.5", 8)}, router("fe80::1")}, ipv4));
    const std::string manual = R"("Manual","Addresses":["10.0.0.5"])";
    for (const auto &method : {std::string("4"), std::string(R"("PPP")"), std::string(R"("Manual")"), manual,
                               manual + R"(,"SubnetMasks":[])", manual + R"(,"SubnetMasks":["255.0.255.0"])",
                               manual + R"(,"SubnetMasks":["255.0.0.0"],"Router":"fe80::1")"})
        EXPECT_FALSE(managedChange(configuration("{\"ConfigMethod\":" + method + "}"), ipv4, nullptr));
    EXPECT_FALSE(managedChange({}, ipv4, nullptr));
}

TEST(ServiceControl, MetricsAreChangedAsLittleAsPossible) {
    // In the wanted order; "!" cannot be changed, "-" has no route.
    for (const auto &row :
         rows("100 200 300 > ; 600 100 > 1=601; 100 - 100 > 2=101; 600 100 101 > 0=99; 100 50 200 > 1=101; "
              "600! 100 > 1=601; 600 100! > 0=99; 9 9 3! > 0=1 1=2; 9 3! 2 > 0=2 2=4; "
              "100 600 500! 601 > 1=499; 0! 0 > 1=1; 600! 100! > none; 5 6 2! > none; 7 0! > none; "
              "600! 5 601! > none; 300 300 300 > 1=301 2=302; 4294967295 4294967295 > 0=4294967294")) {
        std::vector<ServiceMetric> services;
        std::vector<std::string> order;
        for (const auto &word : words(sides(row).first)) {
            order.push_back(std::to_string(order.size()));
            services.push_back({order.back(), std::nullopt, word.find('!') == std::string::npos});
            if (!word.empty())
                services.back().metric = static_cast<std::uint32_t>(std::stoul(word));
        }
        const auto changes = metricsForOrder(services, order);
        std::string found = changes ? "" : "none";
        for (std::size_t i = 0; changes && i < changes->size(); ++i)
            found += (i == 0 ? "" : " ") + (*changes)[i].first + "=" + std::to_string((*changes)[i].second);
        EXPECT_EQ(found, sides(row).second) << row;
    }
}

} // namespace
} // namespace tarn
