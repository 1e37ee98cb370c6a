#include "Support/Signer.h"
#include "Support/Words.h"
#include "TarnSystem/Updates/UpdateFeed.h"

#include <array>
#include <fstream>
#include <gtest/gtest.h>

namespace tarn {
namespace {

using Kind = UpdateFeedError::Kind;

std::string digest(std::size_t length = 64) {
    return std::string(length - 1, 'a') + "F";
}

/// "ok", or why not.
std::string verdict(std::string_view data, std::string_view signature, std::string_view key) {
    try {
        UpdateFeed::verifyAndDecode(data, signature, key);
        return "ok";
    } catch (const UpdateFeedError &error) {
        return error.description();
    }
}

std::string fromHexadecimal(const std::string &text) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    return bytes;
}

const std::string smallManifest =
    R"({"version":"2.0","build":2,"minOS":"13","url":"https://a.example/p","sha256":")" + digest() +
    R"(","published":"2026-01-02"})";

// The messages are no manifests: the decoder's words are only heard once the signature is good.
TEST(Signature, VectorsOfRFC8032) {
    std::ifstream file(UPDATE_TESTS "/rfc8032.txt");
    std::array<std::string, 3> vector;
    int count = 0;
    while (file >> vector[0] >> vector[1] >> vector[2]) {
        const auto key = base64::encode(fromHexadecimal(vector[0]));
        const auto message = vector[1] == "-" ? "" : fromHexadecimal(vector[1]);
        const auto signature = base64::encode(fromHexadecimal(vector[2]));
        EXPECT_EQ(verdict(message, signature, key).substr(0, 21), "manifest unreadable: ") << vector[1];
        EXPECT_EQ(verdict(message + "x", signature, key), "manifest signature invalid") << vector[1];
        ++count;
    }
    EXPECT_EQ(count, 5);
}

TEST(Signature, EveryFlippedBitIsRefusedUnread) {
    const Signer signer;
    const auto key = signer.publicKey();
    for (const std::string &manifest : {smallManifest, std::string("no manifest")}) {
        const auto text = signer.sign(manifest);
        const auto signature = *base64::decode(text);
        ASSERT_NE(verdict(manifest, text, key), "manifest signature invalid");
        const auto sweep = [](const std::string &whole, const auto &refused) {
            for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
                auto changed = whole;
                changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ 1 << bit % 8);
                EXPECT_EQ(refused(changed), "manifest signature invalid") << bit;
            }
        };
        sweep(manifest, [&](const auto &changed) { return verdict(changed, text, key); });
        sweep(text, [&](const auto &changed) { return verdict(manifest, changed, key); });
        sweep(signature,
              [&](const auto &changed) { return verdict(manifest, base64::encode(changed), key); });
        for (const auto &other : {std::string(), signature.substr(1), signature + "x", signature + signature})
            EXPECT_EQ(verdict(manifest, base64::encode(other), key), "manifest signature invalid");
        sweep(key, [&](const auto &changed) { return verdict(manifest, text, changed); });
    }
}

TEST(Base64, IsStrict) {
    // RFC 4648, section 10.
    for (const auto &row :
         rows("f > Zg==; fo > Zm8=; foo > Zm9v; foob > Zm9vYg==; fooba > Zm9vYmE=; foobar > Zm9vYmFy")) {
        const auto [bytes, text] = sides(row);
        EXPECT_EQ(base64::encode(bytes), text);
        EXPECT_EQ(base64::decode(text), bytes);
    }
    EXPECT_EQ(base64::decode(""), "");
    EXPECT_EQ(base64::decode("+/+/"), "\xFB\xFF\xBF");
    for (const char *text : {"Zg", "Zg=", "Zg===", "Zh==", "Zm9=", "Zm9vZ", "=",
                             "====", "Zg==Zg==", " Zg==", "Zg==\n", "Zm 9v", "Zm9v=", "-_-_", "Zg=\0="})
        EXPECT_EQ(base64::decode(text), std::nullopt) << text;
    EXPECT_EQ(base64::decode(std::string_view("Zm9v\0", 5)), std::nullopt);
}

TEST(Manifest, IsCheckedInOrder) {
    const Signer signer;
    const auto object = [](const std::string &url, const std::string &sha256, const std::string &more = "") {
        return R"({"version":"2.0","build":152,"minOS":"13","published":"x","url":")" + url +
               R"(","sha256":")" + sha256 + "\"" + more + "}";
    };
    const std::string https = "https://a.example/p";
    const std::vector<std::pair<std::string, std::string>> table = {
        {object(https, digest()), "ok"},
        {object(https, digest(), R"(,"size":null,"notes":null,"colour":[1])"), "ok"},
        {object("http://a.example/p", digest()), "manifest url must be https"},
        {object("HTTPS://a.example/p", digest()), "manifest url must be https"},
        {object("https://", digest()), "manifest url must be https"},
        {object("/p", "short"), "manifest url must be https"},
        {object(https, digest(63)), "manifest unreadable: sha256"},
        {object(https, digest(65)), "manifest unreadable: sha256"},
        {object(https, "g" + digest(63)), "manifest unreadable: sha256"},
        {object("", digest(), R"(,"size":1.5)"), "manifest unreadable: size: not an integer of 64 bits"},
        {object("", "", R"(,"notes":7)"), "manifest unreadable: notes: not a string"},
        {R"({"version":"2.0"})", "manifest unreadable: build: missing"},
        {R"({"version":"2.0","build":"152"})", "manifest unreadable: build: not an integer of 64 bits"},
        {R"({"version":"2.0","build":9223372036854775808})",
         "manifest unreadable: build: not an integer of 64 bits"},
        {"[]", "manifest unreadable: not an object"},
        {object(https, digest(), R"(,"build":1)"), "manifest unreadable: line 1, column "},
    };
    for (const auto &[data, expected] : table)
        EXPECT_EQ(verdict(data, signer.sign(data), signer.publicKey()).substr(0, expected.size()), expected)
            << data;

    const auto data = object(https, digest(), R"(,"size":7,"notes":"https://n.example/")");
    const auto manifest = UpdateFeed::verifyAndDecode(data, signer.sign(data), signer.publicKey());
    EXPECT_EQ(manifest, (UpdateManifest{"2.0", 152, "13", https, digest(), 7, "x", "https://n.example/"}));
    EXPECT_EQ(manifest.fullVersion(), "2.0.152");
}

TEST(Manifest, AppliesToOlderBuildsOnSystemsNewEnough) {
    // Build of the manifest, its minOS, and the system; 151 is installed.
    for (const auto &row :
         rows("151 13.0 14.0 > no; 150 13.0 14.0 > no; 152 13.0 14.0 > yes; 152 13 13.0.0 > yes; "
              "152 13.0.1 13.0 > no; 152 13.1 13.0.9 > no; 152 14 13.9.9 > no; 152 9 13 > yes; "
              "152 .13..1. 13.1 > yes; 152 13.x.2 13.1.9 > no; 152 13.0.0.9 13 > yes; 152 - 0 > yes; "
              "152 6.1 6.1.0-18-amd64 > yes; 152 6.2 6.1.0-18-amd64 > no")) {
        const auto [given, expected] = sides(row);
        const auto word = words(given);
        const UpdateManifest manifest{"", std::stoll(word[0]), word[1], "", ""};
        EXPECT_EQ(UpdateFeed::isApplicable(manifest, 151, SystemVersion::parse(word[2])), expected == "yes")
            << row;
    }
}

TEST(Manifest, NotesOnlyFromOurHosts) {
    for (const auto &row :
         rows("https://a.example/n > yes; https://a.example:444/n > yes; http://a.example/n > no; "
              "https://b.example/a.example > no; https://a.example.b.example > no; "
              "https://a.example@b.example/ > no; nonsense > no")) {
        const auto [notes, expected] = sides(row);
        const UpdateManifest manifest{"", 1, "", "", "", {}, "", notes};
        EXPECT_EQ(UpdateFeed::notesURL(manifest, {"a.example"}).has_value(), expected == "yes") << row;
    }
    EXPECT_EQ(UpdateFeed::notesURL({}, {""}), std::nullopt);
    EXPECT_TRUE(UpdateFeed::notesHosts().contains(std::string(UpdateFeed::defaultNotesURL().host())));
    EXPECT_TRUE(UpdateFeed::notesHosts().contains(std::string(UpdateFeed::defaultManifestURL().host())));
}

} // namespace
} // namespace tarn
