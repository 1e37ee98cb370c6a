#include "TarnXPC/TarnXPCCoding.h"

#include "Support/Words.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

const Date now = *dates::parse("2026-01-02T03:04:05Z");

/// Whether the bytes were a record; then it must come back as it was.
template <class Record> bool comesBack(const std::string &bytes) {
    const TarnXPCCoding::Decoder decoder([] { return now; });
    std::optional<Record> record;
    try {
        record = decoder.decode<Record>(bytes);
    } catch (const DecodingError &error) {
        EXPECT_LT(error.description().size(), 300U);
        return false;
    }
    const auto again = TarnXPCCoding::encoder().encode(*record);
    // What was left out is written now, and may be too much.
    if (again.size() <= TarnXPCCoding::mostBytes) {
        EXPECT_EQ(decoder.decode<Record>(again), *record) << bytes << "\nbecame\n" << again;
    }
    return true;
}

/// How many kinds of records the bytes were.
int decodeAll(const std::string &bytes) {
    return comesBack<StatusReport>(bytes) + comesBack<PauseResult>(bytes) + comesBack<SettingResult>(bytes) +
           comesBack<UpdateResult>(bytes);
}

/// In units of the system's (getrusage(2)).
long peakMemory() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

class Mutator {
public:
    explicit Mutator(std::uint64_t seed) : random_(seed) {}

    std::string next() {
        std::string bytes(pick(64), '\0');
        std::ranges::generate(bytes, [&] { return static_cast<char>(random_()); });
        if (pick(50) == 0)
            return bytes;
        static const auto records = rows(
            R"({"version":"1.2","status":{"wiredUnreachable":{"device":"en7","name":"Of\"fi\u00e9"}},"reason":"",)"
            R"("wifiOn":true,"pausedUntil":"2026-01-02T03:04:05Z","enabled":true,"interfaces":[{"device":"en7",)"
            R"("serviceName":"a","kind":"wired","linkActive":true,"address":"192.0.2.1"},{"device":"en0",)"
            R"("serviceName":"","kind":"wifi","linkActive":false}],"tetheringDNSFix":null,"vpnDevice":"tun0"}; )"
            R"({"granted":true,"code":"a","message":"b","pausedUntil":"2026-01-02T03:04:05+01:00","argument":-7}; )"
            R"({"ok":true,"code":"c"}; {"ok":false,"code":"d","message":"e","build":7})");
        bytes = records[pick(records.size())];
        for (auto left = 1 + pick(4); left > 0; --left)
            mutate(bytes);
        return bytes;
    }

private:
    std::size_t pick(std::size_t count) { return static_cast<std::size_t>(random_() % count); }

    void mutate(std::string &bytes) {
        static const auto tokens =
            words("null true 1e999 -0 0.1 9223372036854775807 -9223372036854775809 \" \\ "
                  "\\ud800 \\udc00 \\u0000 \xff \xc3 \u00e9 { } [ ] , : // /* */ \n "
                  "\"1678-01-01T00:00:00+23:59\" \"2261-12-31T23:59:59-23:59\" \"code\" "
                  "\"status\" {\"wifi\":{}} \"\"");
        const auto &token = tokens[pick(tokens.size())];
        const auto from = pick(bytes.size() + 1);
        const auto size = pick(pick(4) == 0 ? bytes.size() - from + 1 : 8);
        // In place of a whole value or key, so that more of it goes on being JSON.
        const auto quote = bytes.find('"', from);
        const auto end = quote == bytes.npos ? quote : bytes.find('"', quote + 1);
        switch (pick(5)) {
        case 0:
            bytes.erase(from, size);
            break;
        case 1:
            bytes.insert(from, token);
            break;
        case 2:
            bytes.insert(pick(bytes.size() + 1), bytes.substr(from, size));
            break;
        case 3:
            if (end != bytes.npos)
                bytes.replace(quote, end + 1 - quote, token);
            break;
        default:
            bytes.replace(from, 1, 1, static_cast<char>(random_()));
        }
    }

    std::mt19937_64 random_;
};

TEST(Fuzz, WhateverBytesComeARecordOrAnErrorResults) {
    const auto setting = [](const char *name) {
        const char *value = std::getenv(name);
        return value ? std::atoi(value) : 1;
    };
    Mutator mutator(static_cast<std::uint64_t>(setting("TARNLINK_FUZZ_SEED")));
    const auto end = Clock::now() + std::chrono::seconds(setting("TARNLINK_FUZZ_SECONDS"));
    int records = 0, all = 0;
    for (; Clock::now() < end && !HasFailure(); ++all)
        records += decodeAll(mutator.next());
    EXPECT_GT(records, all / 100) << "of " << all;
}

TEST(Fuzz, HugeAndDeepBytesTakeLittleTimeAndMemory) {
    const std::string start = R"({"status":{"wifi":{}},"granted":true)";
    std::string keys = start;
    for (int i = 0; keys.size() < TarnXPCCoding::mostBytes - 20; ++i)
        keys += ",\"" + std::to_string(i) + "\":0";
    const std::string summary = R"({"device":"","serviceName":"","kind":"wifi","linkActive":true})";
    const auto before = peakMemory();
    std::string(std::size_t{64} << 20, 'x');
    const auto yardstick = peakMemory();
    struct Row {
        std::string start, piece, end;
        int records;
    };
    for (const auto &[begin, piece, end, records] :
         std::vector<Row>{{start + ",\"x\":", "[", "}", 0},
                          {start + ",\"x\":", "{\"x\":", std::string(1000, '}'), 0},
                          {start + ",\"x\":[0", ",0", "]}", 4},
                          {start + ",\"x\":[{}", ",{}", "]}", 4},
                          {start + ",\"interfaces\":[" + summary, "," + summary, "]}", 4},
                          {start, ",\"x\":0", "}", 0},
                          {keys, " ", "}", 4},
                          {start + ",\"argument\":", "9", "}", 0},
                          {start + ",\"x\":0.", "9", "}", 4},
                          {start + ",\"x\":1e", "9", "}", 0},
                          {start + ",\"version\":\"", "\\u0000", "\"}", 4},
                          {start + ",\"version\":\"", "\\n", "\xff\"}", 0},
                          {start + ",\"message\":\"", "\u00e9", "\"}", 4},
                          {start + ",", "\n", "\"code\":\"\"}", 4},
                          {start + ",\"code\":\"\"", "/**/", "}", 4},
                          {start + ",\"code\":\"\"", "//", "}", 0},
                          {std::string(8 << 20, '['), " ", "", 0}}) {
        std::string bytes = begin;
        while (bytes.size() + piece.size() + end.size() <= TarnXPCCoding::mostBytes)
            bytes += piece;
        bytes += end;
        const auto began = Clock::now();
        EXPECT_EQ(decodeAll(bytes), records) << bytes.substr(0, 60);
        EXPECT_LT(Clock::now() - began, 4s) << bytes.substr(0, 60);
    }
    // Of that, a sanitizer keeps up to 256 MiB that were freed.
    EXPECT_LT(peakMemory() - yardstick, 5 * (yardstick - before));
}

} // namespace
} // namespace tarn
