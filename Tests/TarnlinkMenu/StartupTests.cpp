// What the system starts by itself, as the settings tell and change it.

#include "Support/FakeDesktop.h"
#include "Support/FakeStartup.h"
#include "TarnlinkMenu/Previews.h"
#include "TarnlinkMenu/Scenes.h"
#include "TarnlinkMenu/StartupModel.h"

#include <fstream>
#include <gmock/gmock.h>
#include <list>

namespace tarn {
namespace {

using enum RegistrationState;

struct Startup : testing::Test, WorkQueue {
    FakeStartup system;
    FakeDesktop desktop;
    std::list<std::pair<Job, Job>> jobs;
    std::optional<StartupModel> model{std::in_place,
                                      StartupModel::Services{system, system.loginItem, desktop, *this}};

    void run(Job work, Job done) override { jobs.emplace_back(std::move(work), std::move(done)); }
    void finish() {
        for (; !jobs.empty(); jobs.pop_front())
            jobs.front().first(), jobs.front().second();
    }
};

TEST_F(Startup, StatesAreReadWhenTheyAreLookedAtAndNotOtherwise) {
    EXPECT_FALSE(desktop.becameKey);
    model->watch(), finish();
    EXPECT_EQ(model->daemon(), notRegistered);
    system.daemon.is = enabled, system.loginItem.is = std::nullopt;
    EXPECT_TRUE(jobs.empty()) << "nothing asks by itself";
    desktop.becameKey(), desktop.becameKey();
    EXPECT_EQ(jobs.size(), 1U) << "one reading at a time";
    finish();
    EXPECT_EQ(model->daemon(), enabled);
    EXPECT_EQ(model->loginItem(), std::nullopt);
    desktop.becameKey(), model.reset(), finish();
    EXPECT_FALSE(desktop.becameKey);
}

TEST_F(Startup, OnlyWhatDidNotWorkIsAnError) {
    struct Row {
        bool opens;
        RegistrationState becomes;
        bool isDaemonError, isLoginError;
    };
    // Each attempt is refused by the system in words; what counts is what is so afterwards.
    for (auto *item : {&system.daemon, &system.loginItem})
        item->error = "refused";
    for (const auto &[opens, becomes, isDaemonError, isLoginError] : {Row{true, enabled, false, false},
                                                                      {true, requiresApproval, false, false},
                                                                      {true, notFound, true, true},
                                                                      {true, notRegistered, true, true},
                                                                      {false, notRegistered, true, false},
                                                                      {false, enabled, false, true}}) {
        system.daemon.becomes = system.loginItem.becomes = becomes;
        model->registerDaemon(), model->setOpensAtLogin(opens);
        EXPECT_TRUE(model->busy());
        finish();
        EXPECT_EQ(system.loginItem.calls, "") << "the second came while the first was under way";
        model->setOpensAtLogin(opens), finish(), system.loginItem.calls.clear();
        EXPECT_FALSE(model->busy());
        EXPECT_EQ(model->daemonError().has_value(), isDaemonError) << opens << static_cast<int>(becomes);
        EXPECT_EQ(model->loginItemError().has_value(), isLoginError) << opens << static_cast<int>(becomes);
    }
}

TEST(StartupViews, EachStateHasItsWordsAndTheRightButton) {
    for (const char *language : {"en", "de"}) {
        std::ifstream file(std::string(RESOURCES_FOLDER) + "/" + language + ".lproj/Localizable.strings");
        const auto strings =
            StringTable::parse(std::string(std::istreambuf_iterator<char>(file), {})).value();
        const auto say = [&](const std::string &key) { return strings.localized("settings." + key); };
        for (const auto &[scenario, state, help, login] :
             {std::array{"settings", "", "", "[x] "},
              {"settings-unregistered", "notRegistered", "service.register", "[x] "},
              {"settings-not-found", "notFound", "service.register", "[x] "},
              {"settings-uninstalled", "notFound", "", "[x] "},
              {"settings-approval", "requiresApproval", "openSystem", "[ ] "},
              {"settings-command", "command", "", "[ ] "}}) {
            SCOPED_TRACE(std::string(scenario) + " " + language);
            const auto text = renderText(previews::make(scenario, strings)->content, 250);
            EXPECT_THAT(text, testing::HasSubstr(login + say("login.title")));
            for (const std::string key : {"notRegistered", "notFound", "requiresApproval", "command"}) {
                const auto words = say("service." + key);
                const auto found = text.find(words.substr(0, words.find('%')));
                ASSERT_EQ(found != text.npos, key == state) << key;
                const auto line =
                    found == text.npos ? "" : text.substr(found, text.find('\n', found) - found);
                const auto wanted = key == "command" ? "enable --now" : *help ? "[" + say(help) + "]" : "";
                EXPECT_TRUE(line.empty() || line.find(wanted) != line.npos);
                EXPECT_TRUE(line.empty() || (line.find('[') != line.npos) == wanted.starts_with('['));
            }
        }
    }
}

} // namespace
} // namespace tarn
