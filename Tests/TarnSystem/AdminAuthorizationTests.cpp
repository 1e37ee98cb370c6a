#include "TarnSystem/AdminAuthorization.h"

#include "TarnSystem/Json.h"
#include "TarnSystem/ProcessIdentity.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

/// A system in which one call fails, what it was asked and what was logged. Handles may outlive a test.
std::string failing, calls;
std::int32_t failure = 0;
int handles = 0;

std::int32_t call(const std::string &text) {
    calls += text + ";";
    return text.starts_with(failing) ? failure : AuthorizationStatus::success;
}

struct Handle final : AuthorizationReference {
    Handle() { ++handles; }
    ~Handle() override { --handles; }
    Status copyRight(const std::string &name, std::uint32_t flags) override {
        return call("copy " + name + " " + std::to_string(flags));
    }
    Status setRight(const std::string &name, const Value &definition, const std::string &text) override {
        EXPECT_EQ(
            json::serialize(definition),
            R"_({"class":"user","group":"admin","authenticate-user":true,"shared":true,"allow-root":true,)_"
            R"_("session-owner":false,"timeout":300,"tries":3,"version":2,)_"
            R"_("comment":"Tarnlink: Schutz vorübergehend aussetzen (Administrator erforderlich)"})_");
        return call("set " + name + " " + text);
    }
    Status makeExternalForm(std::string &bytes) override {
        bytes = "form";
        return call("form");
    }
};

struct System final : AuthorizationServices, Log {
    std::optional<Value> stored;

    Status make(const std::string &text, std::unique_ptr<AuthorizationReference> &handle) {
        const Status status = call(text);
        if (status == AuthorizationStatus::success)
            handle = std::make_unique<Handle>();
        return status;
    }
    Status create(std::unique_ptr<AuthorizationReference> &handle) override { return make("create", handle); }
    Status createFromExternalForm(const std::string &,
                                  std::unique_ptr<AuthorizationReference> &handle) override {
        return make("from", handle);
    }
    std::optional<Value> rightDefinition(const std::string &name) override {
        call("read " + name);
        return stored;
    }
    std::optional<std::string> message(Status status) override {
        return status == -1 ? std::nullopt : std::optional("words");
    }
    void write(Level, std::string_view category, std::string_view message) override {
        call(std::string(category) + ": " + std::string(message));
    }
};

#define RIGHT "com.veltrion.tarnlink.pause"

TEST(AdminAuthorization, AsksTheSystem) {
    const std::string copy = "create;copy " RIGHT " 19;", recheck = "from;copy " RIGHT " 2;";
    const std::string read = "create;read " RIGHT ";";
    const std::string set = read + "set " RIGHT " Tarnlink: Schutz vorübergehend aussetzen;";
    const std::string denied = "Authentifizierung fehlgeschlagen (", form(32, 'x');
    const std::string notSet = "Recht " RIGHT " konnte nicht angelegt werden (-60005): words";
    struct Row {
        std::string job, given, failing;
        std::int32_t status;
        std::string outcome, calls;
        int handles = 0;
        std::int32_t verifyStatus = 0;
    };
    const std::vector<Row> rows = {
        {"acquire", "", "none", 0, "form", copy + "form;", 1},
        {"acquire", "", "create", -1, denied + "-1): unbekannter Fehler", "create;"},
        {"acquire", "", "copy", -60005, denied + "-60005): words", copy},
        {"acquire", "", "copy", -60006, "Administrator-Authentifizierung abgebrochen.", copy},
        {"acquire", "", "form", -60008, denied + "-60008): words", copy + "form;", 1},
        {"ensure", R"({"version": 2, "timeout": 1})", "none", 0, "", read},
        {"ensure", R"({"version": 1, "timeout": 300})", "none", 0, "", set},
        {"ensure", R"({"version": "2", "timeout": 300})", "none", 0, "", set},
        {"ensure", R"({"version": 2})", "none", 0, "", set},
        {"ensure", R"([2])", "none", 0, "", set},
        {"ensure", "", "none", 0, "", set},
        {"ensure", "", "set", -60005, notSet, set},
        {"ensure", "", "create", -60005, notSet, "create;"},
        {"verify", form, "none", 0, "yes", recheck},
        {"verify", form, "from", -60002, "no",
         "from;authorization: AuthorizationCreateFromExternalForm failed: -60002;", 0, -60002},
        {"verify", form + "x", "none", 0, "no", "", 0, -60002},
        {"verify", form, "copy", -60007, "no",
         recheck + "authorization: AuthorizationCopyRights (daemon re-check) failed: -60007;", 0, -60007},
        {"verify", form.substr(1), "none", 0, "no", "", 0, -60007},
        {"verify", form, "none", 0, "yes", recheck, 0, -60007},
    };
    for (const auto &row : rows) {
        System system;
        failing = row.failing;
        failure = row.status;
        calls.clear();
        handles = 0;
        AdminAuthorization authorization(system, system);
        std::string outcome;
        try {
            if (row.job == "acquire")
                outcome = authorization.acquireInteractively();
            else if (row.job == "verify")
                outcome = authorization.verify(row.given) ? "yes" : "no";
            else {
                if (!row.given.empty())
                    system.stored = std::get<Value>(json::parse(row.given));
                authorization.ensureRightExists();
            }
        } catch (const AdminAuthorizationError &error) {
            outcome = error.what();
            EXPECT_EQ(error.status(), row.status == -60006 ? 0 : row.status);
        }
        EXPECT_EQ(outcome, row.outcome);
        EXPECT_EQ(calls, row.calls) << row.outcome << row.given;
        EXPECT_EQ(handles, row.handles) << row.calls;
        EXPECT_EQ(AdminAuthorization::lastVerifyStatus(), row.verifyStatus);
    }
}

TEST(ProcessIdentity, IsReadBackAndNothingElseIs) {
    const ProcessIdentity widest{2147483647, 18446744073709551615u, 4294967294u};
    const auto good = widest.externalForm();
    EXPECT_EQ(ProcessIdentity::fromExternalForm(good), widest);
    for (const auto &bad :
         {std::string(), good.substr(1), good + '\0', "x" + good.substr(1), good.substr(0, 31) + "x",
          ProcessIdentity{0, 1, 1}.externalForm(), ProcessIdentity{-1, 1, 1}.externalForm()})
        EXPECT_FALSE(ProcessIdentity::fromExternalForm(bad)) << bad;
}

} // namespace
} // namespace tarn
