#include "Support/FakeServices.h"
#include "Support/NetworkLab.h"
#include "Support/Words.h"
#include "TarnCore/Status.h"
#include "TarnlinkDaemon/History.h"
#include "TarnlinkDaemon/Journal.h"
#include "TarnlinkDaemon/StateFolder.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarn {
namespace {

using namespace std::chrono_literals;

const Journal full{Journal::WiFi{WiFiOffMode::address,
                                 {{"a", "A"}},
                                 {{"a", IPProtocol::ipv6, {Value::Array{1, 2.5}, true}},
                                  {"b", IPProtocol::ipv4, {{}, false}}}},
                   {{"phone", "iPhone"}},
                   words("a b"),
                   {{"key", words("::1 ::2"), words("::2 ::1")}}};

/// Everything that comes of one damage in one place: an entry lost or added, another type, no value.
std::vector<Value> damaged(const Value &value, const std::string &name = {}) {
    std::vector<Value> all(1, 7.5);
    if (name != "wifi" && name != "order")
        all.emplace_back();
    for (std::size_t i = 0; value.array() && i < value.array()->size(); ++i)
        for (const auto &element : damaged((*value.array())[i])) {
            auto list = *value.array();
            list[i] = element;
            all.push_back(list);
        }
    if (!value.dictionary())
        return all;
    all.push_back(value);
    all.back().set("newer", true);
    for (const auto &[key, content] : *value.dictionary()) {
        auto without = *value.dictionary();
        std::erase_if(without, [&](const auto &entry) { return entry.first == key; });
        all.push_back(without);
        for (const auto &other : key == "entries" ? std::vector<Value>() : damaged(content, key)) {
            all.push_back(value);
            all.back().set(key, other);
        }
    }
    return all;
}

TEST(Journal, IsReadWholeOrNotAtAll) {
    for (const auto &one : {full, Journal()}) {
        const auto text = json::serialize(one.encoded());
        EXPECT_EQ(Journal::decode(std::get<Value>(json::parse(text))), one);
        for (std::size_t length = 0; length < text.size(); ++length)
            EXPECT_TRUE(std::holds_alternative<json::SyntaxError>(json::parse(text.substr(0, length))));
        for (const auto &value : damaged(one.encoded()))
            EXPECT_THROW(Journal::decode(value), DecodingError) << json::serialize(value);
    }
    for (const std::string word : {"address", "ipv6", "version\":1"}) {
        auto text = json::serialize(full.encoded());
        text[text.find(word) + word.size() - 1] = '7';
        EXPECT_THROW(Journal::decode(std::get<Value>(json::parse(text))), DecodingError) << text;
    }
}

TEST(Pause, EndsWhenItEndsWhateverTheClocksDo) {
    const Pause pause{{100s, 1000s}, "one", 60s};
    EXPECT_EQ(Pause::decode(pause.encoded()), pause);
    EXPECT_THROW(Pause::decode(Pause{{-1s, 0s}, "", 0s}.encoded()), DecodingError);
    EXPECT_EQ(pause.remaining({90s, 5s}, "one"), 10s);     // clock set back
    EXPECT_EQ(pause.remaining({90s, 9999s}, "one"), 10s);  // and forward
    EXPECT_EQ(pause.remaining({1s, 970s}, "two"), 30s);    // after a restart
    EXPECT_EQ(pause.remaining({1s, 5s}, "two"), 60s);      // clock set back meanwhile
    EXPECT_EQ(pause.remaining({120s, 1005s}, "two"), -5s); // over
    EXPECT_EQ((Pause{{100s, 1000s}, "", 60s}).remaining({1s, 990s}, ""), 10s);
}

struct FolderTest : LabTest {
    void SetUp() override {
        LabTest::SetUp();
        if (!IsSkipped())
            lab().run("mkdir /run/lab/disk && mount -t tmpfs -o size=64k none /run/lab/disk");
    }
    const std::string path = "/run/lab/disk/a/b";
    DiskFolder folder{path};
};

TEST_F(FolderTest, KeepsFilesForOneProcess) {
    const auto lockElsewhere = [this] {
        const pid_t child = fork();
        if (child == 0)
            _exit(static_cast<int>(DiskFolder(path).lock()));
        int status = -1;
        waitpid(child, &status, 0);
        return static_cast<DiskFolder::Lock>(WEXITSTATUS(status));
    };
    EXPECT_EQ(folder.remove("file"), std::nullopt);
    lab().write(path + "/journal.json.abc123", "half");
    lab().write(path + "/journal.json.damaged-1", "");
    EXPECT_EQ(lockElsewhere(), DiskFolder::Lock::held);
    EXPECT_EQ(lab().run("ls " + path).out, "journal.json.damaged-1\n");
    EXPECT_EQ(folder.lock(), DiskFolder::Lock::held);
    EXPECT_EQ(lockElsewhere(), DiskFolder::Lock::taken);
    EXPECT_EQ(DiskFolder("/dev/null/state").lock(), DiskFolder::Lock::denied);
    EXPECT_TRUE(!folder.read("file").contents && folder.read("file").error.empty());
    EXPECT_EQ(folder.replace("file", "1\n"), std::nullopt);
    EXPECT_EQ(folder.append("file", "2\n"), std::nullopt);
    EXPECT_EQ(folder.read("file").contents, "1\n2\n");
    EXPECT_EQ(folder.keepCopy("file"), "file.damaged-1");
    EXPECT_EQ(folder.append("file", "3"), std::nullopt);
    EXPECT_EQ(folder.keepCopy("file"), "file.damaged-2");
    EXPECT_EQ(readFile(path + "/file.damaged-1") + readFile(path + "/file.damaged-2"), "1\n2\n1\n2\n3");
    EXPECT_EQ(folder.keepCopy("none"), std::nullopt);
    EXPECT_EQ(folder.read(".").error, "not a regular file");
}

TEST_F(FolderTest, LosesNothingOnADiskThatIsFullOrReadOnly) {
    EXPECT_EQ(folder.replace("file", "old\n"), std::nullopt);
    const std::string much(100'000, 'x');
    for (const char *words : {"No space left on device", "Read-only file system"}) {
        EXPECT_EQ(folder.append("file", much), words);
        EXPECT_EQ(folder.replace("file", much), words);
        EXPECT_EQ(folder.read("file").contents, "old\n");
        EXPECT_EQ(folder.remove("none"), std::nullopt);
        EXPECT_EQ(folder.lock(), DiskFolder::Lock::held);
        folder = DiskFolder(path);
        lab().run("mount -o remount,ro /run/lab/disk");
    }
    EXPECT_EQ(folder.remove("file"), "Read-only file system");
    EXPECT_EQ(folder.keepCopy("file"), std::nullopt);
}

void put(const HistoryWrite &write, std::string &file) {
    file = write.isWhole ? write.text : file + write.text;
}

TEST(History, IsBoundedAndComesBackAsItWas) {
    std::string file;
    History history("");
    std::ptrdiff_t most = 0;
    for (int i = 0; i < 5000; ++i) {
        const auto number = history.nextNumber();
        put(history.add({number, std::chrono::seconds(i), "cause\n", "wired", "reason", {}}), file);
        put(history.addDone(number, "one"), file);
        put(history.addDone(number - std::min<std::uint64_t>(number, 999), "late"), file);
        most = std::max(most, std::ranges::count(file, '\n'));
    }
    EXPECT_EQ(most, 4000);
    EXPECT_EQ(history.entries().size(), History::mostEntries);
    EXPECT_EQ(History(file).nextNumber(), 5001u);
    for (std::size_t i = 0; i < 3 * History::mostDone; ++i)
        put(history.addDone(5000, std::to_string(i)), file);
    EXPECT_EQ(history.entries().back().done.size(), History::mostDone);
    EXPECT_EQ(History(file).entries(), history.entries());
}

TEST(History, SurvivesTornAndForeignLines) {
    const auto line = [](const std::string &number, const std::string &rest = R"("done":["x"])") {
        return R"({"number":)" + number + R"(,"time":0,"cause":"c","status":"s","reason":"r",)" + rest +
               "}\n";
    };
    const auto good = line("3") + R"({"number":3,"done":"y"})" + "\n" + line("5");
    const auto bad = line("4") + line("5") + line("-6") + line("9007199254740992") + line("\"6\"") +
                     line("7", "") + line("8", R"("done":7)") + R"({"number":4,"done":"z"})" +
                     "\n[]\n{}\n\n\xff\n" + "{\"number\"\n";
    EXPECT_EQ(History(good + bad).entries(), History(good).entries());
    EXPECT_EQ(History(good).entries().front().done, words("x y"));
    for (std::size_t length = 0; length <= good.size(); ++length) {
        std::string file = good.substr(0, length);
        const bool isTorn = !file.empty() && file.back() != '\n';
        History history(file);
        const auto write = history.add({history.nextNumber(), 1s, "", "", "", {}});
        EXPECT_EQ(write.isWhole, isTorn);
        put(write, file);
        EXPECT_EQ(History(file).entries(), history.entries()) << length;
    }
    EXPECT_EQ(asText({1, 1767323045s, "e\x1b[0m", "wired", "r\n", {"a", "b"}}),
              "2026-01-02T03:04:05Z wired: r\\u000a [e\\u001b[0m] - a; b");
}

} // namespace
} // namespace tarn
