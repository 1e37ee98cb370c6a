// What the daemon answers and to whom, with a machine on which nothing happens by itself.

#include "Support/ManualActor.h"
#include "TarnSystem/ConfigLoader.h"
#include "TarnSystem/Files.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/JsonPreferences.h"
#include "TarnXPC/DiagnosticsText.h"
#include "TarnXPC/TarnXPCCoding.h"
#include "TarnlinkDaemon/DaemonService.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <unistd.h>

namespace tarn {
namespace {

namespace fs = std::filesystem;
namespace Protocol = TarnXPCProtocol;
using namespace std::chrono_literals;
using testing::HasSubstr;

/// Every seam of the daemon, and no network but one cable.
struct Machine : SystemClock,
                 Log,
                 NetworkEventSource,
                 HostEvents,
                 Supervisor,
                 TrafficCounting,
                 NetworkReading,
                 Switching,
                 KernelTables,
                 UpdaterStarter {
    Moment moment{100s, 1'800'000'000s};
    std::vector<KernelTables::InterfaceAddress> addresses;
    std::optional<std::string> startError;
    std::string started;

    Moment now() override { return moment; }
    std::string bootID() override { return "boot"; }
    void write(Level, std::string_view, std::string_view) override {}
    void start(double, NetworkEventSource::Handler) override {}
    void stop() override {}
    void start(HostEvents::Handler) override {}
    void ready() override {}
    void stopping() override {}
    std::optional<MainActor::Duration> watchdogInterval() override { return std::nullopt; }
    void alive() override {}
    std::optional<ByteCounts> bytes(const std::string &) override { return std::nullopt; }
    Reading read(bool) override {
        Reading reading;
        auto &wire = reading.interfaces.emplace_back();
        wire.device = "eth0";
        wire.serviceName = "Office\nState:";
        wire.serviceID = "E";
        wire.kind = InterfaceKind::wired;
        wire.linkActive = true;
        wire.ipv4 = {"192.0.2.10"};
        wire.ipv4Router = "192.0.2.1";
        reading.interfaces.emplace_back().device = "ifb0";
        return reading;
    }
    std::optional<std::string> carryOut(const Command &) override { return std::nullopt; }
    std::vector<InterfaceAddress> interfaceAddresses() override { return addresses; }
    std::optional<ByteCounts> byteCounts(const std::string &) override { return std::nullopt; }
    std::vector<Process> processes() override { return {}; }
    std::int32_t sendSignal(std::int32_t, std::int32_t) override { return 0; }
    std::optional<std::string> start(const std::string &request) override {
        started = request;
        return startError;
    }
};

/// Runs each job at once, or holds them all back.
struct Queue final : WorkQueue {
    bool isHeld = false;
    std::vector<std::pair<Job, Job>> held;

    void run(Job work, Job done) override {
        held.emplace_back(std::move(work), std::move(done));
        if (!isHeld)
            release();
    }
    void release() {
        for (auto &[work, done] : std::exchange(held, {})) {
            work();
            done();
        }
    }
};

/// The system's authorizations: each right has a status; forms are those of processes.
struct Rights final : AuthorizationServices {
    struct Reference final : AuthorizationReference {
        explicit Reference(Rights &owner) : rights(owner) {}
        Status copyRight(const std::string &name, std::uint32_t) override {
            rights.asked.push_back(name);
            return rights.statuses[name];
        }
        Status setRight(const std::string &, const Value &, const std::string &) override { return 0; }
        Status makeExternalForm(std::string &) override { return AuthorizationStatus::internal; }
        Rights &rights;
    };
    std::map<std::string, Status> statuses;
    std::vector<std::string> asked;

    Status create(std::unique_ptr<AuthorizationReference> &) override {
        return AuthorizationStatus::internal;
    }
    Status createFromExternalForm(const std::string &,
                                  std::unique_ptr<AuthorizationReference> &made) override {
        made = std::make_unique<Reference>(*this);
        return AuthorizationStatus::success;
    }
    std::optional<Value> rightDefinition(const std::string &) override { return std::nullopt; }
    std::optional<std::string> message(Status) override { return std::nullopt; }
};

class ServiceTest : public testing::Test {
protected:
    ServiceTest() {
        fs::create_directories(folder + "/state");
        daemon.start();
    }
    ~ServiceTest() override { fs::remove_all(folder); }

    void write(const std::string &name, const std::string &text) {
        std::ofstream(folder + "/" + name) << text;
    }
    /// A process as the bus would tell of it.
    RemoteCaller caller(std::int32_t pid, const std::string &client = ":1.7") {
        const ProcessIdentity process{pid, 1234, 1000};
        return {client, false, [process](auto told) { told(process); }};
    }
    std::string form(std::int32_t pid) { return ProcessIdentity{pid, 1234, 1000}.externalForm(); }
    RemoteCaller signedCaller() { return {"1", true, {}}; }
    void call(const RemoteCaller &who, Protocol::Call what) {
        service.call(who, what, [this](RemoteAnswer given) { answers.push_back(std::move(given)); });
    }
    /// The code of the answer; the refusal as a number.
    std::string code(const RemoteCaller &who, Protocol::Call what) {
        answers.clear();
        call(who, std::move(what));
        if (answers.size() != 1)
            return std::to_string(answers.size()) + " answers";
        if (answers[0].refusal != RemoteAnswer::Refusal::none)
            return "refused: " + answers[0].message;
        // All records with a code decode as this one.
        return codeOf(answers[0].bytes);
    }
    static std::string codeOf(const std::string &bytes) {
        return TarnXPCCoding::decoder().decode<UpdateResult>(bytes).code;
    }
    StatusReport status() {
        answers.clear();
        call({":1.9", false, {}}, Protocol::Status());
        return TarnXPCCoding::decoder().decode<StatusReport>(answers.at(0).bytes);
    }

    const std::string folder = "/tmp/tarnlink-service-" + std::to_string(getpid());
    Machine machine;
    ManualActor actor;
    Queue readQueue, switchQueue, diskQueue, authorizationQueue, settingsQueue;
    DiskFolder state{folder + "/state"};
    JsonPreferences preferences{{folder + "/managed", folder + "/user", folder + "/machine"}, machine};
    JsonPreferences settings{{folder + "/managed", folder + "/user", folder + "/machine"}, machine};
    std::vector<std::string> arguments{"daemon", "--probe-mode", "off"};
    Daemon daemon{{actor,
                   machine,
                   machine,
                   machine,
                   machine,
                   machine,
                   [](const std::string &) { return std::unique_ptr<Probing>(); },
                   machine,
                   machine,
                   readQueue,
                   machine,
                   switchQueue,
                   state,
                   diskQueue,
                   {},
                   [this] { return ConfigLoader::load(preferences, arguments); }},
                  {},
                  [](bool) {}};
    Rights rights;
    AdminAuthorization pausing{rights, machine};
    AdminAuthorization managing{rights, machine, AdminAuthorization::manageRight};
    const std::string requestPath = folder + "/state/update-request.json";
    UpdateRequests updates{{state, folder + "/updater", machine, requestPath, machine}};
    DaemonService service{
        {daemon, machine, machine, pausing, managing, authorizationQueue, settings, settingsQueue, updates}};
    std::vector<RemoteAnswer> answers;
};

TEST_F(ServiceTest, StatusTellsWhatTheDaemonKnowsToEverybody) {
    auto report = status();
    EXPECT_EQ(report.status.kind, Status::Kind::wired);
    ASSERT_EQ(report.interfaces.size(), 1u) << "only those with a service";
    EXPECT_EQ(report.interfaces[0].address, "192.0.2.10");
    EXPECT_EQ(report.generatedAt, Date(1'800'000'000s));
    EXPECT_FALSE(report.tetheringWhileWiredAllowed || report.pausedUntil || report.vpnDevice);
    machine.addresses = {{"tun0", false, "10.8.0.2"}};
    machine.moment.sinceBoot += 1s;
    EXPECT_EQ(status().vpnAddress, "10.8.0.2");
    EXPECT_TRUE(rights.asked.empty());
}

TEST_F(ServiceTest, APauseTakesTheCallersOwnAuthorization) {
    const auto pause = [this](std::optional<std::string> authorization, double seconds = 90.5) {
        return code(caller(7), Protocol::Pause{seconds, std::move(authorization)});
    };
    EXPECT_EQ(pause(std::nullopt), "denied.noCredential");
    const ProcessIdentity other[] = {{8, 1234, 1000}, {7, 1233, 1000}, {7, 1234, 0}};
    for (const auto &process : other)
        EXPECT_EQ(pause(process.externalForm()), "denied.admin");
    auto marked = form(7);
    marked.back() = 1;
    for (const auto &bytes : {form(7).substr(1), form(7) + "x", marked, std::string(32, '\0')})
        EXPECT_EQ(pause(bytes), "denied.admin");
    EXPECT_EQ(code({":1.7", false, [](auto told) { told(std::nullopt); }}, Protocol::Pause{9, form(7)}),
              "denied.admin");
    EXPECT_TRUE(rights.asked.empty()) << "the system was asked about a forged claim";
    RemoteCaller nobody{":1.7", false, [](auto) { ADD_FAILURE() << "the bus was asked"; }};
    for (const std::size_t length : {1u, 31u, 33u, 100'000u})
        EXPECT_EQ(code(nobody, Protocol::Pause{9, std::string(length, 'x')}), "denied.admin");
    EXPECT_EQ(code(nobody, Protocol::Pause{9, std::string()}), "denied.noCredential");

    rights.statuses[AdminAuthorization::pauseRight] = AuthorizationStatus::interactionNotAllowed;
    EXPECT_EQ(pause(form(7)), "denied.noCredential");
    rights.statuses[AdminAuthorization::pauseRight] = AuthorizationStatus::denied;
    EXPECT_EQ(pause(form(7)), "denied.admin");
    EXPECT_FALSE(status().pausedUntil);
    rights.statuses[AdminAuthorization::pauseRight] = AuthorizationStatus::success;
    rights.statuses[AdminAuthorization::manageRight] = AuthorizationStatus::denied;
    for (const double seconds : {0.0, -1.0, double(NAN), double(INFINITY)})
        EXPECT_EQ(pause(form(7), seconds), "badLength");
    EXPECT_FALSE(status().pausedUntil);
    EXPECT_EQ(pause(form(7)), "granted");
    const auto result = TarnXPCCoding::decoder().decode<PauseResult>(answers.at(0).bytes);
    EXPECT_EQ(result.argument, 2);
    EXPECT_EQ(result.pausedUntil, Date(1'800'000'090s));
    EXPECT_EQ(status().pausedUntil, result.pausedUntil);
    // Whoever is refused is told of the pause that goes on.
    const auto toldEnd = [&] {
        return TarnXPCCoding::decoder().decode<PauseResult>(answers.at(0).bytes).pausedUntil;
    };
    EXPECT_EQ(pause(form(7), NAN), "badLength");
    EXPECT_EQ(toldEnd(), result.pausedUntil);
    EXPECT_EQ(pause(std::nullopt), "denied.noCredential");
    EXPECT_EQ(toldEnd(), result.pausedUntil);
    EXPECT_EQ(code(caller(7), Protocol::Resume()), "denied.admin");
    EXPECT_EQ(toldEnd(), result.pausedUntil);
    // Whoever asked has gone by the time that it is judged.
    daemon.resume();
    authorizationQueue.isHeld = true;
    answers.clear();
    call(caller(7), Protocol::Pause{60, form(7)});
    machine.moment.sinceBoot += 5001ms;
    authorizationQueue.isHeld = false;
    authorizationQueue.release();
    EXPECT_EQ(codeOf(answers.at(0).bytes), "failed");
    EXPECT_FALSE(status().pausedUntil);
    EXPECT_EQ(pause(form(7), 1e9), "granted");
    EXPECT_EQ(TarnXPCCoding::decoder().decode<PauseResult>(answers.at(0).bytes).argument, 240);
}

TEST_F(ServiceTest, TheRestTakesTheManagingRight) {
    const Protocol::Call all[] = {Protocol::Resume(),
                                  Protocol::SetTetheringWhileWired{true},
                                  Protocol::SetTetheringDNSFix{false},
                                  Protocol::InstallUpdate{"/p"},
                                  Protocol::InstallVerifiedUpdate{"/p", "m", "s"},
                                  Protocol::UpdateStatus()};
    const std::pair<AuthorizationServices::Status, std::string> denials[] = {
        {AuthorizationStatus::denied, "denied.admin"},
        {AuthorizationStatus::interactionNotAllowed, "denied.noCredential"}};
    for (const auto &[denial, expected] : denials) {
        rights.statuses[AdminAuthorization::manageRight] = denial;
        for (const auto &call : all)
            EXPECT_EQ(code(caller(7), call), expected) << call.index();
        EXPECT_THAT(code(caller(7), Protocol::Diagnostics()), testing::StartsWith("refused: "));
    }
    EXPECT_FALSE(fs::exists(folder + "/machine"));
    const std::string path(4097, 'p'), signature(4097, 's'), manifest(65537, 'm');
    EXPECT_EQ(code(caller(7), Protocol::InstallUpdate{path}), "tooLong");
    EXPECT_EQ(code(caller(7), Protocol::InstallVerifiedUpdate{"/p", manifest, "s"}), "tooLong");
    EXPECT_EQ(code(caller(7), Protocol::InstallVerifiedUpdate{"/p", "m", signature}), "tooLong");
    // A program that the system let in by its signature needs nothing more, but for a pause.
    rights.asked.clear();
    const std::string codes[] = {"notPaused", "saved", "saved", "accepted", "busy", "accepted"};
    for (std::size_t i = 0; i < std::size(all); ++i)
        EXPECT_EQ(code(signedCaller(), all[i]), codes[i]);
    EXPECT_TRUE(rights.asked.empty());
    rights.statuses[AdminAuthorization::pauseRight] = AuthorizationStatus::denied;
    EXPECT_EQ(code(signedCaller(), Protocol::Pause{60, std::string(32, 'x')}), "denied.admin");
    rights.statuses[AdminAuthorization::pauseRight] = AuthorizationStatus::success;
    EXPECT_EQ(code(signedCaller(), Protocol::Pause{60, std::string(31, 'x')}), "denied.admin");
    EXPECT_EQ(code(signedCaller(), Protocol::Pause{60, std::string(32, 'x')}), "granted");
    EXPECT_EQ(code(signedCaller(), Protocol::Resume()), "resumed");
}

TEST_F(ServiceTest, SettingsCountAtOnceUnlessSomebodyElseSetsThem) {
    const auto set = [this](bool tethering, bool fix) {
        const auto first = code(caller(7), Protocol::SetTetheringWhileWired{tethering});
        return first + " " + code(caller(7), Protocol::SetTetheringDNSFix{fix});
    };
    const auto inForce = [this] {
        const auto report = status();
        return std::pair(report.tetheringWhileWiredAllowed, report.tetheringDNSFix);
    };
    EXPECT_EQ(set(true, false), "saved saved");
    EXPECT_EQ(inForce(), std::pair(true, false));
    // The second name of a setting counts more, and follows.
    write("machine", R"({"SplitDNSFix": false, "Enabled": true})");
    EXPECT_EQ(set(false, true), "saved saved");
    EXPECT_EQ(inForce(), std::pair(false, true));
    write("user", R"({"TetheringWhileWired": "disable", "SplitDNSFix": true})");
    EXPECT_EQ(set(true, false), "overridden overridden");
    write("managed", R"({"TetheringWhileWired": "disable", "TetheringDNSFix": true})");
    EXPECT_EQ(set(true, false), "managed managed");
    EXPECT_EQ(inForce(), std::pair(false, true));
    fs::remove(folder + "/managed");
    write("machine", "not JSON");
    EXPECT_EQ(set(true, false), "failed failed");
    fs::remove(folder + "/user");
    fs::remove(folder + "/machine");
    arguments.emplace_back("--dry-run");
    daemon.reloadConfig();
    EXPECT_EQ(set(true, false), "dryRun dryRun");
    EXPECT_FALSE(fs::exists(folder + "/machine"));
}

TEST_F(ServiceTest, UpdatesArePassedOnAndTheirOutcomesTold) {
    const auto install = [this] { return code(signedCaller(), Protocol::InstallUpdate{"/p"}); };
    const auto outcome = [this] { return code(signedCaller(), Protocol::UpdateStatus()); };
    const auto both = [&] {
        const auto told = outcome();
        return told + " " + install();
    };
    const auto request = [this] {
        return UpdateRequest::decode(std::get<Value>(json::parse(*files::read(requestPath, 9999).contents)));
    };
    const auto tell = [this](const UpdateOutcome &told) {
        files::replace(folder + "/updater/update-outcome.json", json::serialize(told.encoded()));
    };
    EXPECT_EQ(outcome(), "idle");
    EXPECT_EQ(code(signedCaller(), Protocol::InstallVerifiedUpdate{"/p", "m\xff\r\n", "s"}), "accepted");
    EXPECT_EQ(machine.started, requestPath);
    const auto first = request();
    EXPECT_EQ(first, (UpdateRequest{first.id, "/p", "m\xff\r\n", "s"}));
    tell({"0", true, "installed"});
    EXPECT_EQ(both(), "accepted busy") << "an outcome of another request";
    tell({first.id, true, "installing"});
    fs::remove(requestPath);
    EXPECT_EQ(both(), "installing busy");
    machine.moment.sinceBoot += 15min;
    EXPECT_EQ(outcome(), "updater.silent") << "killed in the middle";
    tell({first.id, true, "installed", "words", 152});
    EXPECT_EQ(outcome(), "installed");
    EXPECT_EQ(TarnXPCCoding::decoder().decode<UpdateResult>(answers[0].bytes),
              (UpdateResult{true, "installed", "words", 152}));

    EXPECT_EQ(install(), "accepted");
    EXPECT_NE(request().id, first.id);
    machine.moment.sinceBoot += 15min;
    EXPECT_EQ(both(), "updater.silent accepted") << "nobody waits for ever";
    fs::remove(requestPath);
    EXPECT_EQ(outcome(), "updater.silent") << "it was taken, and nothing told";
    tell({"0", false, std::string(70'000, 'x')});
    EXPECT_EQ(outcome(), "updater.unreadable");
    machine.startError = "no such program";
    EXPECT_EQ(install(), "updater.start");
    EXPECT_FALSE(fs::exists(requestPath));
    fs::remove_all(folder + "/state");
    write("state", "no folder");
    EXPECT_EQ(install(), "failed");
    arguments.emplace_back("--dry-run");
    daemon.reloadConfig();
    EXPECT_EQ(install(), "dryRun");
}

TEST_F(ServiceTest, NobodyHasMoreThanSixteenCallsUnderWay) {
    authorizationQueue.isHeld = true;
    for (int i = 0; i < 20; ++i)
        call(caller(7), Protocol::Resume());
    ASSERT_EQ(answers.size(), 4u);
    EXPECT_EQ(answers[0].refusal, RemoteAnswer::Refusal::busy);
    call(caller(7), Protocol::Status());
    EXPECT_EQ(answers.back().refusal, RemoteAnswer::Refusal::busy);
    call(caller(8, ":1.8"), Protocol::Resume());
    EXPECT_EQ(status().status.kind, Status::Kind::wired) << "another client";
    answers.clear();
    authorizationQueue.release();
    EXPECT_EQ(answers.size(), 17u);
    authorizationQueue.isHeld = false;
    EXPECT_EQ(code(caller(7), Protocol::Resume()), "notPaused");
}

TEST_F(ServiceTest, DiagnosticsHaveTheirSections) {
    daemon.pause(60);
    call(signedCaller(), Protocol::Diagnostics());
    const auto &text = answers.at(0).bytes;
    EXPECT_THAT(text, testing::StartsWith("TarnlinkDaemon "));
    EXPECT_THAT(text, HasSubstr("\nenabled=true probeMode=off "));
    EXPECT_THAT(text, HasSubstr(R"(Office\u000aState:)"));
    using DiagnosticsText::linesOf;
    EXPECT_THAT(linesOf(text, "State"), HasSubstr("status: paused\n"));
    EXPECT_THAT(linesOf(text, "State"), HasSubstr("paused: until 2027-01-15T08:01:00Z\n"));
    EXPECT_THAT(linesOf(text, "Interfaces"), HasSubstr("192.0.2.10"));
    EXPECT_EQ(linesOf(text, "Probes"), "eth0: not applicable\n");
    EXPECT_EQ(linesOf(text, "Journal"), "nothing to undo\n");
    for (int i = 0; i < 110; ++i) {
        daemon.pause(60);
        daemon.resume();
    }
    answers.clear();
    call(signedCaller(), Protocol::Diagnostics());
    const auto history = linesOf(answers.at(0).bytes, "History");
    EXPECT_EQ(std::count(history.begin(), history.end(), '\n'), 200);
    EXPECT_THAT(history, testing::EndsWith("[end of the pause, as asked for]\n"));
}

} // namespace
} // namespace tarn
