#include "TarnlinkDaemon/Recording.h"

#include "Support/FakeServices.h"
#include "Support/Words.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace tarn {
namespace {

using namespace std::chrono_literals;

constexpr auto highest = std::numeric_limits<std::uint64_t>::max();

DaemonConfig config() {
    DaemonConfig config{false, ProbeMode::off, "n", NAN, -INFINITY, -7, INFINITY, -0.0};
    config.wifiOffMode = WiFiOffMode::service;
    config.updateFeedURL = *URL::parse("https://other.example/feed");
    config.dryRun = config.once = true;
    return config;
}

const InterfaceSnapshot cable{"eth0",
                              InterfaceKind::wired,
                              "e",
                              "Office",
                              true,
                              0,
                              true,
                              {"10.0.0.2"},
                              {{"fe80::1%eth0", 16}},
                              "10.0.0.1",
                              {},
                              true,
                              {"10.0.0.1"},
                              false};
const Reading reading{
    {cable, {}}, false, {{"a", "A", false, configured("[null]"), {}}}, {{"key", {"::1"}, {"corp"}}}};

TEST(Recording, InputsComeBackAsTheyWere) {
    const Journal journal{Journal::WiFi{WiFiOffMode::address, {}, {}}, {{"a", "A"}}, words("a"), {}};
    const std::vector<Input::What> all = {
        input::Start{config(), "boot", journal, Pause{{1ns, 2ns}, "b", 3ns}, "damage", highest, true},
        input::Start{},
        input::NetworkChanged{words("a b")},
        input::ReadingTaken{highest, reading},
        input::ReadingFailed{1, "m"},
        input::ProbeEnded{2, ProbeOutcome::reachable(0.1)},
        input::ProbeEnded{2, ProbeOutcome::error("e")},
        input::ProbeEnded{2, ProbeOutcome::timeout()},
        input::BytesCounted{"d", KernelTables::ByteCounts{highest, 1}},
        input::CommandEnded{3, "e"},
        input::JournalWritten{4, "e"},
        input::TimeCame{},
        input::PauseWanted{-5ns},
        input::ResumeWanted{},
        input::SettingsChanged{config()},
        input::Woke{},
        input::ClockSet{},
        input::StopWanted{}};
    for (const auto &what : all) {
        const auto line = recording::asLine(Input{{5ns, -6ns}, what});
        const auto back = recording::inputFromLine(line);
        EXPECT_TRUE(back.at == (Moment{5ns, -6ns}) && back.what.index() == what.index());
        EXPECT_EQ(recording::asLine(back), line);
        if (const auto *taken = std::get_if<input::ReadingTaken>(&back.what)) {
            EXPECT_TRUE(taken->number == highest && taken->reading == reading);
        }
    }
    recording::Replay replay([](const std::string &) {});
    const auto woke = recording::asLine(Input{{}, input::Woke{}});
    const auto at = std::string(R"({"at":{"sinceBoot":1,"sinceEpoch":2},)");
    for (const auto &line : {std::string("{"), std::string("[]"), at + R"("input":"nap","what":{}})", woke,
                             at + R"("input":"woke","what":{"x":1}})", std::string(R"({"decision":{}})")})
        EXPECT_THROW(replay.take(line), DecodingError) << line;
}

TEST(Recording, ASessionReplayedDecidesTheSame) {
    Guard guard;
    std::vector<std::string> lines, decisions;
    auto at = 1s;
    const auto tell = [&](const Input::What &what) {
        const Input input{{at += 1s, at}, what};
        lines.push_back(recording::asLine(input));
        for (const auto &effect : guard.handle(input))
            if (const auto *decided = std::get_if<effect::Decided>(&effect)) {
                lines.push_back(recording::asLine(decided->decision));
                decisions.push_back(lines.back());
            }
    };
    tell(input::Start{});
    tell(input::ReadingTaken{1, {{cable}, true, {}, {}}});
    tell(input::ProbeEnded{1, ProbeOutcome::reachable(0.01)});
    tell(input::NetworkChanged{words("key")});
    tell(input::ReadingTaken{2, {}});
    tell(input::StopWanted{});
    ASSERT_GE(decisions.size(), 3u);

    std::vector<std::string> printed;
    const auto differences = [&](const std::vector<std::string> &recorded) {
        printed.clear();
        recording::Replay replay([&](const std::string &line) { printed.push_back(line); });
        for (const auto &line : recorded)
            replay.take(line);
        return replay.differences();
    };
    EXPECT_EQ(differences(lines), 0u);
    EXPECT_EQ(printed, decisions);
    for (auto place = lines.begin(); place != lines.end(); ++place) {
        if (!place->starts_with("{\"decision"))
            continue;
        std::vector<std::string> other(lines.begin(), place);
        EXPECT_EQ(differences(other), 0u); // cut off
        other.insert(other.end(), place + 1, lines.end());
        EXPECT_EQ(differences(other), 1u); // not recorded
        other.insert(other.begin() + (place - lines.begin()), 2, *place);
        EXPECT_EQ(differences(other), 1u); // not made again
        std::vector<std::string> changed = lines;
        auto &line = changed[static_cast<std::size_t>(place - lines.begin())];
        line.replace(line.find("reason"), 6, "Reason");
        EXPECT_EQ(differences(changed), 1u);
    }
}

} // namespace
} // namespace tarn
