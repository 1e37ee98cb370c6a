#include "Support/FakeHTTP.h"
#include "Support/ManualActor.h"
#include "Support/Signer.h"
#include "TarnSystem/Updates/UpdateFeed.h"

#include <algorithm>
#include <coroutine>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using Answer = FakeHTTP::Answer;

const std::string address = "https://feed.example/dl/tarnlink.json";

/// A coroutine that its owner may drop.
struct Held {
    struct promise_type {
        Held get_return_object() { return Held{std::coroutine_handle<promise_type>::from_promise(*this)}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_always final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }
    };
    explicit Held(std::coroutine_handle<promise_type> frame) : frame_(frame) {}
    Held(Held &&other) noexcept : frame_(std::exchange(other.frame_, nullptr)) {}
    ~Held() { drop(); }
    void drop() {
        if (const auto frame = std::exchange(frame_, nullptr))
            frame.destroy();
    }

private:
    std::coroutine_handle<promise_type> frame_;
};

class Feed : public testing::Test {
protected:
    ManualActor actor;
    FakeHTTP http{actor};
    const Signer signer;
    UpdateFeed feed{http, actor, signer.publicKey()};
    const std::string manifest =
        R"({"version":"2","build":2,"minOS":"13","published":"x","url":"https://a.example/p",)"
        R"("sha256":")" +
        std::string(64, '0') + "\"}";

    const std::filesystem::path folder = []() -> std::filesystem::path {
        std::string name = testing::TempDir() + "feed.XXXXXX";
        return mkdtemp(name.data());
    }();
    const std::string path = folder / "package";
    const URL package = *URL::parse("https://a.example/p");
    std::vector<std::uint64_t> progress;
    /// What became of the task: its result, or the error's words and whether anything was left behind then.
    std::string outcome;
    MainActor::TimePoint end;
    std::function<void()> onProgress = [] {};

    ~Feed() override { std::filesystem::remove_all(folder); }

    Held fetch(std::string from) {
        try {
            const auto fetched = co_await feed.fetchSigned(*URL::parse(from), 8);
            outcome =
                fetched.data == http.answers[address].body && fetched.signature == signer.sign(fetched.data)
                    ? "build " + std::to_string(fetched.manifest.build)
                    : "other bytes";
        } catch (const UpdateFeedError &error) {
            outcome = error.description() + (http.openSessions == 0 ? "" : ", session left");
        }
        end = actor.now();
    }
    Held download(std::optional<std::int64_t> size) {
        try {
            co_await feed.download(package, size, path, 60, [this](std::uint64_t bytes) {
                progress.push_back(bytes);
                onProgress();
            });
            outcome = "done";
        } catch (const UpdateFeedError &error) {
            outcome = error.description() + (std::filesystem::is_empty(folder) ? "" : ", file left") +
                      (http.openSessions == 0 ? "" : ", session left");
        }
        end = actor.now();
    }
    double secondsOf(const Held &) {
        const auto start = actor.now();
        end = start;
        actor.run();
        return std::chrono::duration<double>(end - start).count();
    }
};

TEST_F(Feed, ManifestIsFetchedWholeOrNotAtAll) {
    const auto padded = [&](std::size_t size) { return manifest + std::string(size - manifest.size(), ' '); };
    const auto good = signer.sign(manifest);
    const auto status = [](std::int64_t code, std::string body = "") {
        return Answer{std::move(body), code};
    };
    const std::string invalid = "manifest signature invalid";
    struct Case {
        Answer manifest;
        Answer signature;
        std::string expected;
        double seconds = 0;
        bool isOneRequest = false;
    };
    const Case cases[] = {
        {{manifest}, {good}, "build 2"},
        {{.body = manifest, .pieceSize = 1}, {"\r\n \t" + good + "\r\n\n"}, "build 2"},
        {{padded(65536)}, {signer.sign(padded(65536))}, "build 2"},
        {{padded(65537)}, {signer.sign(padded(65537))}, "longer than 65536 bytes", 0, true},
        {{.body = " ", .pause = 1us, .isEndless = true}, {}, "longer than 65536 bytes", 0.131073, true},
        {{manifest}, {good + std::string(65537 - good.size(), '\n')}, "longer than 65536 bytes"},
        {{manifest}, {good + std::string(65536 - good.size(), '\n')}, "build 2"},
        {status(404, padded(70000)), {good}, "HTTP 404", 0, true},
        {status(500), {good}, "HTTP 500", 0, true},
        {status(302, manifest), {good}, "HTTP 302", 0, true},
        {status(0), {good}, "HTTP 0", 0, true},
        {{manifest}, status(404, good), "HTTP 404"},
        {{.result = HTTPError{"d", 1, "cut off"}}, {good}, "cut off", 0, true},
        {{.body = manifest, .pieceSize = 1, .pause = 100ms}, {good}, "The request timed out.", 8, true},
        {{.body = manifest, .pause = 3900ms}, {.body = good, .pause = 3900ms}, "build 2", 15.6},
        {{.pause = 1h}, {}, "The request timed out.", 8, true},
        {{manifest}, {"not base64"}, invalid},
        {{manifest}, {good + "\xFF"}, invalid},
        {{manifest}, {}, invalid},
        {{manifest}, {signer.sign(manifest + " ")}, invalid},
        {{manifest + "\n"}, {good}, invalid},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(&each - cases);
        http.answers = {{address, each.manifest}, {address + ".sig", each.signature}};
        http.requests.clear();
        const double seconds = secondsOf(fetch(address));
        EXPECT_EQ(outcome, each.expected);
        EXPECT_NEAR(seconds, each.seconds, 1e-9);
        EXPECT_EQ(http.requests, address + (each.isOneRequest ? " " : " " + address + ".sig "));
    }
}

TEST_F(Feed, NothingIsAskedWithoutHTTPS) {
    for (const char *from :
         {"http://feed.example/dl/tarnlink.json", "HTTPS://feed.example/", "https://feed.example:443"}) {
        secondsOf(fetch(from));
        EXPECT_EQ(outcome, "manifest url must be https");
    }
    EXPECT_EQ(http.requests, "");
}

TEST_F(Feed, PackageArrivesInPrivateFile) {
    http.answers[package.absoluteString()] = {.body = "0123456789", .pieceSize = 4};
    for (const auto size : {std::optional<std::int64_t>(10), std::optional<std::int64_t>()}) {
        secondsOf(download(size));
        EXPECT_EQ(outcome, "done");
        struct stat info{};
        ASSERT_EQ(stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0600u);
        // What SHA-256 is of these digits is known elsewhere, too.
        EXPECT_EQ(UpdateFeed::sha256(path),
                  "84d89877f0d4041efb6bf91a16f0248f2fd573e6af05c19f96bedb9f882f7882");
        std::filesystem::remove(path);
    }
    EXPECT_EQ(progress, (std::vector<std::uint64_t>{4, 8, 10, 4, 8, 10}));
    EXPECT_THROW(UpdateFeed::sha256(path), std::system_error);
}

TEST_F(Feed, NothingIsLeftOfFailedPackage) {
    struct Case {
        Answer answer;
        std::int64_t size;
        std::string expected;
        double seconds = 0;
    };
    const Case cases[] = {
        {{"0123456789"}, 11, "only 10 of 11 bytes"},
        {{"0123456789"}, 9, "longer than 9 bytes"},
        {{.body = "01234567", .pause = 1us, .isEndless = true},
         1000,
         "longer than 1000 bytes",
         66537 / 8 * 1e-6},
        {{"not found", 404}, 4, "HTTP 404"},
        {{.body = "01", .result = HTTPError{"d", 1, "cut off"}}, 10, "cut off"},
        {{.body = "0", .pause = 1s, .isEndless = true}, 1000000, "The request timed out.", 60},
        {{.body = std::string(100000, 'x'), .pieceSize = 1000, .pause = 1s},
         100000,
         "The request timed out.",
         60},
        {{"0123456789"}, -1, "announced with -1 bytes"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.expected);
        http.answers[package.absoluteString()] = each.answer;
        progress = {0};
        EXPECT_NEAR(secondsOf(download(each.size)), each.seconds, 2e-6);
        EXPECT_EQ(outcome, each.expected);
        EXPECT_LE(progress.back(), static_cast<std::uint64_t>(std::max<std::int64_t>(each.size, 0)));
    }
    http.answers[package.absoluteString()] = {
        .body = std::string(100000, 'x'), .pieceSize = 1050, .pause = 1s};
    secondsOf(download(100000));
    EXPECT_EQ(outcome, "done");
    secondsOf(download(100000));
    EXPECT_EQ(outcome, path + ": File exists, file left") << "what was there before is nobody's to remove";
}

TEST_F(Feed, NothingIsLeftOnFullDisk) {
    // To the program a file that may not grow is like a disk that is full.
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{5000, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    http.answers[package.absoluteString()] = {.body = std::string(9000, 'x'), .pieceSize = 1000};
    secondsOf(download(9000));
    EXPECT_EQ(outcome, path + ": File too large");
}

TEST_F(Feed, DroppedAtAnyMomentLeavesNothing) {
    http.answers[package.absoluteString()] = {.body = std::string(9000, 'x'), .pieceSize = 1000, .pause = 1s};
    for (const auto after : {0ms, 500ms, 4500ms}) {
        auto task = download(9000);
        actor.advance(after);
        EXPECT_FALSE(std::filesystem::is_empty(folder));
        task.drop();
        EXPECT_TRUE(std::filesystem::is_empty(folder));
        EXPECT_EQ(http.openSessions, 0);
        actor.run();
    }
    onProgress = [] { throw UpdateFeedError::transport("enough"); };
    secondsOf(download(9000));
    EXPECT_EQ(std::exchange(outcome, ""), "enough");
    auto task = download(9000);
    onProgress = [&] { task.drop(); };
    actor.run();
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    EXPECT_EQ(http.openSessions, 0);
    EXPECT_EQ(outcome, "");
}

} // namespace
} // namespace tarn
