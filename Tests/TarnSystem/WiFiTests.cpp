#include "Platform/Platform.h"
#include "Support/Words.h"
#include "TarnSystem/WiFiController.h"
#include "TarnSystem/WiFiDetails.h"
#include "TarnSystem/WiFiFrequency.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace tarn {
namespace {

namespace fs = std::filesystem;
using Kind = WiFiClient::PowerResult::Kind;
using Interface = WiFiClient::Interface;

class Radio final : public WiFiClient, public Log {
public:
    std::optional<Interface> state;
    PowerResult result;
    std::string logged;

    std::optional<bool> powerOn() override { return std::nullopt; }
    std::optional<Interface> interface() override { return state; }
    PowerResult setPower(bool) override { return result; }
    void write(Level, std::string_view category, std::string_view) override { logged += category; }
    /// What went wrong, in words for people.
    std::string failure(const std::optional<std::string> &tool, bool on = false) {
        const auto platform = makePlatform();
        WiFiController controller(*this, platform->processes(), tool, *this);
        try {
            controller.setPower(on);
            controller.setPower(on);
        } catch (const WiFiControlError &error) {
            return error.description();
        }
        return "none";
    }
};

TEST(WiFiController, ToolIsRunWhereTheSystemDoesNotDoIt) {
    const fs::path folder = fs::path(testing::TempDir()) / "WiFiControllerTest";
    fs::create_directories(folder);
    struct Row {
        Kind kind;
        std::optional<Interface> state;
        std::string commands, arguments, failure;
    };
    const Interface en7 = {"en7", true, {}, {}, 0};
    const std::vector<Row> rows = {
        {Kind::done, en7, "; exit 4", "", "none"},
        {Kind::refused, en7, "", "en7 off", "none"},
        {Kind::refused, Interface(), "", "en0 on", "none"},
        {Kind::noInterface, std::nullopt, "", "en0 on", "none"},
        {Kind::noController, en7, "", "en7 off", "none"},
        {Kind::refused, en7, "; echo 'not  today' >&2; exit 4", "en7 off", "networksetup(4): not  today\n"},
        {Kind::refused, en7, "; echo out; printf 'a\\377' >&2; exit 4", "en7 off", "networksetup(4): "},
        {Kind::refused, en7, "; kill -9 $$", "en7 off", "networksetup(9): "},
        // More than a pipe holds.
        {Kind::refused, en7, "; head -c 2000000 /dev/zero | tr '\\0' x >&2; exit 4", "en7 off",
         "networksetup(4): " + std::string(2000000, 'x')}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.commands);
        const std::string tool = folder / std::to_string(&row - rows.data());
        std::ofstream(tool) << "#!/bin/sh\necho \"$@\" >$0.arguments" << row.commands << "\n";
        fs::permissions(tool, fs::perms::owner_all);
        Radio radio;
        radio.state = row.state;
        radio.result = {row.kind, "the framework's own words"};
        EXPECT_EQ(radio.failure(tool, row.arguments.ends_with("on")) + radio.logged, row.failure);
        std::string arguments;
        std::getline(std::ifstream(tool + ".arguments"), arguments);
        EXPECT_EQ(arguments, row.arguments.empty() ? "" : "-setairportpower " + row.arguments);
    }
    fs::remove_all(folder);
    Radio radio;
    radio.result.kind = Kind::refused;
    EXPECT_EQ(radio.failure(folder / "tool"), "networksetup(-1): No such file or directory");
}

TEST(WiFiController, WithoutAToolNothingToSwitchIsNoFailure) {
    for (const auto &[kind, failure, logged] :
         {std::tuple(Kind::noInterface, "none", "wifi"), std::tuple(Kind::noController, "none", "wifi"),
          std::tuple(Kind::refused, "NetworkManager: a switch", ""), std::tuple(Kind::done, "none", "")}) {
        Radio radio;
        radio.result = {kind, "a switch"};
        EXPECT_EQ(radio.failure(std::nullopt), failure);
        EXPECT_EQ(radio.logged, logged) << "once";
        EXPECT_EQ(radio.failure(std::nullopt, true) != "none",
                  kind == Kind::refused || kind == Kind::noController);
    }
}

TEST(WiFiDetails, UnknownIsAbsent) {
    using Band = WiFiDetails::Band;
    const std::vector<std::pair<std::optional<Interface>, std::optional<WiFiDetails>>> rows = {
        {std::nullopt, std::nullopt},
        {{{"en0", false, "Home", {{36, 2}}, -50}}, std::nullopt},
        {{{"en0", true, "Home", {{6, 1}}, -67}}, {{"Home", Band::ghz2_4, 6, -67}}},
        {{{{}, true, {}, {{36, 2}}, 0}}, {{{}, Band::ghz5, 36, {}}}},
        {{{{}, true, "", {{1, 3}}, 1}}, {{"", Band::ghz6, 1, 1}}},
        {{{{}, true, {}, {{11, 0}}, 0}}, {{{}, {}, 11, {}}}}};
    for (const auto &[state, expected] : rows) {
        Radio radio;
        radio.state = state;
        EXPECT_EQ(CoreWLANDetails(radio).current(), expected) << &state - &rows[0].first;
    }
    EXPECT_EQ(wifiBand("ghz2_4"), Band::ghz2_4);
    EXPECT_FALSE(wifiBand("ghz2.4") || wifiBand(""));
}

TEST(WiFiFrequency, ChannelsAndSignalComeFromFrequencyAndPercent) {
    for (const auto &row : rows(
             "2412 > 1 1; 2472 > 13 1; 2484 > 14 1; 5160 > 32 2; 5180 > 36 2; 5885 > 177 2; 5935 > 2 3; "
             "5955 > 1 3; 7115 > 233 3; 0 > 0 0; 2407 > 0 0; 2413 > 0 0; 2477 > 0 0; 5155 > 0 0; 5182 > 0 0; "
             "5890 > 0 0; 5950 > 0 0; 7120 > 0 0")) {
        const auto frequency = static_cast<std::uint32_t>(std::stoul(row));
        const auto found = channelOfFrequency(frequency).value_or(WiFiClient::Channel());
        EXPECT_EQ(std::to_string(found.number) + " " + std::to_string(found.bandCode), sides(row).second)
            << row;
    }
    // Every signal comes back from the percent that NetworkManager makes of it.
    for (int dBm = -99; dBm <= -40; ++dBm)
        EXPECT_EQ(rssiOfStrength(static_cast<unsigned>(100 - (-40 - dBm) * 100 / 60)), dBm);
    EXPECT_EQ(rssiOfStrength(0), 0);
}

} // namespace
} // namespace tarn
