#include "TarnSystem/ConfigLoader.h"

#include "Support/Words.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/VendorHosts.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

/// A preferences store with state: what others write is seen after a refresh, what is set is
/// stored by synchronising.
class MemoryPreferences final : public Preferences {
public:
    Value stored = Value::Dictionary();
    bool isReadOnly = false;

    void refresh(const std::string &) override { visible_ = stored; }
    std::optional<Value> copyAppValue(const std::string &key, const std::string &domain) override {
        const Value *value = domain == "com.veltrion.tarnlink" ? visible_.find(key) : nullptr;
        return value ? std::optional(*value) : std::nullopt;
    }
    bool isForced(const std::string &, const std::string &) override { return false; }
    void setMachineValue(const std::string &key, const Value &value, const std::string &domain) override {
        EXPECT_EQ(domain, "com.veltrion.tarnlink");
        unsaved_.set(key, value);
    }
    bool synchronizeMachine(const std::string &) override {
        if (!isReadOnly)
            for (const auto &[key, value] : *unsaved_.dictionary())
                stored.set(key, value);
        unsaved_ = Value::Dictionary();
        return !isReadOnly;
    }

private:
    Value visible_, unsaved_ = Value::Dictionary();
};

/// What preferences (the inside of a JSON object) and arguments change: words of describe().
std::string loaded(const std::string &preferences, const std::vector<std::string> &arguments = {}) {
    MemoryPreferences store;
    store.stored = std::get<Value>(json::parse("{" + preferences + "}"));
    const auto usual = words(DaemonConfig().describe());
    const auto given = words(ConfigLoader::load(store, arguments).describe());
    std::string result;
    for (std::size_t i = 0; i < usual.size(); ++i)
        if (given.at(i) != usual[i])
            result += (result.empty() ? "" : " ") + given[i];
    return result;
}

TEST(DaemonConfig, DescribesItsDefaultsOnOneLine) {
    EXPECT_EQ(
        DaemonConfig().describe(),
        "enabled=true probeMode=dns probeName=tarnlink.probe.invalid probeTimeout=2.0 probeInterval=10.0 "
        "probeFailuresBeforeFallback=3 trafficStallSeconds=30.0 eventDebounce=0.3 respectManualWiFiOff=true "
        "flushDNSCacheOnSwitch=true maxPauseMinutes=240 disableTetheringWhileWired=true wifiOffMode=address "
        "fixShadowedDNS=true updateCheck=true updateFeed=https://" +
            std::string(VendorHosts::download) + "/dl/tarnlink.json dryRun=false once=false");
}

TEST(ConfigLoader, EveryKeySetsItsField) {
    EXPECT_EQ(loaded(R"("Enabled": false, "RespectManualWiFiOff": 0, "FlushDNSCacheOnSwitch": 0.0,
                        "TetheringWhileWired": "allow", "TetheringDNSFix": false, "WiFiOffMode": "service",
                        "UpdateFeedURL": "https://a.example/x", "UpdateCheck": false, "ProbeMode": "off",
                        "ProbeName": "a.example", "ProbeTimeoutSeconds": 3, "ProbeIntervalSeconds": 1e16,
                        "ProbeFailuresBeforeFallback": 0, "TrafficStallSeconds": -0.5,
                        "EventDebounceSeconds": 1e-5, "MaxPauseMinutes": 1)"),
              "enabled=false probeMode=off probeName=a.example probeTimeout=3.0 probeInterval=1e+16 "
              "probeFailuresBeforeFallback=0 trafficStallSeconds=-0.5 eventDebounce=1e-05 "
              "respectManualWiFiOff=false flushDNSCacheOnSwitch=false maxPauseMinutes=1 "
              "disableTetheringWhileWired=false wifiOffMode=service fixShadowedDNS=false updateCheck=false "
              "updateFeed=https://a.example/x");
}

TEST(ConfigLoader, ValuesOfAnotherTypeAreIgnored) {
    EXPECT_EQ(loaded(R"("Enabled": "false", "RespectManualWiFiOff": null, "FlushDNSCacheOnSwitch": [false],
                        "TetheringWhileWired": false, "TetheringDNSFix": "0", "SplitDNSFix": {}, "WiFiOffMode": 1,
                        "UpdateFeedURL": 7, "UpdateCheck": "no", "ProbeMode": false, "ProbeName": 5,
                        "ProbeTimeoutSeconds": "3", "ProbeIntervalSeconds": true, "TrafficStallSeconds": [1],
                        "ProbeFailuresBeforeFallback": "5", "EventDebounceSeconds": null, "MaxPauseMinutes": "60")"),
              "");
}

TEST(ConfigLoader, EdgesOfAcceptedValues) {
    for (
        const auto &row : rows(
            R"("Enabled": -1, "UpdateCheck": 0.1, "enabled": false > ; "TetheringWhileWired": "disable" > ; "TetheringWhileWired": "Allow" > ; )"
            R"("WiFiOffMode": "Radio", "ProbeMode": "dns " > ; "WiFiOffMode": "radio", "ProbeName": "" > probeName= wifiOffMode=radio; )"
            R"("TetheringDNSFix": true, "SplitDNSFix": false > fixShadowedDNS=false; "TetheringDNSFix": false, "SplitDNSFix": true > ; )"
            R"("TetheringDNSFix": false, "SplitDNSFix": "yes" > fixShadowedDNS=false; "UpdateFeedURL": "http://a.example/x" > ; )"
            R"("UpdateFeedURL": "HTTPS://a.example/x" > ; "UpdateFeedURL": "https://a b" > ; "MaxPauseMinutes": 1440.9 > maxPauseMinutes=1440; )"
            R"("MaxPauseMinutes": 0 > ; "MaxPauseMinutes": 0.9 > ; "MaxPauseMinutes": 1441 > ; )"
            R"("ProbeFailuresBeforeFallback": -2.9 > probeFailuresBeforeFallback=-2; )"
            R"("ProbeFailuresBeforeFallback": 9223372036854775808 > probeFailuresBeforeFallback=9223372036854775807; )"
            R"("ProbeFailuresBeforeFallback": -1e300 > probeFailuresBeforeFallback=-9223372036854775808)"))
        EXPECT_EQ(loaded(sides(row).first), sides(row).second) << row;
}

TEST(ConfigLoader, ArgumentsOverridePreferences) {
    for (const auto &row : rows("--once --dry-run --unknown --Once > dryRun=true; "
                                "tarnlink --disabled --once > enabled=false once=true; "
                                "- --probe-mode off > probeMode=off; - --probe-mode --once > once=true; "
                                "- --probe-mode fast --once --probe-mode > once=true; "
                                "- --probe-name --once --probe-name > probeName=--once"))
        EXPECT_EQ(loaded("", words(sides(row).first)), sides(row).second) << row;
    EXPECT_EQ(loaded(R"("ProbeName": "b", "ProbeMode": "off", "Enabled": true)",
                     words("- --probe-name a --probe-mode dns --disabled")),
              "enabled=false probeName=a");
}

TEST(ConfigLoader, WritesForTheMachineAndSaysWhetherItDid) {
    MemoryPreferences store;
    EXPECT_TRUE(ConfigLoader::writeLocalBool(store, false, "TetheringDNSFix"));
    EXPECT_TRUE(ConfigLoader::writeLocalTetheringWhileWired(store, true));
    EXPECT_EQ(json::serialize(store.stored), R"({"TetheringDNSFix":false,"TetheringWhileWired":"allow"})");
    EXPECT_TRUE(ConfigLoader::writeLocalTetheringWhileWired(store, false));
    store.isReadOnly = true;
    EXPECT_FALSE(ConfigLoader::writeLocalBool(store, true, "TetheringDNSFix"));
    EXPECT_FALSE(ConfigLoader::writeLocalTetheringWhileWired(store, true));
    const auto config = ConfigLoader::load(store, {});
    EXPECT_TRUE(!config.fixShadowedDNS && config.disableTetheringWhileWired);
}

TEST(URL, HasASchemeAndOnlyWhatAnAddressMayHold) {
    for (const auto &row :
         rows("https://a.example > a.example; "
              "https://u:p@a.example:8443/x?y=z&q#f > a.example; https://[::1]:443/ > [::1]; "
              "https://a:/ > a; https://a/%20%FF%af > a; mailto:a@b.example > ; "
              "file:///x > ; x-a+b.c://A > A")) {
        const auto &[address, host] = sides(row);
        const auto url = URL::parse(address).value();
        EXPECT_EQ(url.absoluteString(), address);
        EXPECT_EQ(url.host(), host) << row;
        EXPECT_EQ(url.scheme(), address.substr(0, address.find(':')));
    }
    for (const auto &text :
         rows("; https; ://a; 1https://a; ht tps://a; https:; https://; https:///x; "
              "https:/a; http://:80/; https://u@/; https://a b; https://a/b c; https://a/\n; "
              "https://a/\"; https://a/<x>; https://\u00e4; https://a/%; https://a/%4; "
              "https://a/%4g; https://a/%g4; https://a:80a; https://a:-1; https://[::1; "
              "https://[::1]x; https://[]; https://[g::1]; https://a]; https://a/[; "
              "https://u@v@a; /dl/x.json"))
        EXPECT_FALSE(URL::parse(text)) << text;
}

} // namespace
} // namespace tarn
