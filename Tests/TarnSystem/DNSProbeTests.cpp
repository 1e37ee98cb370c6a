#include "TarnSystem/DNSProbe.h"

#include "Support/ManualActor.h"
#include "Support/Words.h"
#include "TarnCore/Text.h"
#include "TarnSystem/DNSMessage.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <tuple>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using State = DatagramConnection::State;
using Bytes = std::vector<std::byte>;

/// A connection whose other end is the test.
class ScriptedConnection final : public DatagramConnection {
public:
    std::string host, queueLabel;
    std::uint16_t port = 0;
    DatagramParameters parameters;
    std::vector<Bytes> sent;
    int receives = 0;
    bool isCancelled = false;
    StateHandler onState;
    SendCompletion onSent;
    ReceiveCompletion onReceived;

    void start(const std::string &label, StateHandler handler) override {
        queueLabel = label;
        onState = std::move(handler);
    }
    void send(Bytes datagram, SendCompletion completion) override {
        if (!isCancelled)
            sent.push_back(std::move(datagram)), onSent = std::move(completion);
    }
    void receiveMessage(ReceiveCompletion completion) override {
        if (!isCancelled)
            ++receives, onReceived = std::move(completion);
    }
    void cancel() override {
        if (std::exchange(isCancelled, true))
            return;
        onSent = nullptr;
        onReceived = nullptr;
        std::exchange(onState, nullptr)(State::cancelled, {});
    }
    void deliver(const Bytes &datagram) { ReceiveCompletion{onReceived}(datagram, std::nullopt); }
};

/// A machine with the interface "en7" alone. It keeps its connections; identifiers are 0x1234, 0x1235 ...
class Machine final : public InterfaceLookup, public DatagramNetwork, public SecureRandom {
public:
    std::vector<std::shared_ptr<ScriptedConnection>> connections;
    bool looksUpElsewhere = false;

    void findInterface(const std::string &name, const std::string &label, Completion completion) override {
        EXPECT_EQ(label, "tarnlink.dnsprobe.pathmonitor");
        const auto found = name == "en7" ? std::optional(NetworkInterface{name, 7, nullptr}) : std::nullopt;
        if (looksUpElsewhere)
            std::thread([&] { completion(found); }).join();
        else
            completion(found);
    }
    std::shared_ptr<DatagramConnection> connect(const std::string &host, std::uint16_t port,
                                                const DatagramParameters &parameters) override {
        const auto made = connections.emplace_back(std::make_shared<ScriptedConnection>());
        std::tie(made->host, made->port, made->parameters) = std::tie(host, port, parameters);
        return made;
    }
    std::uint64_t next() override { return 0xABCD0000 + 0x1234 + connections.size() - 1; }
};

Bytes reply(std::uint16_t id, unsigned code = 3, unsigned answers = 0) {
    auto data = DNSMessage::query(id, "");
    data[2] = std::byte{0x81};
    data[3] = static_cast<std::byte>(0x80 | code);
    data[7] = static_cast<std::byte>(answers);
    return data;
}

/// Whatever a probe needs, and what came of it.
struct Bench {
    ManualActor actor;
    Machine machine;
    DNSProbe probe{"tarnlink.probe.invalid", {actor, machine, machine, machine}};
    std::vector<std::string> results;

    Task<void> run(std::string device, std::optional<std::string> local, double timeout) {
        const auto [kind, latency, message] = co_await probe.probe(device, "192.168.1.1", local, timeout);
        const auto reached = kind == ProbeOutcome::Kind::reachable ? text::fromDouble(latency) : "timeout";
        results.push_back(kind == ProbeOutcome::Kind::error ? message : reached);
    }
    Task<void> ask() {
        const auto verdict = co_await probe.ask("en7", "192.168.1.1", "host.example", std::nullopt, 2);
        results.push_back(
            words("knows empty unknown refused unreachable")[static_cast<std::size_t>(verdict)]);
    }
    /// The new connection; null when none was ever made.
    ScriptedConnection *begin(double timeout = 2, std::optional<std::string> local = {},
                              const char *device = "en7") {
        detach(run(device, std::move(local), timeout));
        return machine.connections.empty() ? nullptr : machine.connections.back().get();
    }
};

/// Plays steps to an exchange with a limit of two seconds: a state, "+25" for milliseconds that pass, "sent!"
/// and "received!" for failures, "reply", or "strays", seven datagrams of no value. Tells results and calls.
std::string play(const std::string &steps) {
    const auto states = words("setup preparing waiting ready failed cancelled");
    const auto query = DNSMessage::query(0x1234, "tarnlink.probe.invalid");
    const Bytes strays[] = {
        reply(0x1235), reply(0x1233), reply(0x3412), query, {query.begin(), query.begin() + 11}, {}};
    Bench bench;
    auto &connection = *bench.begin();
    // Copies, because what comes late must do nothing either.
    const auto onState = connection.onState;
    DatagramConnection::SendCompletion onSent;
    DatagramConnection::ReceiveCompletion onReceived;
    for (const auto &step : words(steps)) {
        if (const auto state = std::ranges::find(states, step); state != states.end())
            onState(static_cast<State>(state - states.begin()), "down");
        else if (step == "reply")
            onReceived(reply(0x1234), std::nullopt);
        else if (step == "received!")
            onReceived(std::nullopt, "refused");
        else if (step == "sent!")
            onSent("full");
        else if (step == "strays")
            for (onReceived(std::nullopt, std::nullopt); const auto &stray : strays)
                onReceived(stray, std::nullopt);
        else
            bench.actor.advance(std::chrono::milliseconds(std::stoi(step)));
        onSent = connection.onSent ? connection.onSent : onSent;
        onReceived = connection.onReceived ? connection.onReceived : onReceived;
    }
    std::string text;
    for (const auto &result : bench.results)
        text += result + (connection.isCancelled && bench.actor.waiting() == 0 ? ", " : " and running, ");
    bench.actor.advance(2s);
    return text + std::to_string(connection.sent.size()) + " sent " + std::to_string(connection.receives) +
           " received";
}

TEST(DNSProbe, QueryLeavesThroughTheInterface) {
    Bench bench;
    const auto &connection = *bench.begin(2, "192.168.1.20");
    EXPECT_EQ(connection.host + " " + connection.queueLabel, "192.168.1.1 tarnlink.dnsprobe.en7");
    EXPECT_EQ(connection.port, 53);
    EXPECT_EQ(connection.parameters.requiredInterface.value().index, 7U);
    EXPECT_FALSE(connection.parameters.requiredLocalAddress) << "needed only without the interface";
    EXPECT_TRUE(!connection.parameters.prohibitExpensivePaths &&
                connection.parameters.allowLocalEndpointReuse);
    connection.onState(State::ready, {});
    EXPECT_EQ(connection.sent, std::vector<Bytes>(1, DNSMessage::query(0x1234, "tarnlink.probe.invalid")));
    bench.actor.advance(2s);
}

TEST(DNSProbe, MissingInterfaceIsReplacedByTheLocalAddress) {
    Bench bench;
    EXPECT_EQ(bench.begin(2, std::nullopt, "en9"), nullptr);
    EXPECT_EQ(bench.results, std::vector<std::string>{"interface en9 not available"});
    for (const char *row :
         {"192.168.1.20 > 192.168.1.20", "fe80::1%en9 > fe80::1", "fe80::1%a%b > fe80::1"}) {
        const auto &parameters = bench.begin(2, sides(row).first, "en9")->parameters;
        EXPECT_FALSE(parameters.requiredInterface);
        EXPECT_EQ(parameters.requiredLocalAddress, sides(row).second);
        bench.actor.advance(2s);
    }
}

TEST(DNSProbe, LatencyRunsFromSendingToTheReply) {
    EXPECT_EQ(play("preparing +500 ready +25 reply"), "0.025, 1 sent 1 received");
    EXPECT_EQ(play("ready +1000 ready +100 reply"), "0.1, 2 sent 1 received") << "one receive is enough";
}

TEST(DNSProbe, StrayDatagramsAreIgnoredUntilTheReplyOrTheTimeLimit) {
    EXPECT_EQ(play("ready strays +1999"), "1 sent 8 received");
    EXPECT_EQ(play("ready strays +1999 reply"), "1.999, 1 sent 8 received");
    EXPECT_EQ(play("ready strays +1999 +1"), "timeout, 1 sent 8 received");
}

TEST(DNSProbe, FailureEndsTheExchangeButWaitingDoesNot) {
    EXPECT_EQ(play("failed"), "down, 0 sent 0 received");
    EXPECT_EQ(play("ready sent!"), "full, 1 sent 1 received");
    EXPECT_EQ(play("ready received!"), "refused, 1 sent 1 received");
    EXPECT_EQ(play("waiting +1999"), "0 sent 0 received");
    EXPECT_EQ(play("waiting +2000"), "timeout, 0 sent 0 received");
}

TEST(DNSProbe, NothingCountsAfterTheEnd) {
    const std::string late = " ready waiting failed cancelled sent! received! reply strays +2000";
    EXPECT_EQ(play("ready reply" + late), "0.0, 1 sent 1 received");
    EXPECT_EQ(play("ready +2000" + late), "timeout, 1 sent 1 received");
    EXPECT_EQ(play("ready failed" + late), "down, 1 sent 1 received");
}

TEST(DNSProbe, NegativeTimeoutIsNone) {
    for (const double timeout : {0.0, -5.0, -1e300, std::numeric_limits<double>::quiet_NaN()}) {
        Bench late, early;
        late.begin(timeout)->onState(State::ready, {});
        EXPECT_TRUE(late.results.empty());
        late.actor.runDue();
        EXPECT_EQ(late.results, words("timeout"));
        early.begin(timeout)->onState(State::ready, {});
        early.machine.connections[0]->deliver(reply(0x1234));
        EXPECT_EQ(early.results, words("0.0"));
    }
}

TEST(DNSProbe, AskTurnsTheReplyIntoAVerdict) {
    Bench bench;
    for (const unsigned code : {0U, 3U, 2U}) {
        detach(bench.ask());
        const auto connection = bench.machine.connections.back();
        connection->onState(State::ready, {});
        const auto id = static_cast<std::uint16_t>(0x1234 + bench.results.size());
        EXPECT_EQ(connection->sent.at(0), DNSMessage::query(id, "host.example"));
        connection->deliver(reply(id, code, 1));
    }
    detach(bench.ask());
    bench.actor.advance(2s);
    EXPECT_EQ(bench.results, words("knows unknown unreachable unreachable"));
}

TEST(DNSProbe, ExchangesAtOnceKeepApart) {
    Bench bench;
    auto &first = *bench.begin(), &second = *bench.begin();
    first.onState(State::ready, {});
    second.onState(State::ready, {});
    EXPECT_NE(first.sent, second.sent);
    second.deliver(reply(0x1234));
    EXPECT_TRUE(bench.results.empty());
    second.deliver(reply(0x1235));
    first.deliver(reply(0x1234));
    EXPECT_EQ(bench.results, words("0.0 0.0"));
}

TEST(DNSProbe, CallbacksOfOtherThreadsGiveOneResultOnTheMainOne) {
    for (int round = 0; round < 200 && !testing::Test::HasFailure(); ++round) {
        Bench bench;
        bench.machine.looksUpElsewhere = true;
        auto &connection = *bench.begin();
        std::thread([ready = connection.onState] { ready(State::ready, {}); }).join();
        std::thread network([received = connection.onReceived] { received(reply(0x1234), std::nullopt); });
        // Every other time the time limit meets the reply, and neither waits for the other.
        if (round % 2 == 0)
            bench.actor.advance(2s);
        network.join();
        EXPECT_TRUE(round % 2 == 0 || bench.results.empty());
        bench.actor.runDue();
        EXPECT_EQ(bench.results.size(), 1U);
    }
}

} // namespace
} // namespace tarn
