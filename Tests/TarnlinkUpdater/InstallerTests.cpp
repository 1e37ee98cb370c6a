// What an attacker can do with requests, packages, feeds and files, and what becomes of it. The packages are
// real, and so are the programs that read and install them, into a root of their own.

#include "Platform/Linux/DebianPackages.h"
#include "Platform/Linux/LinuxProcessLauncher.h"
#include "Support/FakeHTTP.h"
#include "Support/ManualActor.h"
#include "Support/NetworkLab.h"
#include "Support/Signer.h"
#include "Support/Words.h"
#include "TarnSystem/Files.h"
#include "TarnSystem/Json.h"
#include "TarnlinkUpdater/Installer.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <limits>
#include <sys/mount.h>

namespace tarn {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

/// Somebody uses the moment between check and installation.
struct Tool final : DebianPackages {
    using DebianPackages::DebianPackages;
    std::variant<PackageIdentity, std::string> identify(const std::string &path) override {
        between();
        return DebianPackages::identify(path);
    }
    std::optional<std::string> install(const std::string &path) override {
        ++installations;
        return DebianPackages::install(path);
    }
    std::function<void()> between = [] {};
    int installations = 0;
};

class UpdaterTest : public LabTest, public Log {
protected:
    using Fields = std::vector<std::pair<std::string, Value>>;

    void SetUp() override {
        LabTest::SetUp();
        if (!IsSkipped())
            lab().run("cd /run/lab; D=root/var/lib/dpkg A=apt/var; mkdir -p client state $D/info $D/updates "
                      "$A/cache/apt/archives/partial $A/lib/apt/lists/partial $A/log/apt; "
                      "touch $D/status $D/available");
    }
    void write(Level, std::string_view, std::string_view line) override {
        told += std::string(line.substr(0, line.find(':'))) + " ";
    }

    /// Builds a package; returns its path.
    std::string package(const std::string &version, const std::string &name = "tarnlink",
                        const std::string &fields = "Architecture: all\n") {
        const std::string root = "/run/lab/build" + std::to_string(++packages_);
        lab().write(root + "/DEBIAN/control", "Package: " + name + "\nVersion: " + version + "\n" + fields +
                                                  "Maintainer: A <a@example.org>\nDescription: a test\n");
        lab().write(root + "/DEBIAN/conffiles", "/etc/tarnlink.conf\n");
        lab().write(root + "/etc/tarnlink.conf", version);
        lab().write(root + "/opt/version", version);
        lab().run("dpkg-deb --root-owner-group --build " + root + " " + root + ".deb");
        return root + ".deb";
    }
    /// The vendor's words about a package; `changes` in place of what is true.
    static std::string manifest(std::int64_t build, const std::string &package, const Fields &changes = {}) {
        auto value = std::get<Value>(json::parse(
            R"({"version": "2.0.3", "minOS": "5.10", "url": "https://download.example/p", "published": ""})"));
        value.set("build", build);
        value.set("sha256", UpdateFeed::sha256(package));
        value.set("size", static_cast<std::int64_t>(fs::file_size(package)));
        for (const auto &[key, changed] : changes)
            value.set(key, changed);
        return json::serialize(value);
    }
    static void leave(const UpdateRequest &request) {
        files::replace(requestPath, json::serialize(request.encoded()));
    }
    /// The end of what lies there as a request: its outcome, as "code: message", or why there is none.
    std::string run() {
        told.clear();
        tool.installations = 0;
        UpdateFeed feed(http, actor, key);
        Installer installer({feed, *URL::parse(feedURL), tool, *this, folder, 151, {6, 1, 0}});
        std::string error;
        detach(attempt(installer, error));
        actor.run();
        if (!error.empty())
            return error;
        EXPECT_FALSE(fs::exists(fs::symlink_status(requestPath)) || fs::exists(folder + "/incoming"));
        const auto left = readFile(folder + "/" + UpdateOutcome::fileName);
        const auto outcome = UpdateOutcome::decode(std::get<Value>(json::parse(left)));
        EXPECT_EQ(outcome.ok, outcome.code == "installed");
        return outcome.code + ": " + outcome.message;
    }
    static Task<void> attempt(Installer &installer, std::string &error) {
        try {
            co_await installer.run(requestPath);
        } catch (const std::runtime_error &thrown) {
            error = thrown.what();
        }
    }
    std::string handOver(const std::string &package, const std::string &data,
                         const std::string &signature = {}) {
        leave({"7", package, data, signature.empty() ? signer.sign(data) : signature});
        return run();
    }
    /// Lets the manifest be fetched from a feed.
    std::string fetch(const std::string &package, FakeHTTP::Answer data, const std::string &signature) {
        http.answers = {{feedURL, std::move(data)}, {std::string(feedURL) + ".sig", {.body = signature}}};
        leave({"8", package});
        return run();
    }
    static constexpr const char *requestPath = "/run/lab/state/update-request.json";
    static constexpr const char *feedURL = "https://feed.example/tarnlink.json";
    const std::string folder = "/run/lab/updater";
    Signer signer;
    Signer thief;
    std::string key = signer.publicKey();
    ManualActor actor;
    FakeHTTP http{actor};
    LinuxProcessLauncher processes;
    Tool tool{processes, words("-o Dir=/run/lab/apt -o Dir::State::status=/run/lab/root/var/lib/dpkg/status "
                               "-o DPkg::Options::=--root=/run/lab/root")};
    std::string told;

private:
    int packages_ = 0;
};

TEST_F(UpdaterTest, InstallsWhatWasVerifiedWhateverBecomesOfTheClientsFile) {
    const auto good = package("2.0.3.152");
    const auto evil = package("6.6.6.152");
    const auto data = manifest(152, good);
    tool.between = [&] { fs::rename(evil, good); };
    // What a process left that was killed is gone, too.
    lab().write(folder + "/incoming/package.deb", "half");
    EXPECT_EQ(handOver(good, data), "installed: Version 2.0.3.152 is installed.");
    EXPECT_EQ(told, "copying verifying installing installed ");
    EXPECT_EQ(readFile("/run/lab/root/opt/version"), "2.0.3.152");

    tool.between = [] {};
    lab().write("/run/lab/root/etc/tarnlink.conf", "mine");
    const auto next = package("2.0.3.153");
    const auto fetched = manifest(153, next, {{"size", Value()}});
    EXPECT_THAT(fetch(next, {.body = fetched}, signer.sign(fetched) + "\n"), StartsWith("installed"));
    EXPECT_EQ(readFile("/run/lab/root/opt/version"), "2.0.3.153");
    EXPECT_EQ(readFile("/run/lab/root/etc/tarnlink.conf"), "mine");
}

TEST_F(UpdaterTest, RefusesEachAttack) {
    const auto good = package("2.0.3.153");
    const auto data = manifest(153, good);
    const auto is = [&](const std::string &end, const std::string &expected) {
        EXPECT_THAT(end, StartsWith(expected));
        EXPECT_EQ(tool.installations, 0) << end;
    };
    // Arbitrary installation: not signed by the vendor, or not what was signed.
    is(handOver(good, data, thief.sign(data)), "refused.signature: manifest signature invalid");
    is(handOver(good, "{}", "?"), "refused.signature: manifest signature invalid");
    const Fields otherHash = {{"sha256", std::string(64, 'A')}};
    is(handOver(good, manifest(153, good, otherHash)), "refused.hash: The package is not the one");
    // Endless data: the copy ends at the announced size, the manifest at its limit.
    lab().run("cp " + good + " /run/lab/long; truncate -s 1T /run/lab/long");
    is(handOver("/run/lab/long", data), "refused.size: The package is not as long");
    is(fetch(good, {.body = std::string(5000, ' '), .isEndless = true}, ""),
       "failed.feed: The manifest cannot");
    // Indefinite freeze: what is installed is no update; that nothing newer comes is the checker's to notice.
    is(handOver(good, manifest(151, good)), "refused.notNewer: Build 151 is not newer than the installed");
    // A malicious mirror.
    is(fetch(good, {.body = data}, thief.sign(data)), "refused.signature: manifest signature invalid");
    is(fetch(good, {.result = 503}, ""), "failed.feed: The manifest cannot be fetched: HTTP 503");
    const Fields plain = {{"url", "http://download.example/p"}};
    is(handOver(good, manifest(153, good, plain)), "refused.manifest: manifest url must be https");
    // Mix and match: signature, manifest and package of different versions.
    const auto newer = package("2.0.3.154", "tarnlink", "Architecture: all\nSection: admin\n");
    is(handOver(good, data, signer.sign(manifest(154, newer))),
       "refused.signature: manifest signature invalid");
    is(handOver(newer, data), "refused.size: The package is not as long");
    is(handOver(good, manifest(153, newer)), "refused.size: The package is not as long");
    // Key compromise: a build with another key takes nothing that the stolen one signs.
    key = thief.publicKey();
    is(handOver(good, data), "refused.signature: manifest signature invalid");
    key = signer.publicKey();
    // Wrong software, although the vendor signed it.
    const std::string notOurs = "refused.package: The package is not an update for this machine: ";
    const auto product = package("2.0.3.153", "other");
    is(handOver(product, manifest(153, product)), notOurs + R"(it is "other")");
    const auto version = package("2.0.3.99");
    is(handOver(version, manifest(153, version)), notOurs + R"(its version is "2.0.3.99")");
    const auto machine = package("2.0.3.153", "tarnlink", "Architecture: m68k\n");
    is(handOver(machine, manifest(153, machine)), notOurs + "its programs are not for");
    is(handOver("/etc/passwd", manifest(153, "/etc/passwd")), notOurs + "dpkg-deb: error");
    // Extraneous dependencies: nothing is installed along, and nothing half.
    const auto needy = package("2.0.3.153", "tarnlink", "Architecture: all\nDepends: adduser\n");
    EXPECT_THAT(handOver(needy, manifest(153, needy)),
                StartsWith("failed.installer: The installer failed: "));
    EXPECT_EQ(readFile("/run/lab/root/var/lib/dpkg/status"), "");
    // Rollback: what was offered once, installed or not, is the least.
    is(handOver(good, manifest(154, good, {{"minOS", "6.1.1"}})), "refused.system: It takes version 6.1.1");
    is(handOver(good, data), "refused.rollback: Build 153 is older than build 154");
    // Fast-forward: only the vendor can, and then an administrator has to help.
    is(handOver(good, manifest(std::numeric_limits<std::int64_t>::max(), good)), notOurs);
    is(handOver(newer, manifest(154, newer)), "refused.rollback: Build 154 is older than build 92233720");
    lab().write(folder + "/" + Installer::recordName, "damaged");
    is(handOver(good, data), "failed.record: " + folder);
    fs::remove(folder + "/" + Installer::recordName);
    EXPECT_THAT(handOver(good, data), StartsWith("installed"));
}

TEST_F(UpdaterTest, TakesRegularFilesOnly) {
    const auto good = package("2.0.3.152");
    const auto data = manifest(152, good);
    lab().run("cd /run/lab/client; ln -s " + good +
              " link; mkfifo pipe; mkdir folder; mknod device c 1 3 || ln -s /dev/null device");
    for (const char *name : {"link", "pipe", "folder", "device", "missing", "../client/link"})
        EXPECT_THAT(handOver("/run/lab/client/" + std::string(name), data), StartsWith("refused.file: "))
            << name;
    fs::current_path("/run/lab");
    EXPECT_THAT(handOver(fs::path(good).filename(), data), StartsWith("refused.file: ")) << "a relative path";

    for (const std::string make :
         {"ln -s /etc/passwd", "mkfifo", "mkdir", "truncate -s 1T", "echo '{}' >",
          R"(echo '{"id": "9", "pkgPath": "/p", "manifest": "e30="}' >)",
          R"(echo '{"id": "9", "pkgPath": "/p", "manifest": "{}", "signature": ""}' >)"}) {
        lab().run(make + " " + requestPath);
        EXPECT_THAT(run(), StartsWith("refused.request: ")) << make;
    }
    EXPECT_TRUE(fs::exists("/etc/passwd"));
}

TEST_F(UpdaterTest, AFullDiskLeavesNothingAndASharedFolderIsRefused) {
    lab().run("head -c 4M /dev/urandom >/run/lab/big; mkdir " + folder);
    ASSERT_EQ(mount("tmpfs", folder.c_str(), "tmpfs", 0, "mode=755,size=1M"), 0);
    EXPECT_THAT(handOver("/run/lab/big", manifest(152, "/run/lab/big")), StartsWith("failed.copy: "));
    umount(folder.c_str());
    // Not even room for an outcome: a request that stays would start the updater again and again.
    ASSERT_EQ(mount("tmpfs", folder.c_str(), "tmpfs", 0, "mode=755,nr_inodes=2"), 0);
    leave({"7", "/run/lab/big"});
    EXPECT_THAT(run(), HasSubstr("cannot be written"));
    EXPECT_FALSE(fs::exists(requestPath));
    umount(folder.c_str());
    lab().run("chmod g+w " + folder);
    leave({"7", "/run/lab/big"});
    EXPECT_EQ(run(), folder + " cannot be used: others can write there");
    EXPECT_FALSE(fs::exists(requestPath));
}

TEST_F(UpdaterTest, TheProgramBelievesTheVendorAlone) {
    const auto good = package("2.0.3.152");
    const auto data = manifest(152, good);
    const std::string program = UPDATER " " + std::string(requestPath);
    const auto outcome = [] { return readFile("/var/lib/tarnlink-updater/update-outcome.json"); };
    EXPECT_EQ(lab().run(program).err, "") << "nothing to do";
    leave({"7", good, data, signer.sign(data)});
    lab().run(program);
    EXPECT_THAT(outcome(), HasSubstr(R"("id":"7","ok":false,"code":"refused.signature")"));
    EXPECT_FALSE(fs::exists(requestPath));
    leave({"8", good});
    lab().run(program);
    EXPECT_THAT(outcome(), HasSubstr(R"("id":"8","ok":false,"code":"failed.feed")"));
    EXPECT_EQ(lab().execute(UPDATER).status, 2);
    EXPECT_EQ(lab().run("stat -c %a /var/lib/tarnlink-updater /var/lib/tarnlink-updater/*").out,
              "755\n600\n644\n");
}

} // namespace
} // namespace tarn
