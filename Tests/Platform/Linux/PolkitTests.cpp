// A real polkitd with the policy that is installed, asked by processes of several users.

#include "Platform/Linux/PolkitAuthorizations.h"
#include "Platform/Linux/TerminalAgent.h"
#include "Support/PolkitLab.h"
#include "TarnSystem/AdminAuthorization.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>

namespace tarn {
namespace {

using namespace AuthorizationStatus;

constexpr const char *pausing = AdminAuthorization::pauseRight;
constexpr const char *managing = AdminAuthorization::manageRight;
constexpr const char *unknown = "com.veltrion.tarnlink.unknown";
std::int32_t ask(const std::string &right, bool mayAsk, const std::string &form) {
    PolkitAuthorizations polkit;
    std::unique_ptr<AuthorizationReference> handle;
    const auto status = form.empty() ? polkit.create(handle) : polkit.createFromExternalForm(form, handle);
    return handle ? handle->copyRight(right, mayAsk ? 3 : 2) : status;
}

/// The external form, or the words of the error.
std::string acquire() {
    struct : Log {
        void write(Level, std::string_view, std::string_view) override {}
    } log;
    PolkitAuthorizations polkit;
    try {
        return AdminAuthorization(polkit, log).acquireInteractively();
    } catch (const AdminAuthorizationError &error) {
        return error.description();
    }
}

std::string acquireAtTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (grantpt(master) != 0 || unlockpt(master) != 0)
        return "no terminal";
    dup2(open(ptsname(master), O_RDWR), STDIN_FILENO);
    auto agent = TerminalAgent::open();
    const auto result = agent ? acquire() : "no agent";
    agent.reset();
    return waitpid(-1, nullptr, WNOHANG) < 0 ? result : "the agent is left";
}

class Polkit : public PolkitLab {
protected:
    void SetUp() override {
        PolkitLab::SetUp();
        if (!IsSkipped())
            bus_ = startBus(lab(), services);
    }
    std::int32_t askAs(uid_t user, const char *right, bool mayAsk, const std::string &form = {}) {
        return std::stoi(as(user, [&] { return std::to_string(ask(right, mayAsk, form)); }));
    }
    std::string formOf(uid_t user) {
        return as(user, [] { return currentProcess()->externalForm(); });
    }

    pid_t bus_ = 0;
};

TEST_F(Polkit, DecidesByRulesAndPolicy) {
    const auto ofAlice = formOf(alice);
    const auto claim = [&](std::int32_t pid, unsigned later, uid_t user) {
        const auto is = *ProcessIdentity::fromExternalForm(ofAlice);
        return ProcessIdentity{pid ? pid : is.pid, is.startTime + later, user}.externalForm();
    };
    struct Row {
        uid_t user;
        const char *right;
        bool mayAsk;
        std::string form;
        std::int32_t status;
    };
    const std::vector<Row> rows = {
        {alice, pausing, false, "", success}, // polkit is not running before.
        {alice, unknown, false, "", denied},
        {bob, pausing, true, "", denied},
        {carol, pausing, false, "", interactionNotAllowed},
        {carol, pausing, true, "", interactionNotAllowed},
        {carol, managing, true, "", interactionNotAllowed},
        {dora, managing, false, "", success},
        {dora, pausing, false, "", interactionNotAllowed},
        {root, pausing, false, "", success},
        {root, unknown, false, "", success},
        // The daemon asks about others, and only it may.
        {tarnlink, pausing, false, ofAlice, success},
        {tarnlink, pausing, false, formOf(bob), denied},
        {tarnlink, pausing, false, formOf(carol), interactionNotAllowed},
        {carol, pausing, false, ofAlice, denied},
        {tarnlink, pausing, false, std::string(32, 'x'), invalidRef},
        // Another process was given the number, or none has it.
        {tarnlink, pausing, false, claim(0, 1, alice), denied},
        {tarnlink, pausing, false, claim(4194304, 0, alice), denied},
        // polkit takes a user as given: whoever gets a form from others has to compare it.
        {tarnlink, pausing, false, claim(0, 0, carol), interactionNotAllowed},
        {tarnlink, pausing, false, claim(0, 0, root), success},
    };
    for (const auto &row : rows)
        EXPECT_EQ(askAs(row.user, row.right, row.mayAsk, row.form), row.status) << &row - rows.data();

    PolkitAuthorizations polkit;
    Value definition = Value::Dictionary{{"class", "user"}, {"group", "admin"}};
    EXPECT_EQ(polkit.rightDefinition(managing), definition);
    definition.set("timeout", 300);
    definition.set("version", 2);
    EXPECT_EQ(polkit.rightDefinition(pausing), definition);
    EXPECT_EQ(polkit.rightDefinition(unknown), std::nullopt);
}

TEST_F(Polkit, PersonIsAsked) {
    const auto acquireRefused = [] {
        startRefusingAgent();
        return acquire();
    };
    EXPECT_EQ(as(carol, acquireRefused), "Administrator-Authentifizierung abgebrochen.");
    const std::string account = "account required pam_permit.so\nauth required ";
    lab().write("/etc/pam.d/polkit-1", account + "pam_deny.so\n");
    EXPECT_EQ(as(carol, acquireAtTerminal),
              "Authentifizierung fehlgeschlagen (-60005): The authorization was denied.");
    lab().write("/etc/pam.d/polkit-1", account + "pam_permit.so\n");
    const auto form = as(carol, acquireAtTerminal);
    ASSERT_TRUE(ProcessIdentity::fromExternalForm(form)) << form;
    EXPECT_TRUE(ProcessIdentity::fromExternalForm(as(dora, acquireAtTerminal)));
    // One right of one process.
    EXPECT_EQ(askAs(tarnlink, pausing, false, form), success);
    EXPECT_EQ(askAs(tarnlink, managing, false, form), interactionNotAllowed);
    EXPECT_EQ(askAs(carol, pausing, false), interactionNotAllowed);
    lab().stop(bus_);
    EXPECT_THAT(as(carol, acquireAtTerminal), testing::HasSubstr("-60005"));
}

TEST_F(Polkit, OnlyRootMayWithoutIt) {
    const auto expectRootOnly = [&](const char *where) {
        SCOPED_TRACE(where);
        EXPECT_EQ(askAs(root, pausing, false, formOf(alice)), denied);
        EXPECT_EQ(askAs(root, pausing, false), success);
        EXPECT_EQ(PolkitAuthorizations().rightDefinition(pausing), std::nullopt);
    };
    lab().stop(bus_);
    expectRootOnly("no bus");
    startBus(lab());
    expectRootOnly("no polkit");
    const pid_t polkit = lab().start("/usr/lib/polkit-1/polkitd");
    lab().waitForLog(polkit, "Acquired the name");
    EXPECT_EQ(askAs(alice, pausing, false), success);
    kill(polkit, SIGSTOP);
    expectRootOnly("it says nothing");
}

} // namespace
} // namespace tarn
