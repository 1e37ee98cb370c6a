#include "TarnSystem/IPProtocolConfig.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/TrafficCounters.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(IPProtocolConfig, TakenOffAndBroughtBack) {
    struct Row {
        const char *config;
        bool isOff, isAddressLess4, isAddressLess6;
        /// "default" stands for the default method.
        const char *restored;
    };
    const char *const byDefault = R"({"ConfigMethod": "default"})";
    const char *const manual = R"({"ConfigMethod": "Manual"})";
    for (const Row &row :
         {Row{R"({"ConfigMethod": "Off"})", true, true, true, byDefault},
          {R"({"ConfigMethod": "LinkLocal"})", false, false, true, R"({"ConfigMethod": "LinkLocal"})"},
          {manual, false, false, false, manual},
          {R"({"ConfigMethod": "Manual", "__INACTIVE__": true})", true, true, true, manual},
          {R"({"ConfigMethod": "Manual", "__INACTIVE__": 1})", true, true, true, manual},
          {R"({"ConfigMethod": "Manual", "__INACTIVE__": 0})", false, false, false, manual},
          {R"({"ConfigMethod": "Off", "__INACTIVE__": false})", true, true, true, byDefault},
          {R"({"__INACTIVE__": 2})", false, false, false, byDefault},
          {R"({"__INACTIVE__": "true", "ConfigMethod": 7})", false, false, false, byDefault},
          {"{}", false, false, false, byDefault},
          {"null", false, false, false, byDefault}}) {
        SCOPED_TRACE(row.config);
        const auto config = std::get<Value>(json::parse(row.config));
        EXPECT_EQ(IPProtocolConfig::isOff(config), row.isOff);
        EXPECT_EQ(IPProtocolConfig::isAddressLess(config, true, true), row.isAddressLess4);
        EXPECT_EQ(IPProtocolConfig::isAddressLess(config, true, false), row.isAddressLess6);
        EXPECT_TRUE(IPProtocolConfig::isAddressLess(config, false, true));
        for (const bool isIPv4 : {true, false}) {
            auto expected = std::get<Value>(json::parse(row.restored));
            if (row.restored == byDefault)
                expected.set("ConfigMethod", isIPv4 ? "DHCP" : "Automatic");
            EXPECT_EQ(IPProtocolConfig::restored(config, isIPv4), expected);
        }
    }
    EXPECT_EQ(IPProtocolConfig::addressLessMethod(true) + IPProtocolConfig::addressLessMethod(false),
              "OffLinkLocal");
    EXPECT_EQ(IPProtocolConfig::restored(std::nullopt, false),
              (Value::Dictionary{{"ConfigMethod", "Automatic"}}));
}

TEST(TrafficCounters, GrowthIsNeverNegative) {
    const auto grown = TrafficCounters::delta({100, 50}, {40, 70});
    EXPECT_EQ(std::pair(grown.rx, grown.tx), std::pair(std::uint64_t{40}, std::uint64_t{20}));
}

} // namespace
} // namespace tarn
