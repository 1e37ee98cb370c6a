#include "Platform/Linux/UdpNetwork.h"
#include "Support/NetworkLab.h"

#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <net/if.h>
#include <thread>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using State = DatagramConnection::State;
using testing::ElementsAre;

class Udp : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        if (IsSkipped())
            return;
        lab().addCable("eth0", {"192.0.2.10/24"}, {"192.0.2.1/24"});
        // Nobody is there: a look-up takes a second.
        lab().writeResolvConf("nameserver 192.0.2.77\noptions timeout:1 attempts:1\n");
    }
    std::shared_ptr<DatagramConnection> connect(const std::string &host) {
        DatagramParameters parameters;
        parameters.requiredInterface = NetworkInterface{"eth0", if_nametoindex("eth0"), nullptr};
        return network_->connect(host, 53, parameters);
    }
    void runUntil(const std::function<bool()> &condition) {
        const std::function<void()> look = [&] {
            if (condition())
                loop_->stop();
            else
                loop_->postAfter(1ms, look);
        };
        look();
        loop_->postAfter(20s, [&] { loop_->stop(); });
        loop_->run();
        EXPECT_TRUE(condition());
    }
    DatagramConnection::StateHandler keepStates() {
        return [&](State state, const std::string &) { states_.push_back(state); };
    }

    std::unique_ptr<EventLoop> loop_ = std::make_unique<EventLoop>();
    std::unique_ptr<UdpNetwork> network_ = std::make_unique<UdpNetwork>(*loop_);
    std::vector<State> states_;
};

TEST_F(Udp, LookingUpANameBlocksNobody) {
    const auto connection = connect("no-such-host.invalid");
    const auto start = loop_->now();
    connection->start("test", keepStates());
    EXPECT_LT(loop_->now() - start, 500ms);
    loop_->postAfter(1ms, [&] { EXPECT_THAT(states_, ElementsAre(State::preparing)); });
    runUntil([&] { return states_.size() == 2; });
    EXPECT_THAT(states_, ElementsAre(State::preparing, State::failed));
}

TEST_F(Udp, LookUpMayOutliveEverybodyWhoAsked) {
    const auto threads = [] {
        return std::distance(begin(std::filesystem::directory_iterator("/proc/self/task")), {});
    };
    // The thread sanitizer adds a thread of its own to the first one.
    std::thread([] {}).join();
    const auto before = threads();
    auto dropped = connect("dropped.invalid");
    auto cancelled = connect("cancelled.invalid");
    auto orphaned = connect("orphaned.invalid");
    for (const auto &connection : {dropped, cancelled, orphaned})
        connection->start("test", keepStates());
    dropped.reset();
    cancelled->cancel();
    orphaned.reset();
    network_.reset();
    cancelled.reset();
    loop_.reset();
    waitUntil([&] { return threads() <= before; }, "the end of the look-ups");
    EXPECT_THAT(states_, ElementsAre(State::preparing, State::preparing, State::preparing, State::cancelled));
}

TEST_F(Udp, PathThatComesUpIsTaken) {
    const auto connection = connect("2001:db8::1");
    connection->start("test", keepStates());
    EXPECT_THAT(states_, ElementsAre(State::waiting));
    lab().run("ip addr add 2001:db8::10/64 dev eth0");
    runUntil([&] { return states_.back() == State::ready; });
}

TEST_F(Udp, HandlersMayLetGoOfTheirConnection) {
    const pid_t echo =
        lab().start("/usr/bin/python3 -c 'import socket; own = socket.socket(type=socket.SOCK_DGRAM)\n"
                    "own.bind((\"\", 53)); print(\"ready\", flush=True)\n"
                    "while True: own.sendto(*own.recvfrom(512))'",
                    "far");
    lab().waitForLog(echo, "ready");
    auto connection = connect("192.0.2.1");
    std::size_t received = 0;
    connection->start("test", [&](State state, const std::string &) {
        ASSERT_EQ(state, State::ready);
        connection->send(std::vector<std::byte>(12), [](const auto &error) { EXPECT_FALSE(error); });
        connection->receiveMessage([&](auto datagram, const auto &) {
            received = datagram.value().size();
            connection.reset();
        });
    });
    runUntil([&] { return received > 0; });
    EXPECT_EQ(received, 12u);

    // A link-local server without a zone is one on the device.
    connection = connect("fe80::1");
    connection->start("test", [&, kept = std::string(64, 'k')](State state, const std::string &) {
        connection->cancel();
        states_.push_back(state);
        EXPECT_EQ(kept.size(), 64u);
    });
    connection->cancel();
    connection->send({}, [](const auto &) { ADD_FAILURE(); });
    connection->receiveMessage([](auto, const auto &) { ADD_FAILURE(); });
    EXPECT_THAT(states_, ElementsAre(State::cancelled, State::ready));
}

} // namespace
} // namespace tarn
