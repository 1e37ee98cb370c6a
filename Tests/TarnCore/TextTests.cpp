#include "TarnCore/DateText.h"
#include "TarnCore/Text.h"

#include "Support/Words.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace tarn::text {
namespace {

using namespace std::chrono_literals;

constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
constexpr auto largest = std::numeric_limits<std::int64_t>::max();

TEST(Text, IntegerIsAnOptionalSignAndDigits) {
    EXPECT_EQ(parseInteger("-00000000000000000000000000042"), -42);
    EXPECT_EQ(parseInteger("+9223372036854775807"), largest);
    EXPECT_EQ(parseInteger("-9223372036854775808"), smallest);
    EXPECT_EQ(parseHexadecimal("FeBf"), 0xFEBF);
    EXPECT_EQ(parseHexadecimal("+7fffffffffffffff"), largest);
    EXPECT_EQ(parseHexadecimal("-8000000000000000"), smallest);
    for (const auto &text : rows("; +; -; +-1; -+1; --1; ++1;  1; 1 ; 1\n; 1.0; 0x10; 1g; "
                                 "9223372036854775808000; -9223372036854775809000")) {
        EXPECT_EQ(parseInteger(text), std::nullopt) << '"' << text << '"';
        EXPECT_EQ(parseHexadecimal(text), std::nullopt) << '"' << text << '"';
    }
    EXPECT_FALSE(parseInteger("9223372036854775808") || parseInteger("-9223372036854775809") ||
                 parseInteger("1a"));
    EXPECT_FALSE(parseHexadecimal("8000000000000000") || parseInteger(std::string_view("1\0", 2)));
}

TEST(Text, WhatIsNotUTF8IsReplacedByteByByte) {
    const std::string valid =
        "Caf\u00e9 \n\u07ff\u0800\ue000\uffff\U00010000\U0010ffff" + std::string(1, '\0');
    EXPECT_EQ(withValidUTF8(valid), valid);
    const std::string broken = "\x80|\xC3|\xC0\xAF|\xC1\xBF|\xE0\x9F\xBF|\xED\xA0\x80|\xF0\x8F\xBF\xBF|"
                               "\xF4\x90\x80\x80|\xF5\x80\x80\x80|\xFF\xFE|\xF0\x9F\x98|\xE2\x82";
    std::string expected;
    for (const char byte : broken)
        expected += byte == '|' ? "|" : "\uFFFD";
    EXPECT_EQ(withValidUTF8(broken), expected);
}

TEST(Text, DoubleIsPlainInsideItsRangeAndHasAnExponentOutside) {
    for (const auto &text :
         words("2.0 0.3 100.0 0.0 -0.0 -2.5 -100.0 0.30000000000000004 0.0001 0.00012345 "
               "9.999999999999999e-05 1e-05 -1.5e-05 123456.789 1000000000000000.0 "
               "123456789012345.67 9007199254740992.0 9999999999999998.0 -9999999999999998.0 "
               "1e+16 1.5e+16 1e+23 1e+100 5e-324 2.2250738585072014e-308 "
               "1.7976931348623157e+308"))
        EXPECT_EQ(fromDouble(std::strtod(text.c_str(), nullptr)), text);
}

/// Whether a decimal of so many digits reads back as the number: the nearest one or its neighbours.
bool readsBackWith(int digits, double number) {
    char nearest[40];
    std::snprintf(nearest, sizeof nearest, "%.*e", digits - 1, number);
    const std::string text = nearest;
    auto mantissa = text.substr(0, text.find('e'));
    std::erase(mantissa, '.');
    const auto exponent = "e" + std::to_string(std::stoi(text.substr(text.find('e') + 1)) - digits + 1);
    const auto reads = [&](int step) {
        return std::strtod((std::to_string(std::stoll(mantissa) + step) + exponent).c_str(), nullptr) ==
               number;
    };
    return reads(-1) || reads(0) || reads(1);
}

void expectShortest(double number) {
    const auto text = fromDouble(number);
    ASSERT_EQ(std::strtod(text.c_str(), nullptr), number) << text;
    auto digits = text.substr(0, text.find('e'));
    std::erase_if(digits, [](char c) { return c == '.' || c == '-'; });
    const auto count = static_cast<int>(digits.find_last_not_of('0') + 1 - digits.find_first_not_of('0'));
    ASSERT_FALSE(count > 1 && readsBackWith(count - 1, number)) << text << " has a digit too many";
    const bool isPlain = std::fabs(number) >= 1e-4 && std::fabs(number) < 1e16;
    ASSERT_EQ(text.find('e') == std::string::npos, isPlain) << text;
    ASSERT_TRUE(!isPlain || text.find('.') != std::string::npos) << text;
}

TEST(Text, DoubleHasTheShortestDigitsThatReadBack) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 5000 && !testing::Test::HasFailure(); ++i) {
        const auto bits = random();
        if (const auto number = std::bit_cast<double>(bits); std::isfinite(number))
            expectShortest(number);
        expectShortest(static_cast<double>(bits >> 11) / 0x1p30);
        expectShortest(static_cast<double>(bits % 100000) / 1000 + 0.001);
    }
    // Below a power of two the doubles lie closer than above it: the nearest short decimal may miss
    // where its neighbour hits, as with 2^-44, which is 5.684341886080802e-14.
    for (int exponent = -1074; exponent < 1024; ++exponent)
        expectShortest(std::ldexp(1, exponent));
}

TEST(Text, OneLineStaysOneLine) {
    // What is no UTF-8: RFC 3629, section 4, and lone, missing and surplus continuation bytes.
    for (const auto *text :
         {"\x80", "\xC3", "\xC3(", "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80",
          "\xF0\x8F\xBF\xBF", "\xF0\x9F\x98", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {
        EXPECT_FALSE(isUTF8(std::string("a") + text));
        EXPECT_TRUE(printable(text).starts_with("\uFFFD")) << printable(text);
        EXPECT_TRUE(isUTF8(printable(text)));
    }
    for (const auto *text :
         {"", "a \"b\" \\", "\u00A0\u07FF\u0800\uD7FF\uE000\uFFFF", "\U00010000\U0010FFFF"}) {
        EXPECT_TRUE(isUTF8(text)) << text;
        EXPECT_EQ(printable(text), text);
    }
    EXPECT_EQ(printable(std::string_view("a\0\n\x1B[2J\x7F", 8)), "a\\u0000\\u000a\\u001b[2J\\u007f");
    EXPECT_EQ(printable("\u0085\u2028\u202E\u2069"), "\\u0085\\u2028\\u202e\\u2069");
    EXPECT_EQ(printable("\xE4\xF6z"), "\uFFFD\uFFFDz");
}

TEST(DateText, WholeSecondsWithAZoneAndNothingElse) {
    // Unix time, or "-" for no date.
    for (const auto &[text, expected] :
         std::vector<std::pair<std::string, std::string>>{{"1970-01-01T00:00:00Z", "0"},
                                                          {"2024-02-29T12:34:56Z", "1709210096"},
                                                          {"2024-02-29T12:34:56+01:30", "1709204696"},
                                                          {"2024-02-29T12:34:56-00:01", "1709210156"},
                                                          {"1969-12-31T23:59:59Z", "-1"},
                                                          {"2023-02-29T00:00:00Z", "-"},
                                                          {"2024-01-01T24:00:00Z", "-"},
                                                          {"2024-01-01T00:00:60Z", "-"},
                                                          {"2024-01-01T00:00:00.5Z", "-"},
                                                          {"2024-01-01T00:00:00", "-"},
                                                          {"2024-01-01T00:00:00z", "-"},
                                                          {"2024-01-01T00:00:00+1:00", "-"},
                                                          {"2024-01-01T00:00:00+24:00", "-"},
                                                          {"2024-01-01 00:00:00Z", "-"},
                                                          {"+024-01-01T00:00:00Z", "-"},
                                                          {"1500-01-01T00:00:00Z", "-"},
                                                          {"1678-01-01T00:00:00+23:59", "-"},
                                                          {"2261-12-31T23:59:59-23:59", "-"},
                                                          {"9999-12-31T23:59:59Z", "-"},
                                                          {"", "-"}}) {
        const auto date = dates::parse(text);
        const auto seconds = date ? std::chrono::floor<std::chrono::seconds>(*date).time_since_epoch() : 0s;
        EXPECT_EQ(date ? std::to_string(seconds.count()) : "-", expected) << text;
    }
    EXPECT_EQ(dates::text(Date(1709210096s + 999ms)), "2024-02-29T12:34:56Z");
    EXPECT_EQ(dates::text(Date(-1ns)), "1969-12-31T23:59:59Z");
}

} // namespace
} // namespace tarn::text
