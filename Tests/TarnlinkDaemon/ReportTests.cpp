#include "TarnlinkDaemon/Report.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace tarn {
namespace {

TEST(Report, NamesFromOutsideBreakNeitherLinesNorJson) {
    const std::string hostile = "a\"\\\nstatus: wired\x1B\xFF";
    const std::string shown = "\\u000astatus: wired\\u001b\uFFFD";
    Evaluation evaluation;
    evaluation.wifiPower = true;
    evaluation.wifi = {hostile, WiFiDetails::Band::ghz5, 36, -52};
    evaluation.vpn = {"tun0\n", "10.8.0.2"};
    evaluation.shadowedResolvers = {{"eth8", hostile, "fe80::1%eth8"}};
    evaluation.interfaces.emplace_back().device = hostile;
    const auto wifi = "wifi: on, network \"a\\\"\\\\" + shown + "\", 5 GHz, channel 36, -52 dBm\n";
    const auto shadowed = "shadowed DNS: a\"\\" + shown + " by fe80::1%eth8 on eth8\n";
    EXPECT_THAT(report::asText(evaluation),
                testing::HasSubstr("\n  a\"\\" + shown + "  -        other  down  -          -       -\n\n" +
                                   wifi + "vpn: tun0\\u000a, 10.8.0.2\n" + shadowed + "\nprobes:\n"));
    const auto document = nlohmann::json::parse(report::asJson(evaluation));
    EXPECT_EQ(document["wifi"],
              nlohmann::json::parse(R"({"power": true, "ssid": "a\"\\\nstatus: wired\u001b\ufffd",
                                                          "band": "ghz5", "channel": 36, "rssi": -52})"));
    EXPECT_EQ(document["shadowedResolvers"][0]["server"], "fe80::1%eth8");
    evaluation.wifi.reset();
    evaluation.wifiPower.reset();
    evaluation.interfaces[0].kind = InterfaceKind::wifi;
    EXPECT_THAT(report::asText(evaluation), testing::HasSubstr("\nwifi: power unknown\n"));
}

} // namespace
} // namespace tarn
