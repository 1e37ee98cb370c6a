#include "TarnlinkCtl/Controller.h"

#include "Support/ManualActor.h"
#include "Support/Words.h"
#include "TarnSystem/AdminAuthorization.h"
#include "TarnXPC/TarnXPCCoding.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>
#include <sstream>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using Verb = CtlCommand::Verb;

/// A daemon that answers each call with the next of `answers`: bytes, "!" and an error's name, or "" for
/// nothing at all.
class FakeDaemon final : public RemoteConnector, public RemoteConnection {
public:
    explicit FakeDaemon(MainActor &actor) : actor_(actor) {}

    std::deque<std::string> answers;
    std::string calls;

    std::shared_ptr<RemoteConnection> connect(const std::string &, const std::string &) override {
        return {this, [](FakeDaemon *) {}};
    }
    void setInvalidationHandler(Handler) override {}
    void setInterruptionHandler(Handler) override {}
    void resume() override {}
    void invalidate() override {}
    bool invoke(const TarnXPCProtocol::Call &call, Reply reply, ErrorHandler failed) override {
        using namespace TarnXPCProtocol;
        calls += std::array{"status", "pause", "resume", "diagnostics", "wired", "dns"}.at(call.index());
        if (const auto *pause = std::get_if<Pause>(&call))
            calls += std::to_string(std::lround(pause->seconds)) + pause->authorization.value_or("-");
        if (const auto *wired = std::get_if<SetTetheringWhileWired>(&call))
            calls += wired->allow ? "+" : "-";
        if (const auto *dns = std::get_if<SetTetheringDNSFix>(&call))
            calls += dns->enabled ? "+" : "-";
        calls += ";";
        const auto answer = answers.front();
        answers.pop_front();
        if (answer.starts_with("!"))
            actor_.post([=] { failed({answer.substr(1), 0, "no\033[31m way"}); });
        else if (!answer.empty())
            actor_.post([=] { reply(answer); });
        return true;
    }

private:
    MainActor &actor_;
};

struct InlineQueue final : WorkQueue {
    void run(Job work, Job done) override {
        work();
        done();
    }
};

class Ctl : public testing::Test {
protected:
    Ctl() { setenv("TZ", "<+02>-2", 1); }

    /// "STATUS calls|output|complaints"; what is printed after `most` pieces finds nobody.
    std::string run(const std::string &words, std::deque<std::string> answers, int most = 100) {
        ManualActor actor;
        FakeDaemon daemon(actor);
        daemon.answers = std::move(answers);
        if (words.starts_with("pause") && isThere)
            daemon.answers.push_front(R"({"status":{"wifi":{}}})");
        TarnXPCClient client(daemon, actor);
        InlineQueue queue;
        std::string output, complaints;
        Controller controller({client, actor, queue,
                               [&](const std::string &right) {
                                   daemon.calls += right.substr(right.rfind('.') + 1) + "?";
                                   if (authorizing)
                                       throw *authorizing;
                                   return std::string("form");
                               },
                               [] { return *dates::parse("2026-01-02T12:00:00Z") + 400ms; },
                               [&](const std::string &text) {
                                   output += text;
                                   return most-- > 0;
                               },
                               [&](const std::string &line) { complaints += line + ";"; }});
        int status = -1;
        detach(finish(controller, parseCtlCommand(tarn::words(words)), status));
        actor.run();
        return std::to_string(status) + " " + daemon.calls + "|" + output + "|" + complaints;
    }

    std::optional<AdminAuthorizationError> authorizing;
    /// Before a pause.
    bool isThere = true;

private:
    static Task<void> finish(Controller &controller, CtlCommand command, int &status) {
        status = co_await controller.run(command);
    }
};

TEST_F(Ctl, CommandsBecomeCallsAndAnswersBecomeWords) {
    // Words, answer, exit status and calls, output, complaints.
    std::istringstream table(R"_(
pause 15 | {"granted":true,"pausedUntil":"2026-01-02T12:15:00Z"} | 0 status;pause?pause900form; | Paused for 15 minutes, until 14:15.
pause 14.99 | {"granted":true,"pausedUntil":"2026-01-02T12:15:00Z"} | 0 status;pause?pause899form; | Paused for 14.99 minutes, until 14:15.
pause 600 | {"granted":true,"pausedUntil":"2026-01-02T12:15:00Z"} | 0 status;pause?pause36000form; | Paused for 15 minutes, until 14:15.
pause 1440 | {"granted":true,"pausedUntil":"2026-01-03T12:00:00Z"} | 0 status;pause?pause86400form; | Paused for 1440 minutes, until 2026-01-03 14:00.
pause 1 | {"granted":false,"code":"odd","message":"a\u001bb"} | 1 status;pause?pause60form; |  | The pause was refused: odd (a\u001bb)
pause 1 | {"granted":false,"code":"denied.admin"} | 1 status;pause?pause60form; |  | Only an administrator may do that.
resume | {"granted":true,"code":"resumed"} | 0 resume; | The protection is in force again.
resume | {"granted":false,"code":"notPaused"} | 0 resume; | There was no pause.
resume | {"granted":false,"code":"denied.admin"} | 1 resume; |  | Only an administrator may do that.
resume | {"granted":1} | 1 resume; |  | Failed to decode daemon response: granted: not a truth value
set tethering-while-wired on | {"ok":true,"code":"saved"} | 0 wired+; | Tethering while wired is on.
set tethering-dns-fix off | {"ok":false,"code":"managed"} | 1 dns-; |  | Tethering DNS fix is set by management.
status |  | 1 status; |  | Timed out after 1.5s waiting for the daemon.
resume | !x.Error.NotAuthorized | 1 resume; |  | Daemon returned an error: no\u001b[31m way
status | !org.freedesktop.DBus.Error.ServiceUnknown | 3 status; |  | The Tarnlink daemon is not available.
)_");
    std::string line;
    for (std::getline(table, line); std::getline(table, line);) {
        std::vector<std::string> cells;
        for (std::size_t from = 0, end = 0; end != line.npos; from = end + 3) {
            end = line.find(" | ", from);
            cells.push_back(line.substr(from, end - from));
        }
        cells.resize(5);
        EXPECT_EQ(run(cells[0], {cells[1]}), cells[2] + "|" + cells[3] + (cells[3].empty() ? "" : "\n") +
                                                 "|" + cells[4] + (cells[4].empty() ? "" : ";"))
            << line;
    }
    const std::string text = "State:\n  \033]0;x\nHistory:\n  one\n  two";
    EXPECT_EQ(run("diagnostics", {text}), "0 diagnostics;|State:\n  \\u001b]0;x\nHistory:\n  one\n  two\n|");
    EXPECT_EQ(run("history", {text}), "0 diagnostics;|one\ntwo\n|");
    EXPECT_EQ(run("history", {text}, 0).substr(0, 2), "1 ") << "nobody reads";
}

TEST_F(Ctl, WithoutAnAuthorizationOnlyTheDaemonsRefusalIsTold) {
    using Error = AdminAuthorizationError;
    authorizing = Error(Error::Kind::denied, AuthorizationStatus::interactionNotAllowed);
    EXPECT_EQ(
        run("pause 2", {R"({"granted":false,"code":"denied.noCredential"})"}),
        "1 status;pause?pause120-;||An administrator has to agree to that, and nobody can be asked here.;");
    EXPECT_EQ(run("resume", {R"({"granted":false,"code":"denied.noCredential"})"}),
              "1 resume;manage?||An administrator has to agree to that, and nobody can be asked here.;");
    authorizing = Error(Error::Kind::cancelled);
    EXPECT_EQ(run("pause 2", {}), "1 status;pause?||" + authorizing->description() + ";");
    isThere = false;
    EXPECT_EQ(run("pause 2", {"!org.freedesktop.DBus.Error.ServiceUnknown"}),
              "3 status;||The Tarnlink daemon is not available.;")
        << "before anybody is asked";
}

TEST_F(Ctl, WhoeverMayAuthenticateIsAskedOnce) {
    const std::string pause = R"({"granted":false,"code":"denied.noCredential"})";
    const std::string setting = R"({"ok":false,"code":"denied.noCredential"})";
    const std::string noDiagnostics = "!com.veltrion.tarnlink.daemon.Error.NotAuthorized";
    EXPECT_EQ(run("resume", {pause, R"({"granted":true,"code":"resumed"})"}),
              "0 resume;manage?resume;|The protection is in force again.\n|");
    EXPECT_EQ(run("set tethering-dns-fix on", {setting, R"({"ok":true,"code":"saved"})"}),
              "0 dns+;manage?dns+;|Tethering DNS fix is on.\n|");
    EXPECT_EQ(run("history", {noDiagnostics, "History:\n  one"}), "0 diagnostics;manage?diagnostics;|one\n|");
    EXPECT_EQ(run("history", {noDiagnostics, noDiagnostics}).substr(0, 34),
              "1 diagnostics;manage?diagnostics;|");
}

TEST_F(Ctl, WatchingTellsChangesAndTheDaemonsGoingAndComing) {
    const auto report = [](const std::string &state, const std::string &second) {
        return R"({"status":{")" + state + R"(":{}},"generatedAt":"2026-01-02T12:00:0)" + second + R"(Z"})";
    };
    const auto line = [&](const std::string &state, const std::string &second) {
        return TarnXPCCoding::encoder().encode(
                   TarnXPCCoding::decoder().decode<StatusReport>(report(state, second))) +
               "\n";
    };
    const std::string gone = "!org.freedesktop.DBus.Error.ServiceUnknown";
    EXPECT_EQ(run("status --json --watch",
                  {report("wifi", "1"), report("wifi", "2"), gone, gone, report("wifi", "5"),
                   report("offline", "6"), report("wifi", "7")},
                  2),
              "1 status;status;status;status;status;status;status;|" + line("wifi", "1") +
                  line("offline", "6") + line("wifi", "7") +
                  "|The Tarnlink daemon is not available.;The daemon answers again.;"
                  "the answer could not be written;");
}

TEST_F(Ctl, TheReportIsForPeople) {
    const auto report = R"({"status":{"wired":{"device":"eth0","name":"Off\u001bice"}},"reason":"verified",
        "wifiOn":false,"pausedUntil":"2026-01-02T12:01:30Z","vpnDevice":"tun0","interfaces":[
        {"device":"eth0","serviceName":"B\u00fcro","kind":"wired","linkActive":true,"address":"192.0.2.2"},
        {"device":"wlan0","serviceName":"Wi-Fi","kind":"wifi","linkActive":false}]})";
    EXPECT_EQ(run("status", {report}), R"(0 status;|Wired: eth0 (Off\u001bice)
verified

Pause                  until 14:01, 2 minutes left
Wi-Fi                  off
VPN                    tun0
Protection             on
Tethering while wired  off
Tethering DNS fix      on

DEVICE  KIND   LINK  ADDRESS    SERVICE
eth0    wired  up    192.0.2.2  Büro
wlan0   wifi   down  -          Wi-Fi
|)");
}

TEST(CtlCommandLine, IsReadOrRefused) {
    EXPECT_EQ(parseCtlCommand(words("status --watch --json")),
              (CtlCommand{Verb::status, true, true, 0, false}));
    EXPECT_EQ(parseCtlCommand(words("pause 0.5")), (CtlCommand{Verb::pause, false, false, 0.5, false}));
    EXPECT_EQ(parseCtlCommand(words("pause --help")), CtlCommand());
    for (const auto &line : rows(
             "; stat; --json; --json status; status --loud; status now; resume --json; pause; pause 0; pause "
             "0.0; "
             "pause -1; pause +1; pause 1,5; pause 1.5.; pause .5; pause 1.2.3; pause 1e3; pause nan; pause "
             "5 6; "
             "set; set tethering-dns-fix; set tethering-dns-fix yes; set x on; set tethering-dns-fix on off; "
             "status status"))
        EXPECT_THROW(parseCtlCommand(words(line)), CtlUsageError) << line;
    EXPECT_THROW(parseCtlCommand({"pause", std::string(400, '9')}), CtlUsageError);
}

} // namespace
} // namespace tarn
