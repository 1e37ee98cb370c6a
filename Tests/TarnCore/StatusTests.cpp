#include "TarnCore/StatusPresentation.h"

#include "Support/Words.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace tarn {
namespace {

using Dictionary = Value::Dictionary;

const struct {
    Status status;
    std::string name;
    const char *symbol;
    bool isWarning;
} statuses[] = {
    {Status::wired("en7", "USB LAN"), "wired", "cable.connector", false},
    {Status::wiredPending("en7", "USB LAN"), "wiredPending", "cable.connector", false},
    {Status::wiredUnreachable("en7", "USB LAN"), "wiredUnreachable", "exclamationmark.triangle", true},
    {Status::wifi(), "wifi", "antenna.radiowaves.left.and.right", false},
    {Status::offline(), "offline", "antenna.radiowaves.left.and.right.slash", true},
    {Status::wifiOff(), "wifiOff", "wifi.slash", false},
    {Status::paused(), "paused", "pause.circle", true},
    {Status::disabled(), "disabled", "shield.slash", true}};

TEST(StatusCoding, IsAnObjectWithTheCaseAsItsOneKey) {
    for (const auto &[status, name, symbol, isWarning] : statuses) {
        const bool hasPayload = name.starts_with("wired");
        const Value coded = Dictionary{
            {name, hasPayload ? Dictionary{{"device", "en7"}, {"name", "USB LAN"}} : Dictionary()}};
        EXPECT_TRUE(status.encoded() == coded) << name;
        EXPECT_TRUE(Status::decode(coded) == status) << name;
    }
}

std::string failure(const Value &coded) {
    try {
        return "gave " + std::string(Status::caseName(Status::decode(coded).kind));
    } catch (const DecodingError &error) {
        return error.kind() == DecodingError::Kind::keyNotFound ? "missing" : error.description();
    }
}

TEST(StatusCoding, OneKnownKeyWithItsWholePayloadIsNeeded) {
    const Value none = Dictionary(), name = Dictionary{{"name", "x"}}, device = Dictionary{{"device", "en7"}};
    const Value number = Dictionary{{"device", 7}, {"name", "x"}},
                full = Dictionary{{"x", 1}, {"name", ""}, {"device", "en7"}};
    const Value extra = Dictionary{{"extra", 1}, {"wiredPending", full}, {"WiFi", none}};
    EXPECT_TRUE(Status::decode(extra) == Status::wiredPending("en7", ""));
    const Dictionary miscounted[] = {
        {}, {{"extra", none}}, {{"WiFi", none}}, {{"wifi", none}, {"offline", none}}};
    for (const auto &coded : miscounted)
        EXPECT_EQ(failure(coded), "Invalid number of keys found, expected one.");
    for (const auto &payload : {none, name, device})
        EXPECT_EQ(failure(Dictionary{{"wired", payload}}), "missing");
    for (const Value &coded : {Value(Dictionary{{"wired", number}}), Value(Dictionary{{"wired", "en7"}}),
                               Value(Dictionary{{"wifi", 1}}), Value("wifi"), Value()})
        EXPECT_EQ(failure(coded).find("Expected a "), 0U) << failure(coded);
}

TEST(StatusPresentation, IsTheTable) {
    for (const auto &[status, name, symbol, isWarning] : statuses) {
        const StatusPresentation shown(status);
        EXPECT_EQ(shown.symbolName, symbol) << name;
        EXPECT_EQ(shown.titleKey, "status." + name + ".title");
        EXPECT_EQ(shown.detailKey, "status." + name + ".detail");
        EXPECT_EQ(shown.accessibilityKey, "status." + name + ".accessibility");
        EXPECT_EQ(shown.isWarning, isWarning) << name;
        EXPECT_EQ(shown.detailArguments.size(), name.starts_with("wired") ? 2U : 0U);
        EXPECT_TRUE(shown.detailArguments.empty() || shown.detailArguments == rows("USB LAN; en7"));
        for (const bool wifiOn : {false, true})
            EXPECT_EQ(StatusPresentation::menuBarSymbol(status, wifiOn), symbol);
    }
}

/// How many texts a format takes; far too many when it takes anything else.
std::size_t placeholders(const std::string &text) {
    std::size_t count = 0;
    for (auto at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1))
        count += text.compare(at, 2, "%@") == 0 ? 1 : 100;
    return count;
}

TEST(Resources, EveryLanguageSaysEveryStatus) {
    for (const std::string language : {"en", "de"}) {
        SCOPED_TRACE(language);
        std::ifstream file(RESOURCES_FOLDER "/" + language + ".lproj/Localizable.strings");
        const auto table = StringTable::parse(std::string(std::istreambuf_iterator<char>(file), {}));
        ASSERT_TRUE(table);
        for (const auto &row : statuses) {
            const StatusPresentation shown(row.status);
            for (const auto &key : {shown.titleKey, shown.detailKey, shown.accessibilityKey}) {
                EXPECT_NE(table->localized(key), key);
                EXPECT_EQ(placeholders(table->localized(key)),
                          key == shown.detailKey ? shown.detailArguments.size() : 0);
            }
        }
    }
}

TEST(StringTable, ReadsEntriesEscapesAndComments) {
    const auto table = StringTable::parse(R"(/* "a" = "b"; */ // "c" = "d";
        "plain" = "text"; "same line"="x";
        "esc\"\\" // between
        = /**/"\"q\" \\ \n\t%@ // /*" ; "empty" = ""; // last)");
    const std::map<std::string, std::string, std::less<>> expected = {
        {"plain", "text"}, {"same line", "x"}, {"esc\"\\", "\"q\" \\ \n\t%@ // /*"}, {"empty", ""}};
    EXPECT_EQ(table.value().entries(), expected);
    EXPECT_EQ(table->localized("plain"), "text");
    EXPECT_EQ(table->localized("absent"), "absent");
    EXPECT_TRUE(StringTable::parse(" // nothing\n").value().entries().empty());
}

} // namespace
} // namespace tarn
