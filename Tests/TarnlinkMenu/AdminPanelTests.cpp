// The pause panel in virtual time.

#include "Support/FakeDaemon.h"
#include "Support/ManualActor.h"
#include "Support/Words.h"
#include "TarnlinkMenu/AdminPanelModel.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

using Kind = AdminAuthorizationError::Kind;

/// A person who does as told.
struct Prompt final : Authorizing, WorkQueue {
    explicit Prompt(MainActor &main) : actor(main) {}
    MainActor &actor;
    std::string mood;

    std::string rightName() const override { return {}; }
    void ensureRightExists() override {}
    bool verify(const std::string &) override { return false; }
    std::string acquireInteractively() override {
        if (mood == "cancels")
            throw AdminAuthorizationError(Kind::cancelled);
        if (mood == "fails")
            throw AdminAuthorizationError(Kind::denied, -60005, "no");
        if (mood == "breaks")
            throw std::runtime_error("no agent");
        return "FORM";
    }
    void run(Job work, Job done) override {
        actor.post([work, done] { work(), done(); });
    }
};

TEST(AdminPanelModel, FollowsTheTable) {
    // "^" is the end of a pause, "{}" a report with it; "!" warns, "until" is a pause, "+" does not let the
    // main thread run before.
    std::istringstream table(
        R"(resume; answer resume {"granted":true,"code":"resumed"} > pause.resumed|resume;
resume; answer resume {"granted":false,"code":"notPaused"} > pause.notPaused|resume;
resume; answer resume {"granted":false,"code":"denied.admin"} > !pause.denied.admin|resume;
resume; answer resume {"granted":false,"code":"denied.noCredential"} > !pause.denied.noCredential|resume;
resume; answer resume {"granted":false,"code":"admin","message":"Not %d"} > !Not %d|resume;
resume; answer resume {"granted":true,"code":"granted","argument":14} > For 14 min, 100 %.|resume;
resume; answer resume {"granted":true,"code":"granted"} > For %d min, 100 %.|resume;
resume; answer resume > !The Tarnlink daemon is not available.|resume;
resume; wait 1999; resume; pause > - busy|resume;
resume; wait 2000 > !Timed out after 2.0s waiting for the daemon.|resume;
resume; wait 2000; resume > - busy|resume;resume;
status; answer status {}; resume; answer resume {"granted":true,"code":"resumed"} > pause.resumed|status;resume;
status; answer status {}; resume; answer resume {"granted":false,"code":"notPaused"} > pause.notPaused|status;resume;
status; answer status {}; resume; answer resume {"granted":false,"code":"denied.admin",^} > !pause.denied.admin until|status;resume;
status; answer status {}; resume; answer resume {"granted":false,"code":"denied.admin"} > !pause.denied.admin|status;resume;
pause; +pause; +resume; +minutes 60; answer pause {"granted":true,"code":"granted","argument":15,^} > For 15 min, 100 %. until|pause 900 FORM;
minutes 240; pause; wait 4999; pause > - busy|pause 14400 FORM;
pause; wait 5000; minutes 60; pause; answer pause; answer pause > !The Tarnlink daemon is not available.|pause 900 FORM;pause 3600 FORM;
cancels; pause > admin.cancelled|
fails; pause; cancels; pause > admin.cancelled|
fails; pause > !Authentifizierung fehlgeschlagen (-60005): no|
breaks; pause > !no agent|
status; answer status {}; status; answer status > - until|status;status;
status; answer status {}; status; wait 1500; answer status {"status":{"wifi":{}}} > - until|status;status;
status; answer status {}; status; wait 1499; answer status {"status":{"wifi":{}}} > -|status;status;
pause; +go > gone|
pause; go; answer pause > gone|pause 900 FORM;
resume; go; answer resume {"granted":true} > gone|resume;
status; go; answer status {} > gone|status;)");
    const auto strings = *StringTable::parse(R"("pause.granted" = "For %d min, 100 %%.";)");
    for (std::string row; std::getline(table, row);) {
        SCOPED_TRACE(row);
        ManualActor actor;
        FakeDaemon daemon;
        TarnXPCClient client(daemon, actor);
        Prompt prompt(actor);
        auto model = std::make_unique<AdminPanelModel>(
            AdminPanelModel::Services{client, prompt, prompt, actor, strings});
        const auto step = [&](const std::string &what) {
            const auto list = words(what + " - -");
            auto bytes = list[2];
            if (list[0] == "answer" && list[2] != "")
                bytes = what.substr(what.find('{'));
            if (bytes == "{}")
                bytes = R"({"status":{"paused":{}},^})";
            if (const auto at = bytes.find('^'); at != std::string::npos)
                bytes.replace(at, 1, R"("pausedUntil":"2030-01-01T00:00:00Z")");
            list[0] == "pause"     ? model->pauseAsAdmin()
            : list[0] == "resume"  ? model->resume()
            : list[0] == "status"  ? model->refreshStatus()
            : list[0] == "minutes" ? model->setSelectedMinutes(std::stol(list[1]))
            : list[0] == "wait"    ? actor.advance(std::chrono::milliseconds(std::stol(list[1])))
            : list[0] == "answer"  ? daemon.answer(list[1], bytes)
            : list[0] == "go"      ? model.reset()
                                   : void(prompt.mood = list[0]);
        };
        for (const auto &what : rows(sides(row).first)) {
            if (!what.starts_with('+'))
                actor.runDue();
            step(what.substr(what.starts_with('+') ? 1 : 0));
        }
        actor.runDue();
        const auto shown = model ? (model->messageIsWarning() && model->message() ? "!" : "") +
                                       model->message().value_or("-") +
                                       (model->pausedUntil() ? " until" : "") + (model->busy() ? " busy" : "")
                                 : "gone";
        EXPECT_EQ(shown + "|" + daemon.calls, sides(row).second);
        model.reset();
        actor.run();
    }
}

} // namespace
} // namespace tarn
