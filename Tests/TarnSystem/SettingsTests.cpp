// The table of settings, held against what the loader does with it.

#include "Support/Words.h"
#include "TarnCore/Text.h"
#include "TarnSystem/ConfigLoader.h"
#include "TarnSystem/JsonPreferences.h"
#include "TarnSystem/SettingTexts.h"
#include "TarnSystem/Settings.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace tarn {
namespace {

/// Holds one key and notes what is asked for.
struct OneKey final : Preferences {
    std::string key;
    Value value;
    std::vector<std::string> asked;

    void refresh(const std::string &) override {}
    std::optional<Value> copyAppValue(const std::string &wanted, const std::string &) override {
        asked.push_back(wanted);
        return wanted == key ? std::optional(value) : std::nullopt;
    }
    bool isForced(const std::string &, const std::string &) override { return false; }
    void setMachineValue(const std::string &, const Value &, const std::string &) override {}
    bool synchronizeMachine(const std::string &) override { return true; }
};

/// Every key in the order in which it is read, and the name of its field in describe().
const std::vector<std::pair<std::string, std::string>> &fields() {
    static const auto all = [] {
        std::vector<std::pair<std::string, std::string>> list;
        for (const auto &row :
             rows("Enabled > enabled; RespectManualWiFiOff > respectManualWiFiOff; "
                  "FlushDNSCacheOnSwitch > flushDNSCacheOnSwitch; "
                  "TetheringWhileWired > disableTetheringWhileWired; TetheringDNSFix > fixShadowedDNS; "
                  "SplitDNSFix > fixShadowedDNS; WiFiOffMode > wifiOffMode; UpdateFeedURL > updateFeed; "
                  "UpdateCheck > updateCheck; ProbeMode > probeMode; ProbeName > probeName; "
                  "ProbeTimeoutSeconds > probeTimeout; ProbeIntervalSeconds > probeInterval; "
                  "ProbeFailuresBeforeFallback > probeFailuresBeforeFallback; "
                  "TrafficStallSeconds > trafficStallSeconds; EventDebounceSeconds > eventDebounce; "
                  "MaxPauseMinutes > maxPauseMinutes"))
            list.push_back(sides(row));
        return list;
    }();
    return all;
}

/// What describe() is to say of a field that got the value, going by nothing but the row's own words; none
/// when the row does not accept it.
std::optional<std::string> described(const Setting &setting, const Value &value) {
    const auto print = [](bool flag) { return std::string(flag ? "true" : "false"); };
    const auto *integer = value.integer();
    const auto number = integer        ? std::optional(static_cast<double>(*integer))
                        : value.real() ? std::optional(*value.real())
                                       : std::nullopt;
    switch (setting.type()) {
    case Setting::Type::truth:
        return value.boolean() ? std::optional(print(*value.boolean()))
               : number        ? std::optional(print(*number != 0))
                               : std::nullopt;
    case Setting::Type::word:
        if (!value.string() || std::ranges::find(setting.words(), *value.string()) == setting.words().end())
            return std::nullopt;
        return setting.key == std::string("TetheringWhileWired") ? print(*value.string() == "disable")
                                                                 : *value.string();
    case Setting::Type::text:
        return value.string() ? std::optional(*value.string()) : std::nullopt;
    case Setting::Type::httpsAddress:
        return value.string() && value.string()->starts_with("https://") ? std::optional(*value.string())
                                                                         : std::nullopt;
    case Setting::Type::seconds:
        return number ? std::optional(text::fromDouble(*number)) : std::nullopt;
    case Setting::Type::count:
        break;
    }
    if (!number || (setting.range && (std::trunc(*number) < static_cast<double>(setting.range->lowest) ||
                                      std::trunc(*number) > static_cast<double>(setting.range->highest))))
        return std::nullopt;
    return std::to_string(static_cast<std::int64_t>(*number));
}

TEST(Settings, AreWhatTheLoaderAsksForInThisOrder) {
    OneKey preferences;
    ConfigLoader::load(preferences, {});
    std::vector<std::string> keys, expected;
    for (const auto &setting : settings::all())
        keys.emplace_back(setting.key);
    for (const auto &[key, field] : fields())
        expected.push_back(key);
    EXPECT_EQ(preferences.asked, expected);
    EXPECT_EQ(keys, expected);
}

TEST(Settings, EachTakesWhatItsRowSaysAndChangesNoOtherField) {
    std::vector<Value> values = {{},
                                 true,
                                 false,
                                 0,
                                 1,
                                 2,
                                 -3,
                                 1439,
                                 1440,
                                 1441,
                                 2.5,
                                 0.5,
                                 -2.5,
                                 1440.5,
                                 0.0,
                                 "",
                                 "x",
                                 "true",
                                 "Allow",
                                 "https://a.example/x",
                                 "http://a.example/x",
                                 "HTTPS://a.example/x",
                                 Value::Array{true},
                                 Value::Dictionary{{"a", 1}}};
    for (const auto &setting : settings::all())
        for (const auto word : setting.words())
            values.emplace_back(std::string(word));
    const auto usual = words(DaemonConfig().describe());
    for (std::size_t i = 0; i < fields().size(); ++i) {
        const auto &setting = settings::all()[i];
        const auto name = fields()[i].second + "=";
        for (const auto &value : values) {
            OneKey preferences;
            preferences.key = setting.key, preferences.value = value;
            auto expected = usual;
            if (const auto text = described(setting, value))
                *std::ranges::find_if(expected, [&](const auto &word) { return word.starts_with(name); }) =
                    name + *text;
            EXPECT_EQ(words(ConfigLoader::load(preferences, {}).describe()), expected) << setting.key;
        }
        const auto standard = described(setting, setting.value(DaemonConfig()));
        EXPECT_NE(std::ranges::find(usual, name + standard.value_or("refused")), usual.end()) << setting.key;
        EXPECT_EQ(setting.range.has_value(), setting.key == std::string("MaxPauseMinutes"));
        EXPECT_EQ(setting.olderNameOf != nullptr, setting.key == std::string("SplitDNSFix"));
    }
}

TEST(Settings, HaveTextsInBothLanguages) {
    for (const auto &setting : settings::all()) {
        const auto &texts = SettingTexts::of(setting.key);
        for (const auto text : {texts.title.english, texts.title.german})
            EXPECT_TRUE(!text.empty() && !text.ends_with('.')) << setting.key;
        for (const auto text : {texts.description.english, texts.description.german})
            EXPECT_TRUE(text.ends_with('.') && text.find_first_of("|\n") == text.npos) << setting.key;
        std::vector<std::string_view> explained;
        for (const auto &[word, meaning] : texts.words)
            explained.push_back(word);
        EXPECT_TRUE(std::ranges::equal(explained, setting.words())) << setting.key;
    }
    EXPECT_THROW(SettingTexts::of("Else"), std::out_of_range);
}

TEST(Settings, ManagedExampleLoadsWithAnyOfItsLinesUncommented) {
    struct Lines final : Log {
        std::string text;
        void write(Level, std::string_view, std::string_view message) override { text += message; }
    } log;
    std::string pattern = (std::filesystem::temp_directory_path() / "tarnlink-XXXXXX").string();
    const std::filesystem::path folder = mkdtemp(pattern.data());
    std::ifstream file(PACKAGING "/managed.json.example");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    std::vector<std::string> keys;
    for (const auto &setting : settings::all())
        if (!setting.olderNameOf)
            keys.emplace_back(setting.key);
    const auto count = keys.size();
    // First none, then each, then all.
    for (std::size_t chosen = 0; chosen <= count + 1; ++chosen) {
        std::ofstream out(folder / "managed");
        std::size_t number = 0;
        for (auto line : lines) {
            if (line.starts_with("    // \"") && (++number == chosen || chosen == count + 1))
                line.erase(4, 2);
            out << line << '\n';
        }
        out.close();
        EXPECT_EQ(number, count);
        JsonPreferences preferences({folder / "managed", folder / "machine"}, log);
        for (std::size_t i = 0; i < count; ++i)
            EXPECT_EQ(preferences.isForced(keys[i], ConfigLoader::applicationID),
                      chosen == i + 1 || chosen == count + 1)
                << chosen;
        auto config = ConfigLoader::load(preferences, {});
        // Of the address the build has the default.
        config.updateFeedURL = DaemonConfig().updateFeedURL;
        EXPECT_EQ(config, DaemonConfig()) << chosen;
        EXPECT_EQ(log.text, "");
    }
    std::filesystem::remove_all(folder);
}

} // namespace
} // namespace tarn
