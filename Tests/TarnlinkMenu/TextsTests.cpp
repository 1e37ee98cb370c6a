#include "Support/Words.h"
#include "TarnCore/LocalizedStrings.h"
#include "TarnCore/Status.h"
#include "TarnlinkMenu/Format.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>

namespace tarn {
namespace {

using Texts = std::map<std::string, std::string, std::less<>>;

std::string contents(const std::filesystem::path &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

Texts texts(const std::string &language) {
    const std::filesystem::path folder = RESOURCES_FOLDER;
    return StringTable::parse(contents(folder / (language + ".lproj") / "Localizable.strings"))
        .value()
        .entries();
}

std::vector<std::string> matches(const std::string &text, const std::regex &pattern, std::size_t group) {
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match)
        found.push_back((*match)[group]);
    return found;
}

std::set<std::string> usedKeys() {
    const std::filesystem::path root = std::filesystem::path(RESOURCES_FOLDER).parent_path();
    std::string code;
    for (const auto &file : std::filesystem::directory_iterator(root / "TarnlinkMenu"))
        if (file.path().extension() == ".cpp" || file.path().extension() == ".h")
            code += contents(file.path());
    static const std::regex key(
        R"re("((menu|status|settings|update|help|admin|pause|wifi|header|vpn)\.[\w.]*\w)")re");
    const auto found = matches(code, key, 1);
    std::set<std::string> keys(found.begin(), found.end());
    // Drawings.
    keys.erase("pause.circle"), keys.erase("wifi.slash");
    // Those that are put together.
    for (const char *suffix : {".tls", ".tls.named"})
        keys.insert(std::string("update.error.download") + suffix);
    for (const auto kind : Status::allKinds)
        for (const char *suffix : {".title", ".detail", ".accessibility"})
            keys.insert("status." + std::string(Status::caseName(kind)) + suffix);
    return keys;
}

/// What a format takes, by position: "1@", "2d".
std::set<std::string> arguments(const std::string &text) {
    static const std::regex conversion(R"(%(?:([1-9])\$)?(%|@|d|[^%@d]|$))");
    std::set<std::string> taken;
    int next = 0;
    for (std::sregex_iterator match(text.begin(), text.end(), conversion), end; match != end; ++match)
        if ((*match)[2] != "%")
            taken.insert(((*match)[1].matched ? (*match)[1].str() : std::to_string(++next)) +
                         (*match)[2].str());
    return taken;
}

TEST(Texts, EveryKeyHasItsTextInBothLanguagesAndNoTextIsLeftOver) {
    const auto used = usedKeys();
    EXPECT_GT(used.size(), 100U);
    for (const char *language : {"en", "de"}) {
        const auto table = texts(language);
        for (const auto &key : used)
            EXPECT_TRUE(table.contains(key)) << key << " has no text in " << language;
        for (const auto &[key, text] : table) {
            EXPECT_TRUE(used.contains(key)) << key << " is not used, but in " << language;
            EXPECT_FALSE(text.empty() || text.front() == ' ' || text.back() == ' ') << key;
        }
    }
}

TEST(Texts, FormatsTakeTheSameInBothLanguages) {
    const auto english = texts("en"), german = texts("de");
    for (const auto &[key, text] : english) {
        const auto taken = arguments(text);
        EXPECT_EQ(taken, arguments(german.at(key))) << key;
        for (const auto &argument : taken)
            EXPECT_TRUE(argument.back() == '@' || argument.back() == 'd') << key << " " << argument;
    }
}

TEST(Format, NeverReadsBeyondItsArguments) {
    for (const auto &row :
         rows("plain > plain; %@ (%@) > a (b); %2$@ %1$@ > b a; %d %@ %@ > a b %@; 100 %% > 100 %; "
              "%3$@ %9$d > %3$@ %9$d; %0$@ %x %1$x > %0$@ %x %1$x; %1$@%1$d > aa; %1$ > %1$; % > %; %%@ > "
              "%@")) {
        const auto [text, expected] = sides(row);
        EXPECT_EQ(format(text, {"a", "b"}), expected) << text;
    }
    EXPECT_EQ(format("%@ %@", {"%@", "100 %"}), "%@ 100 %");
}

} // namespace
} // namespace tarn
