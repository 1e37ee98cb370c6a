// The scenes as a person at a terminal reads them, over real models; daemon, network and time do what a test
// says.

#include "Support/FakeDesktop.h"
#include "Support/FakeHTTP.h"
#include "Support/FakeServices.h"
#include "Support/FakeStartup.h"
#include "Support/ForcedKeys.h"
#include "Support/ManualActor.h"
#include "Support/MapDefaults.h"
#include "Support/Signer.h"
#include "TarnCore/StatusPresentation.h"
#include "TarnXPC/TarnXPCCoding.h"
#include "TarnlinkMenu/AdminPanelModel.h"
#include "TarnlinkMenu/ModifierWatcher.h"
#include "TarnlinkMenu/Scenes.h"
#include "TarnlinkMenu/StartupModel.h"
#include "TarnlinkMenu/StatusModel.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <list>
#include <utility>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using testing::EndsWith, testing::HasSubstr, testing::Not, testing::StartsWith;

/// All that is not the models. The daemon answers a call with what `answers` holds under its number, and
/// fails without; so it is asleep at first.
struct Outside : SystemStateReading,
                 NetworkEventSource,
                 Probing,
                 WiFiDetailsReading,
                 KernelTables,
                 RecentLog,
                 WorkQueue,
                 SystemClock,
                 Log,
                 Authorizing,
                 RemoteConnector,
                 RemoteConnection {
    ManualActor actor;
    FakeServices services;
    FakeDesktop desktop;
    FakeHTTP http{actor};
    MapDefaults defaults;
    ForcedKeys preferences;
    std::map<std::size_t, std::string> answers;
    std::string calls, unreadable; ///< Numbers of the daemon's methods.
    std::vector<InterfaceSnapshot> interfaces;
    std::vector<InterfaceAddress> addresses;
    std::list<std::function<void(ProbeOutcome)>> probes;
    std::optional<WiFiDetails> details;

    std::vector<InterfaceSnapshot> readInterfaces() override {
        return unreadable.empty() ? interfaces : throw SystemStateError(unreadable);
    }
    std::optional<bool> wifiPowerOn() override { return {}; }
    void start(double, NetworkEventSource::Handler) override {}
    void stop() override {}
    Task<ProbeOutcome> probe(std::string, std::string, std::optional<std::string>, double) override {
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
    std::string read(const std::string &) override { return "log"; }
    void run(Job work, Job done) override {
        actor.post([work, done] { work(), done(); });
    }
    Moment now() override { return {{}, actor.now().time_since_epoch() + 1'795'269'600s - 1h}; }
    std::string bootID() override { return {}; }
    void write(Level, std::string_view, std::string_view) override {}
    std::string rightName() const override { return {}; }
    void ensureRightExists() override {}
    bool verify(const std::string &) override { return true; }
    std::string acquireInteractively() override { return std::string(32, 'x'); }
    std::shared_ptr<RemoteConnection> connect(const std::string &, const std::string &) override {
        return {std::shared_ptr<void>(), this};
    }
    void setInvalidationHandler(RemoteConnection::Handler) override {}
    void setInterruptionHandler(RemoteConnection::Handler) override {}
    void resume() override {}
    void invalidate() override {}
    bool invoke(const TarnXPCProtocol::Call &call, Reply reply, ErrorHandler failed) override {
        calls += std::to_string(call.index());
        const auto found = answers.find(call.index());
        actor.post([reply, failed, answer = found == answers.end() ? "" : found->second] {
            answer.empty() ? failed({"org.freedesktop.DBus.Error.NoReply", 0, "words"}) : reply(answer);
        });
        return true;
    }
};

class ScenesTest : public testing::Test {
protected:
    const std::string feedURL = "https://feed.example/tarnlink.json";
    std::string pattern = (std::filesystem::temp_directory_path() / "tarnlink-XXXXXX").string();
    const std::filesystem::path root = mkdtemp(pattern.data());
    Outside outside;
    ManualActor &actor = outside.actor;
    Signer key;
    StringTable strings = table("en");
    TarnXPCClient client{outside, actor};
    UpdateFeed feed{outside.http, actor, key.publicKey()};
    LocationAuthorizer location{outside.desktop, outside.defaults, actor};
    StatusModel status{
        {client, actor, outside, outside, outside, outside, outside, outside.services, outside, outside,
         location, outside, outside, outside.preferences, [this] {
             return std::make_unique<UpdateChecker>(
                 UpdateChecker::Services{client, feed, outside.defaults, actor, outside, outside, outside},
                 UpdateChecker::Setup{root / "updates", {13, 0, 0}, 1, *URL::parse(feedURL)});
         }}};
    AdminPanelModel admin{{client, outside, outside, actor, strings}};
    ModifierWatcher modifiers{outside.desktop};
    std::string opened;
    int changes = 0;
    std::optional<Scenes> scenes;
    Observable::Subscription subscription;
    StatusReport report{.version = "1", .status = Status::wifi(), .reason = "no wired link"};

    ScenesTest() {
        setenv("TZ", "UTC", 1);
        tzset();
        scenes.emplace(Scenes::Services{status, admin, modifiers, outside.desktop, actor, strings,
                                        [this] { return now(); },
                                        [this](const std::string &id) { opened += id + ";"; }});
        subscription = scenes->observe([this] { ++changes; });
        report.generatedAt = now();
        outside.desktop.change(LocationStatus::authorized);
    }
    ~ScenesTest() override {
        // What is under way ends.
        scenes.reset();
        outside.interfaces.clear();
        for (const auto &end : std::exchange(outside.probes, {}))
            end(ProbeOutcome::timeout());
        actor.run();
        std::filesystem::remove_all(root);
    }

    static StringTable table(const std::string &language) {
        std::ifstream file(RESOURCES_FOLDER "/" + language + ".lproj/Localizable.strings");
        return StringTable::parse(std::string(std::istreambuf_iterator<char>(file), {})).value();
    }
    Date now() { return Date(outside.now().sinceEpoch); }
    void refresh(bool isDaemonThere = true) {
        outside.answers[0] = isDaemonThere ? TarnXPCCoding::encoder().encode(report) : "";
        status.refresh();
        actor.runDue();
    }
    void refresh(Status shown) {
        report.status = std::move(shown);
        refresh();
    }
    std::string read(const std::string &id, int columns = 100) {
        return renderText(scenes->window(id).content, columns);
    }
    /// The lines of the menu's part of that number, as lines divide it.
    std::string part(std::size_t number) {
        auto rest = read("menu");
        for (; number > 0 && rest.find("─") != rest.npos; --number)
            rest.erase(0, rest.find('\n', rest.find("─")) + 1);
        return rest.substr(0, rest.find("─"));
    }
    /// What stands below the application's name.
    std::string head() { return part(0).substr(part(0).find('\n') + 1); }

    template <class Kind> static const Kind *find(const View &view, const std::string &id) {
        return std::visit(
            [&]<class Node>(const Node &node) -> const Kind * {
                if constexpr (requires { node.children; }) {
                    for (const auto &child : node.children)
                        if (const auto *found = find<Kind>(child, id))
                            return found;
                } else if constexpr (std::is_same_v<Node, Kind>) {
                    if constexpr (requires { node.id; })
                        return node.id == id ? &node : nullptr;
                    return &node;
                }
                return nullptr;
            },
            view.node);
    }
    template <class Kind = view::Button> Kind control(const std::string &window, const std::string &id) {
        const auto content = scenes->window(window).content;
        const auto *found = find<Kind>(content, id);
        return found ? *found : throw std::runtime_error("no " + id);
    }
    void press(const std::string &window, const std::string &id) {
        control(window, id).action();
        actor.runDue();
    }
    void offerUpdate(const std::string &more = "") {
        const std::string manifest =
            R"({"version":"2.0.3","minOS":"13","published":"","build":2,"url":"https://feed.example/package",)"
            R"("sha256":"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad")" +
            more + "}";
        outside.http.answers[feedURL] = {manifest};
        outside.http.answers[feedURL + ".sig"] = {key.sign(manifest)};
        outside.http.answers["https://feed.example/package"] = {.body = "abc", .pieceSize = 1, .pause = 1s};
        press("settings", "settings.updates.checkNow");
    }
};

TEST_F(ScenesTest, HeadSaysWhereTheTrafficGoes) {
    const std::vector<std::pair<Status, std::string>> expected = {
        {Status::wired("en7", "USB\nLAN"), "Wired\nConnected through USB\\u000aLAN (en7).\n"},
        {Status::wiredPending("en7", "LAN"),
         "Checking the wired connection\nLAN (en7) has an address; waiting for its name server to answer.\n"},
        {Status::wiredUnreachable("en7", "LAN"),
         "!  Wired connection not working\n   No name server answers through LAN (en7). Wi-Fi stays on.\n"},
        {Status::wifi(), "Wi-Fi\nNo usable wired connection. Wi-Fi carries the traffic.\n"},
        {Status::offline(), "!  Offline\n   Neither a wired connection nor Wi-Fi can be used.\n"},
        {Status::wifiOff(),
         "Wi-Fi switched off\nYou switched Wi-Fi off, and there is no wired connection.\n"},
        {Status::paused(), "!  Paused\n   An administrator has paused the protection. Wi-Fi stays on.\n"},
        {Status::disabled(),
         "!  Switched off\n   The protection is switched off by its configuration. Wi-Fi stays on.\n"}};
    // Neither matters but for the one status that it belongs to.
    outside.desktop.change(LocationStatus::authorized);
    for (const auto &[shown, text] : expected) {
        report.pausedUntil = shown.kind == Status::Kind::paused ? now() : now() + 5min;
        outside.details = {shown.kind == Status::Kind::wifi
                               ? std::nullopt
                               : std::optional<WiFiDetails>({"cafe", {}, 6, {}})};
        refresh(shown);
        EXPECT_EQ(head(), text);
        EXPECT_EQ(scenes->menuBarItem().name, StatusPresentation(shown).symbolName);
        EXPECT_THAT(scenes->menuBarItem().label, StartsWith("Tarnlink"));
        EXPECT_EQ(scenes->menuBarItem().tone == view::Tone::warning, text.starts_with('!'));
    }
}

TEST_F(ScenesTest, PauseEndsByTheClockAlone) {
    report.pausedUntil = now() + 5min;
    refresh(Status::paused());
    EXPECT_THAT(head(), HasSubstr("paused the protection until 14:05."));
    changes = 0, actor.advance(5min - 1s);
    EXPECT_EQ(changes, 0);
    actor.advance(1s);
    EXPECT_EQ(changes, 1);
    EXPECT_THAT(head(), HasSubstr("paused the protection. "));
}

TEST_F(ScenesTest, WiFiSaysItsNameWhereThatIsAllowed) {
    using Band = WiFiDetails::Band;
    const auto line = [&](std::optional<WiFiDetails> details, LocationStatus permission) {
        outside.details = std::move(details), outside.desktop.change(permission);
        refresh(Status::wifi());
        return head().substr(head().find("traffic.\n") + 9);
    };
    const auto given = LocationStatus::authorized, open = LocationStatus::notDetermined;
    const std::string ask(79, ' '), hint = "The system reveals the name of the Wi-Fi network only to "
                                           "applications that may know your location.\n" +
                                           std::string(81, ' ') + "[Location Settings]\n";
    EXPECT_EQ(line({{"cafe", Band::ghz2_4, 11, -50}}, given), "cafe · 2.4 GHz · Channel 11\n");
    EXPECT_EQ(line({{"ca\u202Efe", Band::ghz6, {}, {}}}, open), "ca\\u202efe · 6 GHz\n");
    EXPECT_EQ(line({{{}, Band::ghz5, {}, {}}}, open),
              "Name unknown · 5 GHz\n" + ask + "  [Show Network Name]\n");
    EXPECT_EQ(line(std::nullopt, open), ask + "  [Show Network Name]\n");
    press("menu", "wifi.requestLocation");
    EXPECT_EQ(outside.desktop.calls, "activate;ask;");
    for (const auto refused : {LocationStatus::denied, LocationStatus::restricted}) {
        EXPECT_EQ(line({WiFiDetails()}, refused), "Name unknown\n" + hint);
        refresh(Status::wired("en7", "LAN"));
        EXPECT_EQ(head(), "Wired\nConnected through LAN (en7).\n");
    }
    refresh(Status::wifi()), press("menu", "wifi.openLocationSettings");
    EXPECT_THAT(outside.desktop.calls, EndsWith("security?Privacy_LocationServices;"));
}

TEST_F(ScenesTest, WhatIsSaidOfOneThingHangsOnNoOther) {
    const auto expect = [&](const std::string &words, bool isSaid) {
        EXPECT_EQ(read("menu", 200).find(words) != std::string::npos, isSaid) << words;
    };
    InterfaceSnapshot air;
    air.device = "en0", air.kind = InterfaceKind::wifi, air.serviceID = air.serviceName = "A";
    air.linkActive = true, air.ipv4 = {"10.0.0.2"}, air.ipv4Router = "10.0.0.1";
    using Details = std::optional<WiFiDetails>;
    for (int kind = 0; kind <= static_cast<int>(Status::Kind::disabled); ++kind)
        for (const bool isDaemonThere : {true, false})
            for (const bool isPaused : {true, false})
                for (const std::string tunnel : {"", "10.8.0.2"})
                    for (const auto &details :
                         {Details(), Details(WiFiDetails()), Details({"cafe", {}, {}, {}})})
                        for (const auto permission :
                             {LocationStatus::notDetermined, LocationStatus::denied,
                              LocationStatus::restricted, LocationStatus::authorized}) {
                            report.status = {static_cast<Status::Kind>(kind), "en7", "LAN"};
                            report.pausedUntil = isPaused ? std::optional(now() + 1h) : std::nullopt;
                            report.vpnDevice = tunnel.empty() ? std::nullopt : std::optional("utun3");
                            report.vpnAddress = tunnel;
                            outside.addresses.clear();
                            if (!tunnel.empty())
                                outside.addresses = {{"utun3", false, tunnel}};
                            // Without the daemon the machine itself decides between two of them.
                            const bool isAir = kind == static_cast<int>(Status::Kind::wifi);
                            outside.interfaces = isAir ? std::vector{air} : std::vector<InterfaceSnapshot>();
                            outside.details = details, outside.desktop.change(permission);
                            refresh(isDaemonThere);
                            SCOPED_TRACE(testing::Message() << kind << isDaemonThere << isPaused << tunnel
                                                            << static_cast<int>(permission));
                            const auto seen = status.status().kind;
                            ASSERT_EQ(seen, isDaemonThere ? report.status.kind
                                            : isAir       ? Status::Kind::wifi
                                                          : Status::Kind::offline);
                            const bool isRefused = permission == LocationStatus::denied ||
                                                   permission == LocationStatus::restricted;
                            expect(strings.localized(StatusPresentation(status.status()).titleKey), true);
                            expect("until 15:00", isDaemonThere && isPaused && seen == Status::Kind::paused);
                            expect("VPN active: utun3 (10.8.0.2)\n", !tunnel.empty());
                            expect("cafe\n", isAir && details && details->ssid);
                            expect("Name unknown\n", isAir && details && !details->ssid);
                            expect("[Location Settings]", isAir && isRefused);
                            expect("[Show Network Name]", isAir && !(details && details->ssid) &&
                                                              permission == LocationStatus::notDetermined);
                            expect("does not answer", !isDaemonThere);
                            expect("Source: Tarnlink service", isDaemonThere);
                        }
}

TEST_F(ScenesTest, InterfacesSayTheirLinkAndAddress) {
    report.vpnDevice = "utun3";
    report.interfaces = {{"en7", "USB LAN", InterfaceKind::wired, true, "10.48.11.168"},
                         {"en0", "", InterfaceKind::wifi, true, "2001:db8::2"},
                         {"en5", "en5", InterfaceKind::wired, true, "fe80::1"},
                         {"en3", "Dock", InterfaceKind::wired, false, {}}};
    refresh();
    const auto row = [](const std::string &left, const std::string &right) {
        // The dot and the dash are one column each, and three bytes.
        return left + std::string(104 - (right == "–" ? 0 : 2) - left.size() - right.size(), ' ') + right +
               "\n";
    };
    EXPECT_THAT(head(), EndsWith("VPN active: utun3\n"));
    EXPECT_EQ(part(1), row("●  USB LAN  en7", "10.48.11.168") + row("●  en0", "2001:db8::2") +
                           row("◐  en5", "–") + row("○  Dock  en3", "–"));
    report.vpnAddress = "10.8.0.2", report.interfaces.clear(), refresh();
    EXPECT_THAT(head(), EndsWith("VPN active: utun3 (10.8.0.2)\n"));
    EXPECT_EQ(part(1), "No network interfaces\n");
}

TEST_F(ScenesTest, OptionKeyShowsMoreWithoutTheDaemon) {
    InterfaceSnapshot wired;
    wired.device = "en7", wired.kind = InterfaceKind::wired, wired.serviceID = "A", wired.serviceName = "LAN";
    wired.linkActive = wired.hasDHCPLease = true, wired.ipv4 = {"10.0.0.2"}, wired.dnsServers = {"10.0.0.53"};
    outside.interfaces = {wired};
    refresh(false);
    EXPECT_THAT(
        head(),
        EndsWith("\nThe Tarnlink service does not answer; what is shown here was found out without it.\n"));
    EXPECT_THAT(part(2), Not(HasSubstr("old")));
    outside.desktop.flags(true), outside.probes.front()(ProbeOutcome::timeout()), actor.advance(63s);
    EXPECT_THAT(head(), EndsWith("\nThe Tarnlink daemon is not available.\n"));
    EXPECT_THAT(part(1), EndsWith("\n   Name server silent, attempts in a row: 1\n"));
    EXPECT_THAT(part(2), StartsWith(status.reason() + "\n" + status.describe() + "\n"));
    EXPECT_THAT(part(2), EndsWith("\nStatus of 14:00:02, 1 min old\n"));
    outside.probes.back()(ProbeOutcome::reachable(0.1)), actor.runDue();
    EXPECT_THAT(part(1), EndsWith("\n   Name server answers\n"));
    outside.interfaces[0].dnsServers = {}, refresh(false), refresh(false);
    outside.unreadable = "no session", refresh(false);
    EXPECT_THAT(head(), EndsWith("\nThe network could not be read: no session\n"));
    outside.desktop.resignedKey(), refresh();
    EXPECT_THAT(read("menu"), Not(HasSubstr("Name server")));
}

TEST_F(ScenesTest, ButtonsDoWhatTheySay) {
    refresh(), changes = 0, report.reason = "another", report.wifiOn = false, outside.calls.clear();
    outside.answers[0] = TarnXPCCoding::encoder().encode(report), press("menu", "menu.button.refresh");
    EXPECT_EQ(outside.calls, "0");
    EXPECT_EQ(changes, 1) << "one call for all that changed together";
    EXPECT_THAT(part(3), StartsWith("Source: Tarnlink service "));
    for (const auto &button : scenes->plainMenu())
        button.action();
    EXPECT_EQ(opened, "menu;admin;settings;help;");
    EXPECT_EQ(outside.desktop.calls, "quit;");
    for (const auto &[window, id] :
         {std::pair("menu", "menu.button.copyDiagnostics"), {"help", "help.diag.button"}}) {
        outside.desktop.calls.clear(), press(window, id), actor.advance(1s);
        EXPECT_EQ(control(window, id).title, "Copied");
        press(window, id), actor.advance(2s - 1ns);
        EXPECT_EQ(control(window, id).title, "Copied") << "once more pressed, two seconds more";
        changes = 0, actor.advance(1ns);
        EXPECT_EQ(changes, 1);
        EXPECT_EQ(control(window, id).title, "Copy Diagnostics");
        EXPECT_THAT(outside.desktop.calls, StartsWith("copy TarnlinkMenu "));
    }
    control<view::Link>("help", "help.support.link").action();
    EXPECT_THAT(outside.desktop.calls, EndsWith(".example/support/tarnlink/en/;"));
    const auto left = scenes->plainMenu();
    const auto copy = control("menu", "menu.button.copyDiagnostics");
    copy.action(), subscription.reset(), scenes.reset(), actor.advance(1h);
    left.back().action(), copy.action();
}

TEST_F(ScenesTest, UpdateTellsHowFarItIs) {
    const auto ends = [](const std::string &left, const std::string &right) {
        const auto bytes = 100 + left.size() - (left.find("…") == left.npos ? left.size() : left.size() - 2);
        return left + std::string(bytes - left.size() - right.size(), ' ') + right + "\n";
    };
    // Both windows say the same of it.
    const auto expect = [&](const std::string &text) {
        EXPECT_EQ(part(2), text);
        EXPECT_THAT(read("settings"), EndsWith("\n" + text));
    };
    refresh();
    EXPECT_THAT(read("settings"), EndsWith(ends("Never checked", "[Check Now]")));
    press("settings", "settings.updates.checkNow");
    expect("The check for updates failed. Please try again later.\n" + ends("", "[Close]"));
    press("menu", "update.dismiss");
    EXPECT_THAT(part(2), StartsWith("[Pause]")) << "nothing to tell";

    offerUpdate(R"(,"notes":"https://support.veltrion.example/notes")");
    const auto offer = "Version 2.0.3 is available.\n" +
                       ends("What is new <https://support.veltrion.example/notes>", "[Later]  [Install]");
    expect(offer);
    EXPECT_THAT(read("settings"), HasSubstr(ends("Last check: 14:00", "[Check Now]")));
    auto &package = outside.http.answers["https://feed.example/package"];
    package.body = "abd", press("menu", "update.install"), actor.advance(2s);
    const auto loading = ends("Downloading version 2.0.3 …", "[Cancel]");
    expect(loading + "[~~~~~~~~~~~~~~~~~~~~]\n");
    EXPECT_THAT(read("settings"), HasSubstr("[-Check Now-]"));
    actor.advance(2s);
    expect("The download is damaged or not the vendor's. It was deleted.\n" + ends("", "[Close]"));
    press("menu", "update.dismiss"), expect(offer);
    package.result = HTTPError{"NSURLErrorDomain", -1202, "words"};
    press("menu", "update.install"), actor.advance(4s);
    expect("The update could not be downloaded: the server's certificate is not trusted.\n" +
           ends("", "[Close]"));

    offerUpdate(R"(,"size":3)");
    press("menu", "update.install"), actor.advance(2s);
    expect(loading + "[#############-------] 66 %\n");
    EXPECT_EQ(control<view::Progress>("settings", "bar").width, 100);
    EXPECT_EQ(control<view::Progress>("menu", "bar").width, std::nullopt);
    press("menu", "update.cancel");
    EXPECT_THAT(part(2), StartsWith("[Pause]"));
    offerUpdate(), outside.answers[7] = TarnXPCCoding::encoder().encode(UpdateResult{true, "accepted"});
    press("menu", "update.install"), actor.advance(4s);
    expect(ends("Installing version 2.0.3 …", "[Close]") + "[~~~~~~~~~~~~~~~~~~~~]\n");
    outside.answers[8] = TarnXPCCoding::encoder().encode(UpdateResult{true, "installed"}), actor.advance(10s);
    EXPECT_THAT(part(2), StartsWith("Version 2.0.3 is in place. Quit Tarnlink and open it again to use it."));
    EXPECT_THAT(part(2), HasSubstr("[Close]  [Quit]\n"));
}

TEST_F(ScenesTest, SettingsMoveOnlyWithTheDaemon) {
    const std::string notice = "The Tarnlink service does not answer. Until it does";
    const auto isOn = [&](const char *id) { return control<view::Toggle>("settings", id).isOn; };
    const auto change = [&](const char *id, bool on) {
        control<view::Toggle>("settings", id).changed(on), actor.runDue();
    };
    refresh(false);
    for (const char *id : {"settings.tethering.title", "settings.tetheringDNS.title"})
        EXPECT_FALSE(control<view::Toggle>("settings", id).isEnabled);
    EXPECT_THAT(read("settings"), HasSubstr("\n[-x-] Keep a phone's name server"));
    EXPECT_THAT(read("settings"), HasSubstr("\n" + notice));
    refresh();
    EXPECT_THAT(read("settings"), Not(HasSubstr(notice)));
    EXPECT_THAT(read("settings"), StartsWith("[ ] Keep a phone's connection"));
    outside.answers[4] = TarnXPCCoding::encoder().encode(SettingResult{false, "managed"});
    change("settings.tethering.title", true);
    EXPECT_FALSE(isOn("settings.tethering.title"));
    EXPECT_THAT(read("settings"), HasSubstr("\nThe setting was not changed (managed).\n"));
    change("settings.tetheringDNS.title", false);
    EXPECT_TRUE(isOn("settings.tetheringDNS.title"));
    EXPECT_THAT(read("settings"), HasSubstr("\n" + notice)) << "the call itself failed";
    EXPECT_THAT(read("settings"), Not(HasSubstr("not changed")));
    EXPECT_EQ(outside.calls, "00405");

    outside.preferences.keys = {"TetheringWhileWired"}, refresh();
    EXPECT_FALSE(control<view::Toggle>("settings", "settings.tethering.title").isEnabled);
    EXPECT_TRUE(control<view::Toggle>("settings", "settings.tetheringDNS.title").isEnabled);
    EXPECT_THAT(read("settings", 200), StartsWith("[- -] Keep a phone's connection"));
    EXPECT_THAT(read("settings", 200), HasSubstr("connection works. Set by your organisation.\n"));

    change("settings.updates.title", false);
    EXPECT_FALSE(isOn("settings.updates.title"));
    report.updateCheckAllowed = false, refresh();
    EXPECT_THROW(isOn("settings.updates.title"), std::runtime_error);
    EXPECT_THAT(read("settings"), HasSubstr("\nYour organisation has switched this off."));
}

TEST_F(ScenesTest, PausePanelFollowsThePause) {
    refresh();
    control<view::Picker>("admin", "admin.duration.label").changed(60);
    EXPECT_THAT(read("admin"), HasSubstr("Length\n( ) 15 minutes\n(•) 1 hour\n( ) 4 hours\n"));
    EXPECT_TRUE(control("admin", "admin.pauseAsAdmin").isDefault);
    control("admin", "admin.pauseAsAdmin").action();
    EXPECT_THAT(read("admin"), HasSubstr("(-•-) 1 hour\n"));
    EXPECT_FALSE(control("admin", "admin.pauseAsAdmin").isEnabled);
    outside.answers[1] = TarnXPCCoding::encoder().encode(PauseResult{true, "granted", "", now() + 11h, 660});
    actor.runDue();
    EXPECT_THAT(read("admin"), EndsWith("\nThe protection is paused for 660 min.\n"));
    EXPECT_THAT(read("admin"), HasSubstr("\nPaused until 2026-11-22 01:00 "));
    actor.advance(10h + 1min);
    EXPECT_THAT(read("admin"), HasSubstr("\nPaused until 01:00 "));
    press("admin", "admin.resume");
    EXPECT_THAT(read("admin"), HasSubstr("daemon is not available"));
    changes = 0, actor.advance(1h);
    EXPECT_EQ(changes, 1);
    EXPECT_NO_THROW(control("admin", "admin.pauseAsAdmin"));
    report.pausedUntil = now() + 1h, outside.answers[0] = TarnXPCCoding::encoder().encode(report);
    scenes->open("admin"), actor.runDue();
    EXPECT_NO_THROW(control("admin", "admin.resume")) << "asked when the panel opens";
}

TEST_F(ScenesTest, WindowsKeepTheirSizesAndNames) {
    strings = table("de");
    std::string text;
    for (const char *id : {"menu", "admin", "settings", "help"}) {
        const auto window = scenes->window(id);
        text += window.id + " " + window.title + " " + std::to_string(window.width) + " " +
                std::to_string(window.height.value_or(0)) + ";";
    }
    EXPECT_EQ(text, "menu Tarnlink 340 0;admin Schutz pausieren 380 0;settings Einstellungen 400 0;"
                    "help Hilfe 460 520;");
    EXPECT_THAT(read("help"), StartsWith("Tarnlink"));
    EXPECT_THAT(read("help"), HasSubstr("\n3.  Hilft auch das nicht"));
}

TEST(TextRenderer, FitsIntoEveryWidth) {
    using namespace view;
    const View tree = Column{{Row{{Dot{Color::yellow, ""}, Text{"a long name"}, Spacer{}, Button{"", "Go"}}},
                              Text{"x\x1b[2J ünbreakable\nnext"},
                              Row{{Symbol{"s"}, Toggle{"", "On", "and more", true}, Spacer{}}},
                              Progress{0.5, ""}, Progress{{}, ""}, Separator{}}};
    EXPECT_EQ(renderText(tree, 24), "◐  a long name      [Go]\nx\\u001b[2J ünbreakable\nnext\n[x] On\n"
                                    "    and more\n[##########----------] 50 %\n[~~~~~~~~~~~~~~~~~~~~]\n"
                                    "────────────────────────\n");
    EXPECT_EQ(renderText(Text{"übung"}, 2), "üb\nun\ng\n");
    const View pair = Row{{Text{"one two three"}, Text{"four five six"}}};
    EXPECT_EQ(renderText(pair, 30), "one two three  four five six\n");
    EXPECT_EQ(renderText(pair, 26), "one two       four five\nthree         six\n");
    EXPECT_EQ(renderText(pair, 14), "one two three\nfour five six\n");
    for (const int columns : {-1, 0, 1, 2, 7})
        EXPECT_THAT(renderText(tree, columns), HasSubstr("Go")) << columns;
}

TEST_F(ScenesTest, SettingsSetUpWhatTheSystemStarts) {
    FakeStartup system;
    FakeDesktop windows;
    StartupModel startup{{system, system.loginItem, windows, outside}};
    scenes.emplace(Scenes::Services{status, admin, modifiers, outside.desktop, actor, strings,
                                    [this] { return now(); }, [](const std::string &) {}, &startup});
    EXPECT_THAT(read("settings"), Not(HasSubstr("Open at login"))) << "not read yet";
    scenes->open("settings"), refresh();
    EXPECT_THAT(read("settings"), Not(HasSubstr("not set up"))) << "the daemon answers";
    refresh(false);
    press("settings", "settings.service.register");
    system.loginItem.becomes = RegistrationState::requiresApproval;
    control<view::Toggle>("settings", "settings.login.title").changed(true), actor.runDue();
    press("settings", "allowLogin");
    system.daemon.is = RegistrationState::requiresApproval, windows.becameKey(), actor.runDue();
    press("settings", "allowService");
    EXPECT_EQ(system.daemon.calls + system.loginItem.calls, "on;settings;settings;on;");
    scenes.reset();
}

} // namespace
} // namespace tarn
