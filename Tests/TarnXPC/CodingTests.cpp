#include "TarnXPC/TarnXPCCoding.h"

#include <gmock/gmock.h>

namespace tarn {
namespace {

using Kind = DecodingError::Kind;

const Date now = *dates::parse("2026-01-02T03:04:05Z");

Date clockNow() {
    return now;
}

template <class Record> Record decode(const std::string &text) {
    return TarnXPCCoding::decoder(clockNow).decode<Record>(text);
}

template <class Record> std::optional<Kind> failure(const std::string &text) {
    try {
        decode<Record>(text);
        return std::nullopt;
    } catch (const DecodingError &error) {
        return error.kind();
    }
}

TEST(Records, MissingKeysAndNullMeanAnOlderDaemon) {
    StatusReport report;
    report.status = Status::wifi();
    report.generatedAt = now;
    EXPECT_EQ(decode<StatusReport>(R"({"status":{"wifi":{}}})"), report);
    EXPECT_EQ(decode<StatusReport>(R"({"status":{"wifi":{}},"version":null,"reason":null,"wifiOn":null,
        "wifiManuallyOff":null,"pausedUntil":null,"enabled":null,"interfaces":null,"generatedAt":null,
        "tetheringWhileWiredAllowed":null,"updateCheckAllowed":null,"updateFeedURL":null,
        "tetheringDNSFix":null,"vpnDevice":null,"vpnAddress":null,"of a newer one":[{}]})"),
              report);
    EXPECT_EQ(decode<PauseResult>(R"({"granted":false,"pausedUntil":null})"), PauseResult());
    EXPECT_EQ(decode<SettingResult>("{}"), SettingResult());
    EXPECT_EQ(decode<UpdateResult>("{}"), UpdateResult());
}

TEST(Records, ComeBackAsTheyWere) {
    const auto encoder = TarnXPCCoding::encoder();
    const StatusReport report{"1.2",
                              Status::wired("en7", "Of\"fice"),
                              "because",
                              false,
                              true,
                              now,
                              false,
                              {{"en7", "Office", InterfaceKind::wired, true, "192.0.2.1"},
                               {"en0", "Wi-Fi", InterfaceKind::wifi, false, {}}},
                              now,
                              true,
                              false,
                              "https://a.example/b",
                              false,
                              "utun3",
                              "10.8.0.2"};
    const auto text = encoder.encode(report);
    EXPECT_EQ(decode<StatusReport>(text), report);
    EXPECT_EQ(text.find("null"), std::string::npos);
    EXPECT_NE(text.find(R"("pausedUntil":"2026-01-02T03:04:05Z")"), std::string::npos);
    const PauseResult pause{true, "granted", "yes", now, 240};
    EXPECT_EQ(decode<PauseResult>(encoder.encode(pause)), pause);
    EXPECT_EQ(encoder.encode(PauseResult()), R"({"granted":false,"code":"","message":""})");
    const SettingResult setting{true, "managed"};
    EXPECT_EQ(decode<SettingResult>(encoder.encode(setting)), setting);
    const UpdateResult update{true, "installing", "soon", 7};
    EXPECT_EQ(decode<UpdateResult>(encoder.encode(update)), update);
}

TEST(Records, WrongTypesAndHostileBytesAreRefused) {
    const std::string start = R"({"status":{"wifi":{}},)";
    for (const auto &[text, kind] : std::vector<std::pair<std::string, Kind>>{
             {"{}", Kind::keyNotFound},
             {R"({"status":null})", Kind::keyNotFound},
             {R"({"status":{}})", Kind::typeMismatch},
             {R"([])", Kind::typeMismatch},
             {start + R"("version":1})", Kind::typeMismatch},
             {start + R"("wifiOn":1})", Kind::typeMismatch},
             {start + R"("enabled":"true"})", Kind::typeMismatch},
             {start + R"("pausedUntil":0})", Kind::typeMismatch},
             {start + R"("pausedUntil":"2026-01-02T03:04:05.5Z"})", Kind::dataCorrupted},
             {start + R"("interfaces":{}})", Kind::typeMismatch},
             {start + R"("interfaces":[{"device":"a","serviceName":"b","kind":"wired"}]})",
              Kind::keyNotFound},
             {start + R"("interfaces":[{"device":"a","serviceName":"b","kind":"c","linkActive":true}]})",
              Kind::dataCorrupted},
             {start + R"("interfaces":[1]})", Kind::typeMismatch},
             {start + R"("version":"a","version":"b"})", Kind::dataCorrupted},
             {start + "\"version\":\"\xff\"}", Kind::dataCorrupted},
             {start + R"("new":)" + std::string(100'000, '[') + "}", Kind::dataCorrupted},
             {start + R"("new":1e999})", Kind::dataCorrupted},
             {start + "\"new\":\"" + std::string(TarnXPCCoding::mostBytes, 'x') + "\"}", Kind::dataCorrupted},
             {"", Kind::dataCorrupted},
             {start, Kind::dataCorrupted}})
        EXPECT_EQ(failure<StatusReport>(text), kind) << text.substr(0, 100);
    EXPECT_EQ(failure<PauseResult>("{}"), Kind::keyNotFound);
    for (const char *argument : {"1.5", "\"1\"", "9223372036854775808", "true"})
        EXPECT_EQ(failure<PauseResult>(std::string(R"({"granted":true,"argument":)") + argument + "}"),
                  Kind::typeMismatch)
            << argument;
    EXPECT_EQ(failure<SettingResult>(R"({"ok":"yes"})"), Kind::typeMismatch);
}

TEST(Records, ASummaryHasTheAddressThatCountsFirst) {
    InterfaceSnapshot snapshot;
    snapshot.device = "en7";
    snapshot.serviceName = "Office";
    snapshot.kind = InterfaceKind::wired;
    snapshot.linkActive = true;
    InterfaceSummary summary{"en7", "Office", InterfaceKind::wired, true, {}};
    EXPECT_EQ(InterfaceSummary::of(snapshot), summary);
    snapshot.ipv6 = {{"fe80::1", 0}, {"2001:db8::5", 0}};
    summary.address = "2001:db8::5";
    EXPECT_EQ(InterfaceSummary::of(snapshot), summary);
    snapshot.ipv4 = {"169.254.1.1", "192.0.2.20"};
    summary.address = "192.0.2.20";
    EXPECT_EQ(InterfaceSummary::of(snapshot), summary);
}

} // namespace
} // namespace tarn
