#include "TarnSystem/JsonPreferences.h"

#include "Support/Words.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/JsonUserDefaults.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarn {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace std::string_literals;

/// The text as it is written again, or where it is wrong: "LINE:COLUMN".
std::string reparsed(const std::string &text) {
    const auto document = json::parse(text);
    const auto *error = std::get_if<json::SyntaxError>(&document);
    EXPECT_TRUE(!error || error->message.find('\n') == std::string::npos) << "the log takes one line";
    EXPECT_TRUE(!error || error->message.find(" at line ") == std::string::npos) << "told twice";
    return error ? std::to_string(error->line) + ":" + std::to_string(error->column)
                 : json::serialize(std::get<Value>(document));
}

TEST(Json, ReadsAndWritesTheSameTree) {
    EXPECT_EQ(reparsed(R"( [null, true, 1, 1.0, 1e2, -7, "\"\\\u00e4\n\ud83d\ude00"] )"),
              "[null,true,1,1.0,100.0,-7,\"\\\"\\\\\xC3\xA4\\n\xF0\x9F\x98\x80\"]");
    EXPECT_EQ(reparsed("// one\n{/* two */\"b\"://\n{}, \"a\": [] }"), R"({"b":{},"a":[]})");
    EXPECT_EQ(reparsed("[9223372036854775807,-9223372036854775808]"),
              "[9223372036854775807,-9223372036854775808]");
    EXPECT_EQ(reparsed("[9223372036854775808,-9223372036854775809]"),
              "[9.223372036854776e+18,-9.223372036854776e+18]");
    EXPECT_EQ(json::serialize(Value("a\xFF")), "\"a\xEF\xBF\xBD\"");
    EXPECT_EQ(json::serialize(Value(Value::Dictionary{{"a", 1}}), 2), "{\n  \"a\": 1\n}");
}

TEST(Json, ErrorNamesThePlace) {
    for (const auto &row : rows(" > 1:1; } > 1:1; {\n  \"a\": x\n} > 2:8; [1,] > 1:4; [1] ] > 1:5; "
                                "[\"a\tb\"] > 1:4; \n\n[\"\xFF\"] > 3:3; [\"\xC0\xAF\"] > 1:3; "
                                "[\"\xC3\xA4\" x] > 1:7; {\"a\":1,\n\"b\":{},\"a\":2\n} > 3:1"))
        EXPECT_EQ(reparsed(sides(row).first), sides(row).second) << row;
    EXPECT_EQ(reparsed("{}\n\0\0"s), "2:1") << "zero bytes are no blanks";
    for (const auto &text : rows("[1; {\"a\"; \"a; /* a; nul; [\"\\ud800\"]; -; +1; .5; 01; NaN; 'a'"))
        EXPECT_EQ(reparsed(text).find("1:"), 0U) << text;
}

TEST(Json, NestingIsBounded) {
    std::string objects;
    for (int depth = 0; depth < 65; ++depth)
        objects += "{\"a\":";
    const std::string allowed = std::string(64, '[') + std::string(64, ']');
    EXPECT_EQ(reparsed(allowed), allowed);
    EXPECT_EQ(reparsed(objects), "1:321");
    EXPECT_EQ(reparsed(std::string(1000000, '[')), "1:65");
}

class MemoryLog final : public Log {
public:
    std::vector<std::string> lines;
    void write(Level, std::string_view, std::string_view message) override { lines.emplace_back(message); }
};

/// Three layers in a folder of their own.
class JsonPreferencesTest : public testing::Test {
protected:
    std::string pattern = (fs::temp_directory_path() / "tarnlink-XXXXXX").string();
    const fs::path folder = mkdtemp(pattern.data());
    const std::string managed = folder / "managed", user = folder / "user", machine = folder / "machine";
    MemoryLog log;
    JsonPreferences preferences{{managed, user, machine}, log};

    ~JsonPreferencesTest() override { fs::remove_all(folder); }

    static void write(const std::string &path, const std::string &text) { std::ofstream(path) << text; }
    static std::string read(const std::string &path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::string value(const std::string &key) {
        return json::serialize(preferences.copyAppValue(key, "").value_or(Value("none")));
    }
    static bool store(JsonPreferences &into, const Value &value) {
        into.setMachineValue("New", value, "");
        return into.synchronizeMachine("");
    }
    /// How a child process that does this ends.
    static int statusOfChild(const std::function<int()> &work) {
        const pid_t child = fork();
        if (child == 0)
            _exit(work());
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return status;
    }
};

TEST_F(JsonPreferencesTest, StrongestLayerCounts) {
    write(machine, "{\"A\": 1, \"B\": 1, \"C\": 1} // mine");
    EXPECT_EQ(value("A"), "1");
    write(user, "/* mine */ {\"A\": 2, \"B\": 2}");
    write(managed, "{\"A\": 3}");
    EXPECT_EQ(value("A"), "1") << "changes of others wait for a refresh";
    preferences.refresh("");
    EXPECT_EQ(value("A") + value("B") + value("C") + value("D"), "321\"none\"");
    fs::remove(managed);
    preferences.refresh("");
    EXPECT_EQ(value("A"), "2");
    EXPECT_TRUE(log.lines.empty());
}

TEST_F(JsonPreferencesTest, DamagedLayerIsReportedOnceAndTheOthersCount) {
    write(managed, "{\"A\": 3,\n \"B\": }");
    write(user, "[1]");
    write(machine, "{\"A\": 1}");
    for (int i = 0; i < 3; ++i)
        preferences.refresh("");
    EXPECT_FALSE(preferences.isForced("A", ""));
    EXPECT_EQ(log.lines.size(), 1U) << "only management's layer is asked";
    EXPECT_EQ(value("A"), "1");
    ASSERT_EQ(log.lines.size(), 2U);
    EXPECT_EQ(log.lines[0].find(managed + ":2:7: "), 0U) << log.lines[0];
    EXPECT_EQ(log.lines[1].find(user + ":1:1: "), 0U) << log.lines[1];
}

TEST_F(JsonPreferencesTest, WriteKeepsWhatElseIsThere) {
    write(managed, "{\"New\": 9}");
    write(machine, "{\"Unknown\": {\"deep\": [1.5, null]}, \"New\": 1, \"Last\": \"x\"}");
    EXPECT_TRUE(store(preferences, 2));
    EXPECT_EQ(reparsed(read(machine)), R"({"Unknown":{"deep":[1.5,null]},"New":2,"Last":"x"})");
    EXPECT_EQ(value("New"), "9") << "a managed value still counts";
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 2) << "something was left behind";
}

TEST_F(JsonPreferencesTest, DamagedMachineFileIsNeverOverwritten) {
    for (const char *damaged : {"{\"A\": 1", "7", ""}) {
        write(machine, damaged);
        EXPECT_FALSE(store(preferences, 2)) << damaged;
        EXPECT_EQ(read(machine), damaged);
    }
    fs::remove(machine);
    fs::create_directory(machine);
    EXPECT_FALSE(store(preferences, 2)) << "a folder";
}

TEST_F(JsonPreferencesTest, WriteIntoAReadOnlyPlaceFails) {
    write(machine, "{}");
    JsonPreferences below({machine + "/preferences"}, log);
    EXPECT_FALSE(store(below, 2)) << "below a file";
    EXPECT_EQ(log.lines.size(), 1U);
    fs::permissions(folder, fs::perms(0555));
    // The rights of a folder bind everybody but root.
    EXPECT_EQ(statusOfChild([&] { return (geteuid() == 0 && setuid(65534) != 0) || store(preferences, 2); }),
              0);
    fs::permissions(folder, fs::perms(0755));
    EXPECT_EQ(read(machine), "{}");
}

TEST_F(JsonPreferencesTest, CrashWhileWritingLeavesTheOldFileWhole) {
    const Value large = std::string(100000, 'x');
    for (const bool isKilled : {false, true}) {
        write(machine, "{\"New\": 1}");
        const int status = statusOfChild([&] {
            // The write that goes beyond the limit kills the process or, with the signal ignored, fails.
            const rlimit limit{50000, 50000}, none{0, 0};
            std::signal(SIGXFSZ, isKilled ? SIG_DFL : SIG_IGN);
            return setrlimit(RLIMIT_CORE, &none) != 0 || setrlimit(RLIMIT_FSIZE, &limit) != 0 ||
                   store(preferences, large);
        });
        EXPECT_TRUE(isKilled ? WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ : status == 0) << status;
        EXPECT_EQ(read(machine), "{\"New\": 1}");
        EXPECT_TRUE(isKilled || std::distance(fs::directory_iterator(folder), {}) == 1) << "a remnant";
        EXPECT_TRUE(store(preferences, large)) << "it stands in the way";
        EXPECT_EQ(value("New").size(), 100002U);
    }
}

TEST_F(JsonPreferencesTest, UserDefaultsKeepTheirTypes) {
    const std::string bytes("\0\xFF\n", 3);
    const auto moment = Date(std::chrono::sys_days(std::chrono::year(2026) / 1 / 2)) + 1500ms;
    write(user, R"({"Other": [1], "D": "x"})");
    JsonUserDefaults(user + "/lost", log).setInteger("I", 1);
    EXPECT_EQ(std::exchange(log.lines, {}).size(), 1U) << "below a file";
    JsonUserDefaults writer(user, log);
    writer.setBoolean("B", true);
    writer.setInteger("I", std::numeric_limits<std::int64_t>::max());
    writer.setString("S", "\u00e4");
    writer.setDate("T", moment);
    writer.setData("D", bytes);
    writer.setInteger("R", 1);
    writer.remove("R");
    for (JsonUserDefaults reader(user, log); auto *defaults : {&writer, &reader}) {
        EXPECT_EQ(defaults->boolean("B"), true);
        EXPECT_EQ(defaults->integer("I"), std::numeric_limits<std::int64_t>::max());
        EXPECT_EQ(defaults->string("S"), "\u00e4");
        EXPECT_EQ(defaults->date("T"), moment - 500ms);
        EXPECT_EQ(defaults->data("D"), bytes);
        EXPECT_FALSE(defaults->integer("R") || defaults->boolean("I") || defaults->integer("B") ||
                     defaults->string("Other") || defaults->date("S") || defaults->data("T"));
    }
    EXPECT_NE(read(user).find("Other"), std::string::npos);
    EXPECT_TRUE(log.lines.empty());
    write(user, "{");
    JsonUserDefaults damaged(user, log);
    EXPECT_FALSE(damaged.boolean("B") || damaged.integer("I"));
    EXPECT_EQ(log.lines.size(), 1U);
    damaged.setBoolean("B", true);
    EXPECT_EQ(read(user), "{");
}

} // namespace
} // namespace tarn
