// The checker with all that it works with: servers, a bus, the daemon and the updater as processes.

#include "Platform/Linux/FetchClient.h"
#include "Platform/Platform.h"
#include "Support/HTTPLab.h"
#include "Support/MapDefaults.h"
#include "Support/NetworkManagerLab.h"
#include "Support/Signer.h"
#include "Support/Words.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/UpdateRequest.h"
#include "TarnlinkMenu/UpdateChecker.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/mount.h>

namespace tarn {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::AllOf, testing::HasSubstr, testing::StartsWith;

constexpr const char *folder = "/run/lab/cache/updates";

/// What a user runs.
struct Menu {
    explicit Menu(const std::string &key) : feed(http, loop, key) {}

    /// With its error and, where there is one, who intercepts.
    std::string shown() const {
        constexpr const char *names[] = {"offer", "load", "install", "done", "", "idle", "check", "fresh"};
        const auto *failed = std::get_if<UpdateChecker::Failed>(&checker.state());
        return names[checker.state().index()] +
               (failed ? failed->key.substr(13) + (failed->manifest ? "+ " : "- ") +
                             checker.interceptor().value_or("")
                       : "");
    }
    std::string lastNote() const { return checker.events().back().substr(29); }
    void changed() {
        if (const auto *downloading = std::get_if<UpdateChecker::Downloading>(&checker.state()))
            fractions.push_back(downloading->fraction);
        if (const auto now = shown() + ";"; !trail.ends_with(now))
            trail += now;
    }
    void runUntil(const std::function<bool()> &condition) {
        const auto turn = [&] { return loop.postAfter(2ms, [&] { loop.stop(); }), loop.run(), condition(); };
        waitUntil(turn, "the checker's next state");
    }
    void check(const std::string &address) {
        checker.setFeedURL(URL::parse("https://127.0.0.1" + address).value());
        trail.clear();
        checker.check(true);
        runUntil([&] { return shown() != "check"; });
    }
    /// Until the package is handed over, or that has failed.
    void install() {
        trail.clear();
        fractions.clear();
        checker.downloadAndInstall();
        runUntil([&] {
            return shown() != "load" && !lastNote().ends_with("the daemon") && !lastNote().ends_with("fetch");
        });
    }

    const std::unique_ptr<Platform> platform = makePlatform();
    EventLoop &loop = static_cast<EventLoop &>(platform->mainActor());
    FetchClient http{loop, HTTPLab::authorities};
    UpdateFeed feed;
    MapDefaults defaults;
    TarnXPCClient daemon{platform->connector(), loop};
    WorkerThread queue{loop};
    UpdateChecker checker{{daemon, feed, defaults, loop, platform->clock(), platform->log(), queue},
                          {folder, platform->systemVersion(), 151}};
    Observable::Subscription subscription = checker.observe([this] { changed(); });
    std::string trail; ///< Every state shown, each with ";"; a download is one.
    std::vector<double> fractions;
};

class UpdateNetwork : public HTTPLab {
protected:
    static constexpr const char *requestPath = "/var/lib/tarnlink/update-request.json";

    void SetUp() override {
        HTTPLab::SetUp();
        if (IsSkipped())
            return;
        menu_.emplace(signer_.publicKey());
        lab().run("cd /run/lab/www; head -c 3000000 /dev/urandom >package; head -c 3000000 /dev/zero >other;"
                  "mkdir -m 700 /var/lib/tarnlink");
    }
    std::string manifest(const std::string &address = "/package", int size = 3000000) const {
        return R"({"version":"2.0.3","build":152,"minOS":"3.0","published":"","url":"https://127.0.0.1)" +
               address + R"(","sha256":")" + UpdateFeed::sha256(www + "package") + R"(","size":)" +
               std::to_string(size) + "}";
    }
    void serve(const std::string &file, const std::string &data, const std::string &signedData) {
        lab().write(www + file, data);
        lab().write(www + file + ".sig", signer_.sign(signedData) + "\n");
    }
    /// As "/feed".
    void serve(const std::string &data) { serve("feed", data, data); }
    pid_t startService(const std::string &command) {
        const pid_t service = lab().start(command);
        waitUntil([&] { return lab().execute("busctl introspect " + door).status == 0; }, command);
        return service;
    }
    /// What ends in a failure leaves the offer, and nothing on the disk.
    void expectFailed(const std::string &trail, const std::string &note) {
        menu_->check("/feed");
        menu_->install();
        EXPECT_EQ(menu_->trail, trail);
        EXPECT_THAT(menu_->lastNote(), HasSubstr(note));
        EXPECT_FALSE(fs::exists(folder));
        menu_->checker.dismiss();
        EXPECT_EQ(menu_->shown(), "offer");
    }

    const std::string theDaemon = DAEMON " --probe-mode off";
    const std::string www = "/run/lab/www/";
    const std::string door = "com.veltrion.tarnlink.daemon /com/veltrion/tarnlink/daemon ";
    Signer signer_;
    std::optional<Menu> menu_;
};

TEST_F(UpdateNetwork, WhatIsNoSignedManifestIsNoOffer) {
    const auto good = manifest();
    auto altered = good;
    altered.replace(altered.find("152"), 3, "153");
    serve(good);
    lab().write(www + "unsigned", good);
    serve("swapped", good, manifest("/other"));
    serve("altered", altered, good);
    for (const auto &row :
         rows("/none > HTTP 404; /500 > HTTP 500; /http > HTTP 302; /unsigned > HTTP 404; "
              "/swapped > manifest signature invalid; /altered > manifest signature invalid; "
              ":8000/endless > longer than 65536 bytes; :8000/half/feed > ; "
              ":8000/slow/feed > The request timed out.; :9/feed > connect to 127.0.0.1 port 9; "
              ":8001/feed > no alternative certificate subject name; :8002/feed > certificate has expired; "
              ":8003/feed > unable to get local issuer; :8004/feed > self-signed certificate in")) {
        const auto begin = menu_->loop.now();
        menu_->check(sides(row).first);
        const auto time = menu_->loop.now() - begin;
        EXPECT_EQ(menu_->trail, "check;check- ;") << row;
        EXPECT_THAT(menu_->lastNote(), AllOf(StartsWith("check failed: "), HasSubstr(sides(row).second)));
        const auto least = row.starts_with(":8000/slow") ? 8s : 0s;
        EXPECT_TRUE(time >= least && time < least + 4s) << row;
    }
    EXPECT_FALSE(fs::exists(folder));
    menu_->check("/feed");
    EXPECT_EQ(menu_->trail, "check;offer;");
}

TEST_F(UpdateNetwork, WhatIsNotThePackageIsNotHandedOver) {
    for (const auto &row :
         rows("/none > + > HTTP 404; /500 > + > HTTP 500; /http > + > HTTP 302; "
              ":8000/endless > + > longer than 3000000 bytes; :8000/truncated > + > 600000 bytes; "
              ":8001/package > .tls.named+ Lab (Lab CA) > no alternative certificate subject name; "
              ":8002/package > .tls.named+ Lab (Lab CA) > certificate has expired; "
              ":8003/package > .tls.named+ Example Corp (Inspect CA) > unable to get local issuer; "
              ":8004/package > .tls.named+ Example Corp (Inspect CA) > self-signed certificate in; "
              ":8007/package > .tls+ > protocol version; :8000/half/package > + > download failed: ")) {
        SCOPED_TRACE(row);
        const auto &[address, outcome] = sides(row);
        const auto &[key, note] = sides(outcome);
        serve(manifest(address));
        expectFailed("load;download" + key + (key.ends_with('+') ? " ;" : ";"), "download failed: ");
        EXPECT_THAT(menu_->checker.events().back(), HasSubstr(note));
    }
    EXPECT_THAT(menu_->fractions.back(), AllOf(testing::Gt(0.4), testing::Le(0.5)));
    serve(manifest("/other"));
    expectFailed("load;hash+ ;", "hash mismatch");
    serve(manifest("/package", 2999999));
    expectFailed("load;download+ ;", "longer than 2999999 bytes");
    serve(manifest("/package", 3000001));
    expectFailed("load;download+ ;", "only 3000000 of 3000001 bytes");

    serve(manifest());
    ASSERT_EQ(mount("tmpfs", "/run/lab/cache", "tmpfs", 0, "size=1M"), 0);
    expectFailed("load;download+ ;", "No space left on device");
    umount("/run/lab/cache");
}

TEST_F(UpdateNetwork, AGoodPackageReachesTheUpdater) {
    startBus(lab());
    startService(theDaemon);
    for (const std::string server : {"", ":8000"}) {
        SCOPED_TRACE(server);
        const auto data = manifest(server + "/package");
        serve(data);
        menu_->check(server + "/feed");
        EXPECT_EQ(menu_->trail, "check;offer;");
        menu_->install();
        EXPECT_EQ(menu_->trail, "load;install;");
        EXPECT_THAT(menu_->lastNote(), StartsWith("true accepted"));
        EXPECT_GT(menu_->fractions.size(), 10U);
        EXPECT_TRUE(std::ranges::is_sorted(menu_->fractions));
        EXPECT_TRUE(menu_->fractions.front() == 0 && menu_->fractions.back() == 1);
        const auto request = UpdateRequest::decode(std::get<Value>(json::parse(readFile(requestPath))));
        EXPECT_EQ(request.manifest, data);
        EXPECT_EQ(request.signature, signer_.sign(data));
        EXPECT_EQ(fs::path(request.pkgPath).parent_path(), folder);
        EXPECT_TRUE(readFile(request.pkgPath) == readFile(www + "package"));

        // It believes the vendor's key alone.
        lab().run(std::string(UPDATER " ") + requestPath);
        menu_->runUntil([&] { return menu_->shown() != "install"; });
        EXPECT_EQ(menu_->shown(), "installer+ ");
        EXPECT_THAT(menu_->lastNote(), StartsWith("updater: false refused.signature"));
        EXPECT_FALSE(fs::exists(folder));
    }
}

TEST_F(UpdateNetwork, ADaemonThatDoesNotTakeItIsToldOf) {
    const std::string failed = "load;install;handover+ ;";
    serve(manifest());
    expectFailed(failed, "handover failed: ");
    startBus(lab());
    expectFailed(failed, "handover failed: The Tarnlink daemon is not available.");
    lab().stop(startService(theDaemon));
    expectFailed(failed, "handover failed: The Tarnlink daemon is not available.");

    pid_t daemon = startService(theDaemon + " --dry-run");
    expectFailed(failed, "false dryRun");
    EXPECT_FALSE(fs::exists(requestPath));
    lab().stop(daemon);

    const std::string earlier = json::serialize(UpdateRequest{"1", "/package"}.encoded());
    lab().write(requestPath, earlier);
    daemon = startService(theDaemon);
    expectFailed(failed, "false busy");
    EXPECT_EQ(readFile(requestPath), earlier);

    // Dies while it is asked.
    kill(daemon, SIGSTOP);
    const auto killing = menu_->checker.observe([&] {
        if (menu_->shown() == "install")
            menu_->loop.postAfter(50ms, [&] { lab().stop(daemon); });
    });
    expectFailed(failed, "handover failed: The Tarnlink daemon is not available.");
}

TEST_F(UpdateNetwork, AnOlderDaemonFetchesTheManifestItself) {
    startBus(lab());
    const std::string name = "com.veltrion.tarnlink.daemon ";
    const auto daemon = startService("/usr/bin/python3 -m dbusmock --system " + door + name);
    for (const auto &row : rows("InstallUpdate s > accepted; UpdateStatus '' > installed"))
        lab().run("busctl call " + door + "org.freedesktop.DBus.Mock AddMethod sssss " + name +
                  sides(row).first + R"( s 'ret="{\"ok\":true,\"code\":\")" + sides(row).second + R"(\"}"')");
    serve(manifest());
    menu_->check("/feed");
    menu_->install();
    EXPECT_EQ(menu_->trail, "load;install;");
    EXPECT_EQ(menu_->lastNote(), "true accepted");
    EXPECT_THAT(menu_->checker.events().end()[-2], HasSubstr("does not take a handed-over manifest ("));
    EXPECT_THAT(lab().log(daemon), HasSubstr("InstallUpdate \"" + std::string(folder) + "/package-"));
    menu_->runUntil([&] { return !fs::exists(folder); });
    EXPECT_EQ(menu_->lastNote(), "updater: true installed");
}

} // namespace
} // namespace tarn
