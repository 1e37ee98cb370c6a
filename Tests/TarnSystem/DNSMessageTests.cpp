#include "TarnSystem/DNSMessage.h"
#include "TarnSystem/ProbeOutcome.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

using namespace std::string_literals;

std::string text(const std::vector<std::byte> &data) {
    return {reinterpret_cast<const char *>(data.data()), data.size()};
}

std::span<const std::byte> bytes(std::string_view data) {
    return std::as_bytes(std::span(data));
}

TEST(DNSMessage, QueryIsOneQuestionForAnAddress) {
    EXPECT_EQ(text(DNSMessage::query(0x1234, "tarnlink.probe.invalid")),
              "\x12\x34\x01\0\0\1\0\0\0\0\0\0\x08tarnlink\x05probe\x07invalid\0\0\1\0\1"s);
}

TEST(DNSMessage, NameIsCutToWhatFits) {
    const std::string a63(63, 'a'), label = "\x3F" + a63, dotted = a63 + "." + a63 + "." + a63 + ".";
    const std::string b60(60, 'b'), b59(59, 'b');
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"...", ""},
        {".a..b.", "\1a\1b"},
        {"\xC3\xA4 b", "\4\xC3\xA4 b"},
        {a63, label},
        {std::string(70, 'a'), label},
        {dotted + a63 + "." + a63, label + label + label},
        {dotted + b60 + ".c", label + label + label},
        {dotted + b59, label + label + label + "\x3B" + b59}};
    for (const auto &[name, encoded] : cases)
        EXPECT_EQ(text(DNSMessage::query(0, name)).substr(12), encoded + "\0\0\1\0\1"s) << name;
}

TEST(DNSMessage, OnlyRepliesHaveHeaderFields) {
    const auto reply = "\xAB\xCD\x80\x7F\0\1\1\2\0\0\0\0 rest"s,
               noReply = "\xAB\xCD\x7F\xFF\0\1\1\2\0\0\0\0"s;
    EXPECT_EQ(DNSMessage::responseID(bytes(reply)), 0xABCD);
    EXPECT_EQ(DNSMessage::responseCode(bytes(reply)), 15);
    EXPECT_EQ(DNSMessage::answerCount(bytes(reply).first(12)), 0x0102);
    for (const auto &data : {reply.substr(0, 11), ""s, noReply, text(DNSMessage::query(0xABCD, "name"))}) {
        EXPECT_EQ(DNSMessage::responseID(bytes(data)), std::nullopt);
        EXPECT_EQ(DNSMessage::responseCode(bytes(data)), std::nullopt);
        EXPECT_EQ(DNSMessage::answerCount(bytes(data)), std::nullopt);
    }
}

TEST(DNSVerdict, FollowsFromCodeAndAnswers) {
    const auto of = [](const ProbeOutcome &outcome, char code, char answers = 1) {
        const auto reply =
            "\x12\x34\x81"s + static_cast<char>(0x80 | code) + "\0\1\0"s + answers + "\0\0\0\0"s;
        return verdict(outcome, bytes(reply));
    };
    const auto reachable = ProbeOutcome::reachable(0.1);
    std::vector<DNSVerdict> expected(16, DNSVerdict::unreachable);
    expected[0] = DNSVerdict::knowsName, expected[3] = DNSVerdict::unknownName,
    expected[5] = DNSVerdict::refused;
    for (char code = 0; code < 16; ++code) {
        EXPECT_EQ(of(reachable, code), expected[static_cast<std::size_t>(code)]) << int{code};
        EXPECT_EQ(of(ProbeOutcome::timeout(), code), DNSVerdict::unreachable);
        EXPECT_EQ(of(ProbeOutcome::error("down"), code), DNSVerdict::unreachable);
    }
    EXPECT_EQ(of(reachable, 0, 0), DNSVerdict::noAnswerButKnows);
    EXPECT_EQ(verdict(reachable, std::nullopt), DNSVerdict::unreachable);
    EXPECT_EQ(verdict(reachable, bytes("short")), DNSVerdict::unreachable);
}

} // namespace
} // namespace tarn
