// The client in virtual time, against a connection that does what the test says.

#include "Support/ManualActor.h"
#include "TarnXPC/TarnXPC.h"
#include "TarnXPC/TarnXPCClient.h"

#include <gmock/gmock.h>
#include <thread>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using Strings = std::vector<std::string>;

/// What reached the system; and, for each call under way, how to end it.
struct Far {
    struct Pending {
        TarnXPCProtocol::Call call;
        RemoteConnection::Reply reply;
        RemoteConnection::ErrorHandler failed;
    };
    Strings events;
    std::vector<Pending> pending;
    RemoteConnection::Handler invalidated, interrupted;
    bool conforms = true;
    std::function<void()> onInvoke;
};

class FarConnection final : public RemoteConnection {
public:
    explicit FarConnection(Far &far) : far_(far) {}
    void setInvalidationHandler(Handler handler) override { far_.invalidated = std::move(handler); }
    void setInterruptionHandler(Handler handler) override { far_.interrupted = std::move(handler); }
    void resume() override { far_.events.emplace_back(far_.invalidated ? "resume" : "resume too early"); }
    void invalidate() override { far_.events.emplace_back("invalidate"); }
    bool invoke(const TarnXPCProtocol::Call &call, Reply reply, ErrorHandler failed) override {
        if (!far_.conforms)
            return false;
        far_.pending.push_back({call, std::move(reply), std::move(failed)});
        if (far_.onInvoke)
            far_.onInvoke();
        return true;
    }

private:
    Far &far_;
};

class ClientTest : public testing::Test, public RemoteConnector {
protected:
    std::shared_ptr<RemoteConnection> connect(const std::string &name,
                                              const std::string &requirement) override {
        EXPECT_EQ(name, "com.veltrion.tarnlink.daemon");
        EXPECT_EQ(requirement, R"(identifier "com.veltrion.tarnlink.daemon")");
        far.events.emplace_back("connect");
        return std::make_shared<FarConnection>(far);
    }

    /// How a call ended is added to `ends`.
    template <class Result> void watch(Task<Result> task) { detach(follow(std::move(task))); }
    template <class Result> Task<void> follow(Task<Result> task) {
        try {
            tell(co_await std::move(task));
        } catch (const TarnXPCClientError &error) {
            ends.push_back(error.description());
        }
    }
    void tell(const StatusReport &report) { ends.push_back("status " + report.reason); }
    void tell(const PauseResult &result) { ends.push_back("pause " + result.code); }
    void tell(const SettingResult &result) { ends.push_back("setting " + result.code); }
    void tell(const UpdateResult &result) { ends.push_back("update " + result.code); }
    void tell(const std::string &text) { ends.push_back("text " + text); }

    Far far;
    ManualActor actor;
    TarnXPCClient client{*this, actor};
    Strings ends;
};

constexpr const char *good = R"({"status":{"wifi":{}},"reason":"good"})";
constexpr const char *timedOut = "Timed out after 5.0s waiting for the daemon.";
constexpr const char *unavailable = "The Tarnlink daemon is not available.";

TEST_F(ClientTest, TheFirstOfReplyErrorAndTimeLimitEndsTheCall) {
    const auto reply = [this] { far.pending.back().reply(good); };
    const auto error = [this] { far.pending.back().failed({"NSCocoaErrorDomain", 4097, "cut"}); };
    const auto time = [this] { actor.advance(5s); };
    const auto garbage = [this] { far.pending.back().reply("{"); };
    using Step = std::function<void()>;
    TarnXPCClient *current = nullptr;
    const struct {
        std::vector<Step> steps;
        std::string end;
    } rows[] = {
        {{reply, error, time}, "status good"},
        {{reply, time, error}, "status good"},
        {{error, reply, time}, unavailable},
        {{error, time, reply}, unavailable},
        {{time, reply, error}, timedOut},
        {{time, error, reply, reply}, timedOut},
        {{reply, reply, garbage}, "status good"},
        {{[this] { actor.advance(4999ms); }, reply}, "status good"},
        {{time, [&] { current->invalidate(); }}, timedOut},
        {{[&] { current->invalidate(); }, error, time}, unavailable},
    };
    for (const auto &row : rows) {
        ends.clear();
        TarnXPCClient fresh(*this, actor);
        current = &fresh;
        watch(fresh.status(5));
        EXPECT_THAT(ends, testing::IsEmpty());
        for (const auto &step : row.steps)
            step();
        actor.advance(10s);
        EXPECT_THAT(ends, ElementsAre(row.end));
    }
}

TEST_F(ClientTest, RepliesAndErrorsMayComeFromOtherThreads) {
    for (int i = 0; i < 200; ++i) {
        ends.clear();
        watch(client.status(1));
        auto &call = far.pending.back();
        std::thread first([&] { call.reply(good); });
        std::thread second([&] { call.failed({"other", 1, "words"}); });
        if (i % 2 == 0)
            actor.advance(1s);
        first.join();
        second.join();
        actor.advance(1s);
        EXPECT_EQ(ends.size(), 1u);
    }
}

TEST_F(ClientTest, TimeLimitsBelowZeroCountAsZeroAndAReplyThatIsThereWins) {
    for (const double limit : {-1.0, 0.0}) {
        watch(client.status(limit));
        actor.advance(0s);
        far.pending.back().reply(good);
    }
    far.onInvoke = [this] { far.pending.back().reply(good); };
    watch(client.status(-2));
    actor.advance(1s);
    EXPECT_THAT(ends, ElementsAre("Timed out after -1.0s waiting for the daemon.",
                                  "Timed out after 0.0s waiting for the daemon.", "status good"));
}

TEST_F(ClientTest, ALostConnectionIsMadeAnewByTheNextCall) {
    EXPECT_THAT(far.events, testing::IsEmpty());
    watch(client.status(5));
    watch(client.resume(5));
    EXPECT_THAT(far.events, ElementsAre("connect", "resume"));
    for (auto *handler : {&far.interrupted, &far.invalidated}) {
        far.events.clear();
        // The handlers are cleared while they run.
        const auto lost = *handler;
        lost();
        EXPECT_FALSE(far.interrupted || far.invalidated);
        EXPECT_THAT(far.events, testing::IsEmpty());
        watch(client.status(5));
        EXPECT_THAT(far.events, ElementsAre("connect", "resume"));
        // Late news of the one that is gone.
        lost();
        EXPECT_EQ(far.events.size(), 2u);
    }
    // A time-out keeps the connection.
    actor.advance(5s);
    watch(client.status(5));
    EXPECT_EQ(far.events.size(), 2u);
    actor.advance(5s);
}

TEST_F(ClientTest, AfterInvalidationNothingReachesTheSystem) {
    watch(client.status(5));
    client.invalidate();
    EXPECT_THAT(far.events, ElementsAre("connect", "resume", "invalidate"));
    // The system's word for the call under way, as it comes then.
    far.pending.back().failed({"NSCocoaErrorDomain", 4099, ""});
    EXPECT_THAT(ends, ElementsAre(unavailable));
    ends.clear();
    far.events.clear();
    watch(client.status(5));
    watch(client.diagnostics(5));
    client.invalidate();
    EXPECT_THAT(ends,
                ElementsAre("The XPC connection was invalidated.", "The XPC connection was invalidated."));
    EXPECT_THAT(far.events, testing::Not(testing::Contains("connect")));
}

TEST_F(ClientTest, TheClientMayGoBeforeItsCallEnds) {
    auto other = std::make_unique<TarnXPCClient>(*this, actor);
    watch(other->status(5));
    const auto lost = far.invalidated;
    other.reset();
    lost();
    far.pending.back().reply(good);
    EXPECT_THAT(ends, ElementsAre("status good"));
}

TEST_F(ClientTest, EachOperationSendsItsMethodAndReadsItsRecord) {
    namespace Protocol = TarnXPCProtocol;
    watch(client.pause(900, std::string("\0x", 2), 5));
    watch(client.pause(1, std::nullopt, 5));
    watch(client.resume(5));
    watch(client.diagnostics(5));
    watch(client.setTetheringWhileWired(true, 5));
    watch(client.setTetheringDNSFix(true, 5));
    watch(client.installUpdate("/p", 5));
    watch(client.installVerifiedUpdate("/p", "m", "s", 5));
    watch(client.updateStatus(5));
    ASSERT_EQ(far.pending.size(), 9u);
    const auto at = [&]<class Method>(std::size_t i, Method) {
        return std::get<Method>(far.pending[i].call);
    };
    EXPECT_EQ(at(0, Protocol::Pause()).seconds, 900);
    EXPECT_EQ(at(0, Protocol::Pause()).authorization, std::string("\0x", 2));
    EXPECT_EQ(at(1, Protocol::Pause()).authorization, std::nullopt);
    EXPECT_TRUE(at(4, Protocol::SetTetheringWhileWired()).allow);
    EXPECT_TRUE(at(5, Protocol::SetTetheringDNSFix()).enabled);
    EXPECT_EQ(at(6, Protocol::InstallUpdate()).pkgPath, "/p");
    const auto verified = at(7, Protocol::InstallVerifiedUpdate());
    EXPECT_EQ(verified.pkgPath + verified.manifest + verified.signature, "/pms");
    EXPECT_TRUE(std::holds_alternative<Protocol::Resume>(far.pending[2].call));
    EXPECT_TRUE(std::holds_alternative<Protocol::UpdateStatus>(far.pending[8].call));
    for (const auto &call : far.pending)
        call.reply(R"({"granted": true, "code": "c", "ok": true})");
    EXPECT_THAT(ends, ElementsAre("pause c", "pause c", "pause c",
                                  R"(text {"granted": true, "code": "c", "ok": true})", "setting c",
                                  "setting c", "update c", "update c", "update c"));
}

TEST_F(ClientTest, ErrorsAreOneOfFive) {
    far.conforms = false;
    watch(client.status(5));
    far.conforms = true;
    watch(client.status(5));
    far.pending.back().reply(R"({"status":7})");
    EXPECT_EQ(ends.front(), unavailable);
    EXPECT_THAT(ends.back(), testing::StartsWith("Failed to decode daemon response: "));

    const std::string bus = "org.freedesktop.DBus.Error.";
    const struct {
        RemoteError error;
        std::string end;
    } rows[] = {
        {{"NSCocoaErrorDomain", 4097, "x"}, unavailable},
        {{"NSCocoaErrorDomain", 4099, "x"}, unavailable},
        {{"NSCocoaErrorDomain", 4101, "Xy"}, "Daemon returned an error: Xy"},
        {{"NSPOSIXErrorDomain", 4097, "Xy"}, "Daemon returned an error: Xy"},
        {{"any", 0, "It COULDN’T Communicate"}, unavailable},
        {{"any", 0, "it couldn't communicate with"}, unavailable},
        {{"any", 0, "Service Not Found"}, unavailable},
        {{bus + "ServiceUnknown", 0, "x"}, unavailable},
        {{bus + "AccessDenied", 0, "x"}, unavailable},
        {{bus + "NoReply", 0, "x"}, unavailable},
        {{bus + "Disconnected", 0, "x"}, unavailable},
        {{"System.Error.ECONNRESET", 0, "x"}, unavailable},
        {{bus + "UnknownMethod", 0, "No such method"}, "Daemon returned an error: No such method"},
        {{bus + "LimitsExceeded", 0, "Full"}, "Daemon returned an error: Full"},
        {{"com.veltrion.tarnlink.daemon.Error.NotAuthorized", 0, "No"}, "Daemon returned an error: No"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(mapError(row.error).description(), row.end) << row.error.domain << row.error.code;
}

} // namespace
} // namespace tarn
