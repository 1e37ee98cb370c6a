// The checker in virtual time; server, daemon, clock and defaults do what a test says.

#include "Support/ManualActor.h"
#include "Support/MapDefaults.h"
#include "Support/Signer.h"
#include "Support/Words.h"
#include "TarnCore/Base64.h"
#include "TarnlinkMenu/MenuApp/GuestDefaults.h"
#include "TarnlinkMenu/UpdateChecker.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <gmock/gmock.h>
#include <sstream>

namespace tarn {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::EndsWith, testing::SizeIs;

/// A certificate in DER, in base64, issued by "Example Corp".
constexpr std::string_view certificate =
    "MIIBRDCB96ADAgECAhRzE93gPGeYdZYOEIYzLTCycmSVzDAFBgMrZXAwFzEVMBMGA1UECgwMRXhhbXBsZSBDb3JwMCAXDTI2"
    "MTEyMTE4MzMxOVoYDzIxMjYxMDI4MTgzMzE5WjAXMRUwEwYDVQQKDAxFeGFtcGxlIENvcnAwKjAFBgMrZXADIQC4OpH5MZd0"
    "/nSSrvLTqMjjYKatjTkTRXZuQV0rajiqE6NTMFEwHQYDVR0OBBYEFHh9fuCw3c9v8K2GmW5u2P2UpBwXMB8GA1UdIwQYMBaA"
    "FHh9fuCw3c9v8K2GmW5u2P2UpBwXMA8GA1UdEwEB/wQFMAMBAf8wBQYDK2VwA0EAqtryB/XOJJRfpRi2vEwdSC+WsTA43M5A"
    "5MlavWc+B7K4k8tKIlrKmhrmfEZUDzmPmvxv+1pCGlfIVC3DZkvVDQ==";

/// All that is not the checker. What has no answer stays unanswered.
struct Outside final : HTTPClient, RemoteConnector, RemoteConnection, WorkQueue, SystemClock, Log {
    struct Answer {
        std::string body; ///< Comes in two halves.
        HTTPSession::Result result = std::int64_t{200};
    };
    struct Session final : HTTPSession {
        explicit Session(Outside &owner) : outside(owner) {}
        void get(const URL &url, std::function<bool(std::string_view)> received,
                 std::function<void(Result)> ended) override {
            outside.reach(url.absoluteString());
            const auto found = outside.served.find(url.absoluteString());
            if (found == outside.served.end())
                return;
            outside.actor.post([answer = found->second, received, ended, isAlive = std::weak_ptr(alive)] {
                const auto half = answer.body.size() / 2;
                for (const auto &piece : {answer.body.substr(0, half), answer.body.substr(half)})
                    if (isAlive.expired() || !received(piece))
                        return;
                if (!isAlive.expired())
                    ended(answer.result);
            });
        }
        Outside &outside;
        std::shared_ptr<bool> alive = std::make_shared<bool>(true);
    };

    ManualActor actor;
    std::chrono::nanoseconds offset = 1'800'000'000s;
    std::map<std::string, Answer> served;
    std::deque<std::string> answers; ///< Of the daemon: records, or names of errors.
    TarnXPCProtocol::Call lastCall;
    std::vector<std::string> reached, lines;
    std::function<void()> onReach = [] {};

    void reach(const std::string &what) {
        reached.push_back(what);
        onReach();
    }
    std::unique_ptr<HTTPSession> ephemeral(double) override { return std::make_unique<Session>(*this); }
    std::shared_ptr<RemoteConnection> connect(const std::string &, const std::string &) override {
        return {std::shared_ptr<void>(), this};
    }
    void setInvalidationHandler(Handler) override {}
    void setInterruptionHandler(Handler) override {}
    void resume() override {}
    void invalidate() override {}
    bool invoke(const TarnXPCProtocol::Call &call, Reply reply, ErrorHandler failed) override {
        lastCall = call;
        reach("daemon");
        if (answers.empty())
            return true;
        actor.post([answer = answers.front(), reply, failed] {
            answer.starts_with('{') ? reply(answer) : failed({answer, 0, "words"});
        });
        answers.pop_front();
        return true;
    }
    void run(Job work, Job done) override {
        reach("queue");
        actor.post([work, done] { work(), done(); });
    }
    Moment now() override { return {{}, actor.now().time_since_epoch() + offset}; }
    std::string bootID() override { return {}; }
    void write(Level, std::string_view category, std::string_view text) override {
        lines.push_back(std::string(category) + ": " + std::string(text));
    }
};

class UpdateCheckerTest : public testing::Test {
protected:
    const std::string feedURL = "https://feed.example/dl/tarnlink.json";
    const std::string packageURL = "https://feed.example/package";
    std::string pattern = (fs::temp_directory_path() / "tarnlink-XXXXXX").string();
    const fs::path root = mkdtemp(pattern.data());
    const fs::path folder = root / "cache" / "updates";
    Outside outside;
    ManualActor &actor = outside.actor;
    MapDefaults defaults;
    Signer key;
    TarnXPCClient client{outside, actor};
    UpdateFeed feed{outside, actor, key.publicKey()};
    std::unique_ptr<UpdateChecker> checker;
    Observable::Subscription subscription;
    std::string trail; ///< Every state shown, each with ";".

    UpdateCheckerTest() { restart(151); }
    ~UpdateCheckerTest() override {
        checker.reset();
        actor.run();
        fs::remove_all(root);
    }

    void restart(std::int64_t build) {
        checker.reset();
        checker = std::make_unique<UpdateChecker>(
            UpdateChecker::Services{client, feed, defaults, actor, outside, outside, outside},
            UpdateChecker::Setup{folder, {13, 0, 0}, build, *URL::parse(feedURL)});
        trail = shown() + ";";
        subscription = checker->observe([this, last = shown()]() mutable {
            if (shown() != last)
                trail += (last = shown()) + ";";
        });
    }
    /// A new user with a new program.
    void reset() {
        checker.reset();
        actor.run();
        outside.served.clear(), outside.answers.clear(), outside.reached.clear(), defaults.values.clear();
        restart(151);
    }
    std::string shown() const {
        constexpr const char *names[] = {"offer", "load", "install", "done ", "", "idle", "check", "fresh"};
        const auto details = [](const auto &state) -> std::string {
            if constexpr (requires { state.key; })
                return state.key.substr(13) + (state.manifest ? "+" : "-");
            else if constexpr (requires { state.fraction; })
                return std::to_string(int(state.fraction * 100));
            else if constexpr (requires { state.isInPlace; })
                return state.isInPlace ? "ed" : "";
            else if constexpr (requires { state.version; })
                return state.version + (state.notes ? " " + state.notes->absoluteString() : "");
            return "";
        };
        return names[checker->state().index()] + std::visit(details, checker->state());
    }
    void serve(const std::string &build, const std::string &more = "") {
        const std::string manifest =
            R"({"version":"2.0.3","minOS":"13","published":"","size":22,"url":")" + packageURL +
            R"(","sha256":"2FA6a9cb3848208b3f63338cee8bbd4fa6a256fe428b7a9a76374f12aa4d1684","build":)" +
            build + more + "}";
        outside.served[feedURL] = {manifest};
        outside.served[feedURL + ".sig"] = {key.sign(manifest) + "\n"};
    }
    void step(const std::string &what) {
        const auto list = words(what + " - - -");
        const std::map<std::string, std::function<void()>> actions = {
            {"feed", [&] { serve(list[1]); }},
            {"outage", [&] { outside.served[feedURL].result = std::int64_t{500}; }},
            {"package", [&] { outside.served[packageURL] = {what.substr(8)}; }},
            {"broken",
             [&] {
                 outside.served[packageURL] = {
                     "what is in", HTTPError{"NSURLErrorDomain",
                                             std::stol(list[1]),
                                             "words",
                                             {list[2] == "corp" ? *base64::decode(certificate) : ""}}};
             }},
            {"daemon",
             [&] {
                 outside.answers.push_back(R"({"ok":)" + list[1] + R"(,"code":")" + list[2] +
                                           R"(","message":")" + list[3] + R"("})");
             }},
            {"bus", [&] { outside.answers.push_back("org.freedesktop.DBus.Error." + list[1]); }},
            {"offered", [&] { perform("feed 152; package what is in the package; manual"), trail.clear(); }},
            {"manual", [&] { checker->check(true); }},
            {"automatic", [&] { checker->checkIfDue(); }},
            {"install", [&] { checker->downloadAndInstall(); }},
            {"dismiss", [&] { checker->dismiss(); }},
            {"wait", [&] { actor.advance(std::chrono::seconds(std::stol(list[1]))); }},
            {"restart", [&] { restart(std::stol(list[1])); }}};
        actions.at(list[0])();
    }
    /// One after the other, each to its end unless "+" stands before the next.
    void perform(const std::string &steps) {
        for (const auto &what : rows(steps)) {
            if (!what.starts_with('+'))
                actor.runDue();
            step(what.substr(what.starts_with('+') ? 1 : 0));
        }
        actor.runDue();
    }
    bool hasFile() const { return fs::exists(folder); }
};

TEST_F(UpdateCheckerTest, StatesFollowTheTable) {
    // "load" stands for a whole download; "!" for a package that is on the disk in the end.
    std::istringstream table(R"(feed 151; manual > idle;check;fresh;
outage; manual; dismiss > idle;check;check-;idle;
outage; automatic > idle;check;idle;
manual; wait 7 > idle;check;
manual; wait 8 > idle;check;check-;
offered; outage; automatic; wait 90000; automatic; manual > check;offer;check;offer;
offered; feed 151; manual; install > check;fresh;
offered; dismiss; install; manual > idle;check;offer;
install; feed 152; manual; +manual; +install; +automatic > idle;check;offer;
feed 152; manual; +dismiss > idle;check;idle;
feed 152; manual; install; manual; wait 59 > idle;check;offer;load0;!
feed 152; manual; install; wait 60 > idle;check;offer;load0;download+;
offered; install; +dismiss > load0;idle;
offered; broken -1005; install; dismiss > load0;load22;load45;download+;offer;
offered; broken -1202; install > load0;load22;load45;download.tls+;
offered; broken -1202 corp; install > load0;load22;load45;download.tls.named+;
offered; package what is in; install > load0;load22;load45;download+;
offered; package what is in the package?; install > load0;load50;download+;
offered; package WHAT is in the package; install; manual > load;hash+;check;offer;
offered; install; manual; install; wait 29 > load;install;!
offered; install; wait 30; dismiss > load;install;handover+;offer;
offered; daemon false busy Later; install > load;install;handover+;
offered; bus ServiceUnknown; install > load;install;handover+;
offered; daemon true accepted; install; manual > load;install;!
offered; daemon false handover.unsupported no; daemon true accepted; install > load;install;!
offered; bus UnknownMethod; daemon true accepted; install > load;install;!
offered; bus UnknownMethod; bus UnknownMethod; install > load;install;handover+;
offered; daemon true accepted; install; dismiss > load;install;idle;!
offered; daemon true accepted; daemon true installing; daemon true installed; install; wait 60; manual > load;install;installed;
offered; daemon true accepted; daemon true verifying; daemon false failed.package; install; wait 60 > load;install;installer+;
offered; daemon true accepted; daemon true installing; daemon true installed; install; dismiss; wait 60 > load;install;idle;
feed 152; manual; +restart 151 > idle;
feed 151; manual; restart 151 > idle;
outage; manual; restart 151 > idle;
offered; restart 151; install > offer;load;install;!
offered; restart 152; restart 151 > idle;
offered; broken -1005; install; restart 151 > offer;
offered; install; +restart 151 > offer;
offered; install; restart 151 > offer;
offered; daemon true accepted; install; restart 151; dismiss > installer-;idle;
offered; daemon true accepted; install; restart 151; restart 151 > offer;
offered; daemon true accepted; install; restart 152; restart 152 > idle;
offered; daemon true accepted; install; restart 153 > done 2.0.3;)");
    for (std::string row; std::getline(table, row);) {
        SCOPED_TRACE(row);
        reset();
        perform(sides(row).first);
        const std::string whole = "load0;load50;load100;";
        if (const auto at = trail.find(whole); at != std::string::npos)
            trail.replace(at, whole.size(), "load;");
        EXPECT_EQ(trail + (hasFile() ? "!" : ""), sides(row).second);
        // Whatever is still under way ends, and nothing stays.
        actor.run();
        EXPECT_FALSE(hasFile());
    }
}

TEST_F(UpdateCheckerTest, ChecksWhenDueAndAllowed) {
    serve("151");
    const auto checks = [&](const std::function<void()> &action) {
        outside.reached.clear();
        action();
        actor.runDue();
        return std::count(outside.reached.begin(), outside.reached.end(), feedURL);
    };
    const auto ifDue = [&] { checker->checkIfDue(); };
    const auto wait = [&](MainActor::Duration time) { return [this, time] { actor.advance(time); }; };
    outside.offset += 900ms;
    EXPECT_EQ(checks(ifDue), 1);
    // Counted from the whole second of the check, before and after a restart.
    actor.advance(24h - 1s);
    EXPECT_EQ(checks(ifDue), 0);
    restart(151);
    EXPECT_EQ(checks(ifDue), 0);
    actor.advance(1s);
    EXPECT_EQ(checks(ifDue), 1);
    // A clock that is set back.
    outside.offset -= 2s;
    EXPECT_EQ(checks(ifDue), 1);
    outside.offset -= 1h;
    restart(151);
    EXPECT_EQ(checker->lastCheck(), std::nullopt);

    checker->setUpdatesAllowed(false);
    EXPECT_EQ(checks(ifDue), 0);
    EXPECT_EQ(checks([&] { checker->check(false); }), 0);
    EXPECT_EQ(checks([&] { checker->check(true); }), 1);
    checker->setUpdatesAllowed(true);
    actor.advance(48h);
    checker->setAutomaticChecks(false);
    restart(151);
    EXPECT_EQ(checks([&] { checker->start(); }), 0);
    // Ticks every six hours, counted from the start.
    checker->setAutomaticChecks(true);
    EXPECT_EQ(checks(wait(6h - 1s)), 0);
    EXPECT_EQ(checks(wait(1s)), 1);
    EXPECT_EQ(checks(wait(24h - 1s)), 0);
    EXPECT_EQ(checks(wait(1s)), 1);
    step("outage");
    EXPECT_EQ(checks(wait(48h)), 5); // after 24 hours each tick
    restart(151);
    EXPECT_EQ(checks(wait(48h)), 0);
}

TEST_F(UpdateCheckerTest, NotesTellWhatHappened) {
    perform("outage; manual; feed 152; manual; broken -1005; install; dismiss; package WHAT is in the "
            "package; install; dismiss;"
            " package what is in the package; bus ServiceUnknown; install; dismiss; daemon false busy Later; "
            "install; dismiss; daemon false handover.unsupported no;"
            " daemon true accepted; install; restart 152; feed 151; manual");
    std::string log;
    for (const auto &line : outside.lines)
        log += line + "\n";
    EXPECT_EQ(log, R"(update: check failed: HTTP 500
update: available 2.0.3 (152), running 151
update: downloading 2.0.3
update: download failed: words
update: downloading 2.0.3
update: hash mismatch
update: downloading 2.0.3
update: downloaded, sha256 ok; handing over to the daemon
update: handover failed: The Tarnlink daemon is not available.
update: downloading 2.0.3
update: downloaded, sha256 ok; handing over to the daemon
update: false busy Later
update: downloading 2.0.3
update: downloaded, sha256 ok; handing over to the daemon
update: daemon does not take a handed-over manifest (no); letting it fetch
update: true accepted
update: installed 2.0.3
update: up to date (152, feed 151)
update: the feed shows build 151, it has shown 152
)");
    EXPECT_EQ(checker->events().front(), "2027-01-15T09:00:00Z update: installed 2.0.3");
    for (int i = 0; i < 41; ++i)
        checker->note("line\n" + std::to_string(i));
    EXPECT_THAT(checker->events(), SizeIs(40));
    EXPECT_THAT(checker->events().front(), EndsWith(R"(Z update: line\u000a1)"));
    defaults.setInteger("UpdatePendingBuild", 160);
    GuestDefaults guest(defaults);
    const auto linesBefore = outside.lines.size();
    const UpdateChecker beside({client, feed, guest, actor, outside, outside, outside},
                               {folder / "guest", {}, 152});
    EXPECT_EQ(outside.lines.size(), linesBefore) << "it may be installed just now";
    restart(152);
    EXPECT_THAT(outside.lines.back(), EndsWith("pending build 160 did not arrive, running 152"));
}

TEST_F(UpdateCheckerTest, WhatIsStoredIsJudgedAgain) {
    serve("152", R"(,"notes":"https://support.veltrion.example/n")");
    perform("package what is in the package; manual; daemon true accepted; install");
    const auto call = std::get<TarnXPCProtocol::InstallVerifiedUpdate>(outside.lastCall);
    EXPECT_EQ(call.manifest, outside.served[feedURL].body);
    EXPECT_EQ(call.signature + "\n", outside.served[feedURL + ".sig"].body);
    const auto stored = defaults.values;
    restart(152);
    EXPECT_EQ(shown(), "done 2.0.3 https://support.veltrion.example/n");
    defaults.values = stored;
    defaults.setString("UpdatePendingNotes", "https://elsewhere.example/n");
    restart(152);
    EXPECT_EQ(shown(), "done 2.0.3");
    // Anybody who is the user can write an offer.
    for (const char *damaged : {"UpdateAvailableManifest", "UpdateAvailableSignature"}) {
        defaults.values = {{damaged, MapDefaults::Data{" "}}};
        restart(151);
        EXPECT_TRUE(shown() == "idle" && defaults.values.empty());
    }
}

TEST_F(UpdateCheckerTest, AnInterceptorIsNamedWhileItMatters) {
    perform("offered; broken -1202 corp; install");
    EXPECT_EQ(checker->interceptor(), "Example Corp");
    perform("dismiss");
    EXPECT_EQ(checker->interceptor(), std::nullopt);
}

TEST_F(UpdateCheckerTest, ThePackageStaysUntilTheUpdaterHasItsOwn) {
    for (const auto &row : rows("daemon true copying > install!; daemon true verifying > install; "
                                "daemon true installed > installed; daemon false denied.admin > install!; "
                                "daemon false refused.rollback > installer+; bus ServiceUnknown > install!; "
                                "daemon false updater.silent > installer+")) {
        SCOPED_TRACE(row);
        reset();
        perform("offered; daemon true accepted; install");
        EXPECT_EQ(fs::status(folder).permissions(), fs::perms(0700));
        perform(sides(row).first + "; wait 5");
        EXPECT_EQ(shown() + (hasFile() ? "!" : ""), sides(row).second);
        // Nothing is pending that was refused.
        EXPECT_EQ(defaults.integer("UpdatePendingBuild").has_value(),
                  shown().starts_with("install") && shown() != "installer+");
        actor.advance(21min);
        EXPECT_FALSE(hasFile());
    }
    // Gone before that, it leaves the package to the updater; the next start clears up.
    reset();
    perform("offered; daemon true accepted; install");
    checker.reset();
    actor.run();
    EXPECT_TRUE(hasFile());
    restart(151);
    EXPECT_FALSE(hasFile());
}

TEST_F(UpdateCheckerTest, MayGoWhileAnythingIsUnderWay) {
    // Manifest, signature, package, hash, hand-over, the older one, status.
    for (std::size_t last = 1; last <= 7; ++last) {
        SCOPED_TRACE(last);
        reset();
        outside.onReach = [&] {
            if (outside.reached.size() == last)
                actor.post([this] { checker.reset(); });
        };
        for (const char *what : {"feed 152", "package what is in the package",
                                 "daemon false handover.unsupported no", "daemon true accepted", "manual"})
            step(what);
        actor.runDue();
        if (checker)
            step("install");
        actor.advance(5s);
        EXPECT_EQ(checker, nullptr);
        actor.run();
        // The feed still fetches the other half of what it has begun.
        EXPECT_EQ(outside.reached.size(), std::max<std::size_t>(last, 2));
        EXPECT_EQ(hasFile(), last == 7);
        outside.onReach = [] {};
    }
}

TEST_F(UpdateCheckerTest, MayGoBetweenTheLastPieceAndTheEnd) {
    reset();
    for (const char *what : {"feed 152", "package what is in the package", "manual"})
        step(what);
    actor.runDue();
    const auto watching = checker->observe([this] {
        const auto *downloading = std::get_if<UpdateChecker::Downloading>(&checker->state());
        if (downloading && downloading->fraction == 1)
            actor.post([this] { checker.reset(); });
    });
    step("install");
    actor.advance(5s);
    EXPECT_EQ(checker, nullptr);
    EXPECT_FALSE(hasFile());
}

TEST_F(UpdateCheckerTest, AFeedThatKeepsNewsAwayIsTold) {
    using Notice = UpdateChecker::Notice;
    const auto noticeAfter = [&](const std::string &steps) {
        perform(steps);
        return checker->notice();
    };
    const std::string day30 =
        std::to_string(30 * 86400 - 8); // from the first failure, 8 seconds after its check
    EXPECT_EQ(noticeAfter("manual; wait 8; manual; wait " + day30), Notice::none);
    EXPECT_EQ(noticeAfter("outage; manual"), Notice::none);
    EXPECT_EQ(noticeAfter("wait 8; manual"), Notice::feedSilent);
    EXPECT_EQ(noticeAfter("restart 151"), Notice::feedSilent);
    EXPECT_EQ(noticeAfter("feed 152; manual"), Notice::none);
    EXPECT_EQ(noticeAfter("outage; manual; feed 152; manual; wait " + day30 + "; outage; manual"),
              Notice::none);
    EXPECT_EQ(noticeAfter("feed 151; manual; restart 151"), Notice::feedStale);
    EXPECT_EQ(noticeAfter("outage; manual"), Notice::feedStale);
    EXPECT_EQ(noticeAfter("feed 153; manual"), Notice::none);
    // A failure that is still to come counts from now.
    outside.offset += 24h;
    perform("outage; manual");
    outside.offset -= 24h;
    perform("manual");
    EXPECT_EQ(defaults.date("UpdateFeedTroubleSince"), Date(outside.now().sinceEpoch));
}

TEST_F(UpdateCheckerTest, AFolderOfSomebodyElseIsNotUsed) {
    perform("offered");
    fs::create_directories(root / "elsewhere");
    fs::create_directories(folder.parent_path());
    fs::create_directory_symlink(root / "elsewhere", folder);
    for (const bool isLink : {true, false}) {
        perform("install");
        EXPECT_EQ(shown(), "download+");
        EXPECT_EQ(outside.reached.back(), feedURL + ".sig");
        perform("dismiss");
        if (isLink) // next, one that others may enter
            fs::remove(folder), fs::create_directory(folder), fs::permissions(folder, fs::perms(0755));
    }
    EXPECT_TRUE(fs::is_empty(root / "elsewhere"));
}

TEST_F(UpdateCheckerTest, ObserversHearOfAChangeBeforeAndAfterIt) {
    std::string heard;
    Observable::Subscription once;
    once = checker->observe([&] { heard += "once;", once.reset(); });
    const auto both =
        checker->observe([&] { heard += "did " + shown() + ";"; }, [&] { heard += "will " + shown() + ";"; });
    checker->check(true);
    checker->setAutomaticChecks(true);
    checker->dismiss();
    EXPECT_EQ(heard, "will idle;once;did check;will check;did idle;");
}

} // namespace
} // namespace tarn
