// The model in virtual time; daemon, network, probes and log do what a test says.

#include "Support/FakeDaemon.h"
#include "Support/FakeDesktop.h"
#include "Support/FakeHTTP.h"
#include "Support/FakeServices.h"
#include "Support/ForcedKeys.h"
#include "Support/ManualActor.h"
#include "Support/MapDefaults.h"
#include "Support/Words.h"
#include "TarnCore/Text.h"
#include "TarnlinkMenu/StatusModel.h"

#include <gmock/gmock.h>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

/// All that is not the model. What is asked for is noted; what has no answer yet waits.
struct World : SystemStateReading,
               NetworkEventSource,
               Probing,
               WiFiDetailsReading,
               KernelTables,
               RecentLog,
               WorkQueue,
               SystemClock,
               Log {
    ManualActor actor;
    FakeDaemon daemon;
    FakeServices services;
    FakeDesktop desktop;
    FakeHTTP http{actor};
    MapDefaults defaults;
    ForcedKeys preferences;
    std::string &calls = daemon.calls;
    std::string lines, recent;
    std::optional<std::vector<InterfaceSnapshot>> interfaces = std::vector<InterfaceSnapshot>();
    std::vector<InterfaceAddress> addresses;
    Handler handler;
    std::list<std::function<void(ProbeOutcome)>> probes;
    std::optional<WiFiDetails> details;

    TarnXPCClient client{daemon, actor};
    UpdateFeed feed{http, actor};
    LocationAuthorizer location{desktop, defaults, actor};
    std::unique_ptr<StatusModel> model;
    Observable::Subscription subscription;
    std::vector<std::string> last;
    std::string trail; ///< Names of the fields that changed, each with a blank.

    World() {
        const UpdateChecker::Services own{client, feed, defaults, actor, *this, *this, *this};
        const auto makeUpdates = [own] {
            return std::make_unique<UpdateChecker>(
                own, UpdateChecker::Setup{"/nowhere", {}, 1, *URL::parse("https://old.example/")});
        };
        model = std::make_unique<StatusModel>(StatusModel::Services{client, actor, *this, *this, *this, *this,
                                                                    *this, services, *this, *this, location,
                                                                    *this, *this, preferences, makeUpdates});
        last = fields();
        subscription = model->observe([this] {
            const auto names = words("source error status reason wifi pause list tether vpn dns unread "
                                     "update details refused forced");
            const auto now = fields();
            for (std::size_t i = 0; i < now.size(); ++i)
                trail += now[i] != last[i] ? names[i] + " " : "";
            last = now;
        });
    }
    ~World() override {
        // Whatever is still under way ends.
        model.reset();
        while (!probes.empty())
            step("good");
        actor.run();
    }
    std::vector<std::string> fields() const {
        const auto &m = *model;
        std::string list;
        for (const auto &one : m.interfaces())
            list += one.device + (one.ipv4.empty() ? "" : "4" + one.ipv4.back()) +
                    (one.ipv6.empty() ? "" : "6" + one.ipv6[0].address) + ";";
        const std::string status(Status::caseName(m.status().kind)), yes = "yes", no = "no";
        return {std::string(StatusModel::rawValue(m.source())),
                m.xpcError().value_or(""),
                status,
                m.reason(),
                m.wifiOn() ? yes : no,
                m.pausedUntil() ? dates::text(*m.pausedUntil()) : "",
                list,
                m.tetheringAllowed() ? yes : no,
                m.vpn() ? m.vpn()->device + "=" + m.vpn()->address : "",
                m.tetheringDNSFix() ? yes : no,
                m.errorText().value_or(""),
                dates::text(m.lastUpdate()),
                m.wifiDetails() ? m.wifiDetails()->ssid.value_or("") : "",
                m.settingError().value_or(""),
                std::string(m.isTetheringForced() ? "t" : "") + (m.isTetheringDNSFixForced() ? "d" : "")};
    }
    void wire(const std::string &dns) {
        InterfaceSnapshot wired;
        wired.device = "e", wired.kind = InterfaceKind::wired, wired.serviceID = wired.serviceName = "LAN";
        wired.linkActive = wired.hasDHCPLease = true;
        wired.ipv4 = {"169.254.1.1", "10.0.0.2"}, wired.ipv6 = {{"2001:db8::2"}};
        wired.dnsServers = words(dns);
        interfaces = {wired};
    }
    void step(const std::string &what);
    /// Steps, and whatever is due after each.
    void perform(const std::string &steps) {
        for (const auto &what : rows(steps))
            step(what), actor.runDue();
    }

    std::vector<InterfaceSnapshot> readInterfaces() override {
        return interfaces ? *interfaces : throw SystemStateError("no store");
    }
    std::optional<bool> wifiPowerOn() override { return std::nullopt; }
    void start(double debounce, Handler told) override {
        calls += "events " + text::fromDouble(debounce) + ";", handler = std::move(told);
    }
    void stop() override { handler = {}; }
    Task<ProbeOutcome> probe(std::string device, std::string server, std::optional<std::string> from,
                             double timeout) override {
        calls += "probe " + device + " " + server + " " + from.value_or("-") + " " +
                 text::fromDouble(timeout) + ";";
        Callback<ProbeOutcome> ending(actor, [this](auto resume) { probes.push_back(resume); });
        co_return co_await ending;
    }
    Task<DNSVerdict> ask(std::string, std::string, std::string, std::optional<std::string>, double) override {
        co_return DNSVerdict::unreachable;
    }
    std::optional<WiFiDetails> current() override { return details; }
    std::vector<InterfaceAddress> interfaceAddresses() override { return addresses; }
    std::optional<ByteCounts> byteCounts(const std::string &) override { return {}; }
    std::vector<Process> processes() override { return {}; }
    std::int32_t sendSignal(std::int32_t, std::int32_t) override { return 0; }
    std::string read(const std::string &subsystem) override {
        calls += "log " + subsystem + ";";
        return recent == "throw" ? throw std::runtime_error("no such file") : recent;
    }
    void run(Job work, Job done) override {
        actor.post([work, done] { work(), done(); });
    }
    Moment now() override { return {{}, actor.now().time_since_epoch()}; }
    std::string bootID() override { return {}; }
    void write(Level level, std::string_view category, std::string_view text) override {
        lines += std::string(level == Level::error ? "!" : "").append(category).append(": ").append(text);
    }
};

const std::string report =
    R"({"status":{"wifi":{}},"reason":"why","wifiOn":false,"pausedUntil":"2030-01-01T00:00:00Z",)"
    R"("generatedAt":"2029-01-01T00:00:00Z","tetheringWhileWiredAllowed":true,"tetheringDNSFix":false,)"
    R"("updateCheckAllowed":false,"updateFeedURL":"https://new.example/feed","vpnDevice":"tun0","interfaces":[)"
    R"({"device":"e","serviceName":"LAN","kind":"wired","linkActive":true,"address":"10.0.0.2"},)"
    R"({"device":"f","serviceName":"","kind":"wired","linkActive":false,"address":"fe80::1"}]})";

void World::step(const std::string &what) {
    const auto list = words(what + " - -");
    const auto probed = [this](const ProbeOutcome &outcome) {
        if (!probes.empty())
            std::exchange(probes, {}).front()(outcome);
    };
    const std::map<std::string, std::function<void()>> actions = {
        {"start", [&] { model->start(); }},
        {"refresh", [&] { model->refresh(); }},
        {"event", [&] { handler({"key"}); }},
        {"report", [&] { daemon.answer("status", list[1] == "" ? report : list[1]); }},
        {"fail", [&] { daemon.answer("status", ""); }},
        {"local", [&] { perform("refresh; fail"); }},
        {"wire", [&] { wire(list[1]); }},
        {"unreadable", [&] { interfaces.reset(); }},
        {"only6", [&] { interfaces->front().ipv4.clear(); }},
        {"noaddress", [&] { interfaces->front().ipv4.clear(), interfaces->front().ipv6.clear(); }},
        {"nolink", [&] { interfaces->front().linkActive = false; }},
        {"nolease", [&] { interfaces->front().hasDHCPLease = false; }},
        {"router", [&] { interfaces->front().ipv6Router = "fe80::1"; }},
        {"gone", [&] { interfaces->clear(); }},
        {"good", [&] { probed(ProbeOutcome::reachable(0.01)); }},
        {"bad", [&] { probed(ProbeOutcome::error("no route")); }},
        {"wait", [&] { actor.advance(std::chrono::milliseconds(std::stol(list[1]))); }},
        {"on", [&] { model->setTetheringAllowed(true); }},
        {"off", [&] { model->setTetheringAllowed(false); }},
        {"dns", [&] { model->setTetheringDNSFix(false); }},
        {"yes", [&] { daemon.answer("tethering", R"({"ok":true})"); }},
        {"no", [&] { daemon.answer("tethering", R"({"ok":false,"code":"managed"})"); }},
        {"lost", [&] { daemon.answer("tethering", ""); }}};
    actions.at(list[0])();
}

TEST(StatusModel, SetsItsFieldsInOrder) {
    World world;
    world.perform("unreadable; local");
    EXPECT_EQ(world.trail, "unread error ");
    EXPECT_EQ(world.lines, "!app: xpc status failed: The Tarnlink daemon is not available.");
    world.details = WiFiDetails{"Cafe", {}, {}, {}};
    world.preferences.keys = {"SplitDNSFix"};
    world.trail.clear(), world.perform("refresh; report");
    EXPECT_EQ(world.trail,
              "forced source error status reason wifi pause list tether vpn dns unread update details ");
    EXPECT_THAT(world.last, ElementsAre("Daemon", "", "wifi", "why", "no", "2030-01-01T00:00:00Z",
                                        "e410.0.0.2;f6fe80::1;", "yes", "tun0=", "no", "",
                                        "2029-01-01T00:00:00Z", "Cafe", "", "d"));
    EXPECT_FALSE(world.model->updates().updatesAllowed());
    world.details.reset(), world.addresses = {{"utun3", false, "10.9.0.1"}};
    world.services.power = std::nullopt;
    world.wire("D"), world.interfaces->emplace_back().device = "no service";
    world.preferences.keys = {"TetheringWhileWired", "TetheringDNSFix", "ProbeMode"};
    world.trail.clear(), world.perform("refresh; wait 1500");
    EXPECT_EQ(world.trail, "forced source vpn pause wifi list status reason update details error ");
    EXPECT_THAT(world.last, ElementsAre("lokal (kein Daemon)", "Timed out after 1.5s waiting for the daemon.",
                                        "wiredPending", "e addressed, probe pending", "yes", "",
                                        "e410.0.0.262001:db8::2;", "yes", "utun3=10.9.0.1", "no", "",
                                        "1970-01-01T01:00:01Z", "", "", "td"));
    // An address that is none leaves the last one.
    world.daemon.pending.clear();
    world.perform(R"(refresh; report {"updateFeedURL":"none","status":{"offline":{}}})");
    EXPECT_EQ(world.model->updates().feedURL().absoluteString() + world.last[8], "https://new.example/feed");
    EXPECT_THROW(NullSystemStateReader().readInterfaces(), NullSystemStateReader::InitError);
}

TEST(StatusModel, FollowsTheTable) {
    // Status, probes ("e=KIND/FAILURES") | switch, its error | what was asked for; "S" is a status, "P" the
    // usual probe.
    std::istringstream table(R"(refresh; refresh; wait 1499; refresh > offline|no -|S
refresh; wait 1500; refresh > offline|no -|SS
wire D; local; local > wiredPending|no -|SPS
wire D; only6; local > wiredPending|no -|Sprobe e D 2001:db8::2 2.0;
wire D; local; bad; wait 1999 > wiredPending|no -|SP
wire D; local; bad; wait 1; fail; wait 2000 > wiredPendinge=0/1|no -|SPS
wire D; local; bad; wait 2000; fail; bad; wait 2000; fail > wiredPendinge=0/2|no -|SPSPSP
wire D; local; bad; wait 2000; fail; bad; wait 2000; fail; bad; wait 2000; fail > wiredUnreachablee=0/3|no -|SPSPSPSP
wire D; local; bad; wait 2000; fail; good; fail > wirede=3/0|no -|SPSPS
wire D; local; refresh; good; fail; local > wirede=3/0|no -|SPSS
wire D; local; gone; good; fail > offline|no -|SPS
wire D; local; refresh; report; good; report > wifie=3/0|yes -|SPSS
wire -; local > wiredPendinge=1/0|no -|S
wire -; local; router; nolease; local > wirede=1/0|no -|SS
wire -; local; nolink; local > offline|no -|SS
wire -; local; noaddress; local > offline|no -|SS
wire -; local; nolease; local > offline|no -|SS
wire -; local; unreadable; local > wiredPendinge=1/0|no -|SS
start > offline|no -|events 0.3;S
start; event; report; wait 60000 > wifi|yes -|events 0.3;S
start; report; event; report > wifi|yes -|events 0.3;SS
on; yes > offline|yes -|tethering 1;S
on; no > offline|no managed|tethering 1;S
on; lost > offline|no xpc|tethering 1;
on; lost; refresh; report > wifi|yes -|tethering 1;S
on; no; report; refresh; report > wifi|yes managed|tethering 1;SS
on; wait 2999 > offline|yes -|tethering 1;
on; wait 3000; dns > offline|no -|tethering 1;dns 0;
on; no; on > offline|yes -|tethering 1;Stethering 1;
on; off; no; no > offline|no managed|tethering 1;tethering 0;S
on; off; no; on > offline|yes -|tethering 1;tethering 0;Stethering 1;
on; off; yes; no > offline|yes managed|tethering 1;tethering 0;S
on; off; no; yes > offline|no -|tethering 1;tethering 0;S)");
    for (std::string row; std::getline(table, row);) {
        SCOPED_TRACE(row);
        World world;
        world.perform(sides(row).first);
        auto seen = world.last[2];
        for (const auto &[device, state] : world.model->probes())
            seen += device + "=" + std::to_string(int(state.kind)) + "/" + std::to_string(state.consecutive);
        seen += "|" + world.last[7] + " " + (world.last[13].empty() ? "-" : world.last[13]) + "|";
        for (const auto &[name, mark] : {std::pair("status;", "S"), {"probe e D 10.0.0.2 2.0;", "P"}})
            for (std::size_t at; (at = world.calls.find(name)) != std::string::npos;)
                world.calls.replace(at, std::string_view(name).size(), mark);
        EXPECT_EQ(seen + world.calls, sides(row).second);
        EXPECT_EQ(world.services.calls, "") << "nothing is switched";
    }
}

TEST(StatusModel, AsksForUpdatesAndLocationAtTheStart) {
    World world;
    world.perform("start; wait 3999");
    EXPECT_EQ(world.http.requests + world.desktop.calls, "https://old.example/ ");
    world.perform("wait 1");
    EXPECT_EQ(world.desktop.calls, "activate;ask;");
    world.details = WiFiDetails{"Cafe", {}, {}, {}};
    world.desktop.change(LocationStatus::authorized);
    EXPECT_EQ(world.last[12], "Cafe");
}

TEST(StatusModel, SaysInOneLineHowItIs) {
    World world;
    for (const auto &row :
         rows("wired > Wired: e (LAN); wiredPending > Verifying: e (LAN); wiredUnreachable > "
              "Unreachable: e (LAN), Wi-Fi on; wifi > Wi-Fi; offline > Offline; wifiOff > "
              "Wi-Fi off (user); disabled > Disabled; paused > Paused")) {
        world.perform(R"(refresh; report {"status":{")" + sides(row).first +
                      R"(":{"device":"e","name":"LAN"}}})");
        EXPECT_EQ(world.model->describe(), sides(row).second + " — Wi-Fi on — no wired service");
    }
    world.perform("refresh; report");
    EXPECT_EQ(world.model->describe(), "Wi-Fi — Wi-Fi off — LAN [link 10.0.0.2]; f [no link]");
    world.perform("wire D; local");
    EXPECT_EQ(world.model->describe(), "Verifying: e (LAN) — Wi-Fi on — LAN [link 10.0.0.2 2001:db8::2]");
}

TEST(StatusModel, DiagnosticsNeedNoModelToTheEnd) {
    const auto head = "TarnlinkMenu " + std::string(AppInfo::version) + " (" +
                      std::to_string(AppInfo::build) +
                      ") — Offline — Wi-Fi on — no wired service\n\n1970-01-01T01:00:00Z update: noted\n\n";
    for (const auto &[recent, expected] : {std::pair("lines\n", "lines\n"),
                                           {"", "(no output)"},
                                           {"throw", "log show failed: no such file"},
                                           {"\xff", "\uFFFD"}})
        for (const bool hasDaemon : {true, false}) {
            World world;
            world.recent = recent;
            world.model->updates().note("noted");
            std::string text;
            const auto collect = [&](Task<std::string> task) -> Task<void> { text = co_await task; };
            detach(collect(world.model->diagnostics()));
            world.model.reset();
            world.actor.advance(hasDaemon ? 2999ms : 3000ms);
            world.daemon.answer("diagnostics", "daemon\n"), world.actor.runDue();
            EXPECT_EQ(world.calls, "diagnostics;log com.veltrion.tarnlink;");
            EXPECT_EQ(text, head + (hasDaemon ? "daemon\n" : "") + expected);
        }
}

TEST(StatusModel, EventsMayComeInAnyOrderAndTheModelMayGo) {
    std::vector<std::string> order = {"bad", "event", "fail", "on", "report", "yes"};
    do {
        for (std::size_t end = 0; end <= order.size(); ++end) {
            World world;
            world.perform("wire D; start; fail");
            const auto underWay = [&] {
                return std::ranges::count(world.daemon.pending, "status", &FakeDaemon::Pending::name);
            };
            for (std::size_t i = 0; i < end; ++i) {
                world.perform(order[i]);
                ASSERT_TRUE(underWay() <= 1 && world.probes.size() <= 1);
            }
            if (end == order.size()) {
                // Whatever came first, the next report is the whole truth.
                world.perform("lost; fail; refresh");
                ASSERT_EQ(underWay(), 1);
                world.perform("report");
                ASSERT_EQ(world.last[0] + world.last[2] + world.last[7], "Daemonwifiyes");
            } else if (end % 2 == 0) {
                world.model->refresh();
            }
            world.model.reset();
            EXPECT_FALSE(world.handler);
            const auto calls = world.calls;
            world.perform(end % 3 == 0 ? "report; good; yes; wait 99999" : "fail; bad; no; wait 99999");
            ASSERT_EQ(world.calls, calls);
        }
    } while (std::ranges::next_permutation(order).found);
}

} // namespace
} // namespace tarn
