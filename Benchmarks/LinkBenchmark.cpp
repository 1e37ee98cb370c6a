// LinkBenchmark decode: decoding the report of 64 interfaces, beside the JSON library's bare parse.
// LinkBenchmark status: asking the daemon for its status, beside a bare call over the same bus that is
//   answered with as many bytes; and the same while a third process floods the bus.
// LinkBenchmark nobody: the longest time until it was told that nobody is there.
// The latter two on the bus that DBUS_SYSTEM_BUS_ADDRESS names.

#include "Benchmarks/Measure.h"
#include "Platform/Platform.h"
#include "TarnXPC/TarnXPCClient.h"
#include "TarnXPC/TarnXPCCoding.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <utility>

namespace {

using namespace tarn;

constexpr const char *bareName = "com.veltrion.tarnlink.bare";
constexpr const char *barePath = "/bare";
constexpr double limit = 1.5;
constexpr int rounds = 20;
constexpr int perRound = 100;

void decode() {
    StatusReport report;
    report.status = Status::wired("eth0", "Office");
    report.reason = "eth0 verified: link, IPv4 192.0.2.2, gateway, probe ok";
    for (int i = 0; i < 64; ++i)
        report.interfaces.push_back({"eth" + std::to_string(i), "Office " + std::to_string(i),
                                     InterfaceKind::wired, true, "192.0.2." + std::to_string(i)});
    const auto bytes = TarnXPCCoding::encoder().encode(report);
    const auto medians = bench::medians(
        {bench::timed([&] {
             if (TarnXPCCoding::decoder().decode<StatusReport>(bytes).interfaces != report.interfaces)
                 bench::fail("not what was encoded");
         }),
         bench::timed([&] {
             if (nlohmann::json::parse(bytes).size() < 2)
                 bench::fail("not parsed");
         })},
        rounds, perRound);
    bench::report("decode", medians[0]);
    bench::report("parse", medians[1]);
}

void check(int result, const char *what) {
    errno = -result;
    bench::check(result >= 0, what);
}

sd_bus *openBus() {
    const char *address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (!address)
        bench::fail("DBUS_SYSTEM_BUS_ADDRESS is not set");
    sd_bus *bus = nullptr;
    check(sd_bus_new(&bus), "sd_bus_new");
    check(sd_bus_set_address(bus, address), "sd_bus_set_address");
    check(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client");
    check(sd_bus_start(bus), "sd_bus_start");
    return bus;
}

[[noreturn]] void process(sd_bus *bus) {
    for (;;) {
        const int result = sd_bus_process(bus, nullptr);
        check(result, "sd_bus_process");
        if (result == 0)
            check(sd_bus_wait(bus, UINT64_MAX), "sd_bus_wait");
    }
}

/// Answers a number with so many bytes.
[[noreturn]] void answerBarely() {
    static constexpr auto answer = [](sd_bus_message *call, void *, sd_bus_error *) {
        std::uint32_t size = 0;
        check(sd_bus_message_read(call, "u", &size), "sd_bus_message_read");
        return sd_bus_reply_method_return(call, "s", std::string(size, 'x').c_str());
    };
    static constexpr sd_bus_vtable methods[] = {
        SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Bytes", "u", "s", answer, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END};
    sd_bus *bus = openBus();
    check(sd_bus_add_object_vtable(bus, nullptr, barePath, bareName, methods, nullptr), "vtable");
    check(sd_bus_request_name(bus, bareName, 0), "sd_bus_request_name");
    process(bus);
}

/// Calls the bus itself without a pause, with some calls always under way.
[[noreturn]] void flood() {
    sd_bus *bus = openBus();
    struct Call {
        static int send(sd_bus *to) {
            return sd_bus_call_method_async(to, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                            "org.freedesktop.DBus", "ListNames", again, nullptr, nullptr);
        }
        static int again(sd_bus_message *reply, void *, sd_bus_error *) {
            return send(sd_bus_message_get_bus(reply));
        }
    };
    for (int i = 0; i < 16; ++i)
        check(Call::send(bus), "sd_bus_call_method_async");
    process(bus);
}

/// A process that ends with this object.
class Child {
public:
    explicit Child(void (*run)()) : pid_(fork()) {
        bench::check(pid_ >= 0, "fork");
        if (pid_ == 0)
            run();
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

private:
    pid_t pid_;
};

std::uint32_t callBarely(sd_bus *bus, std::uint32_t size) {
    sd_bus_message *reply = nullptr;
    const char *text = nullptr;
    // Nobody has the name at first.
    if (sd_bus_call_method(bus, bareName, barePath, bareName, "Bytes", nullptr, &reply, "u", size) < 0 ||
        sd_bus_message_read(reply, "s", &text) < 0)
        return 0;
    const auto length = static_cast<std::uint32_t>(std::string_view(text).size());
    sd_bus_message_unref(reply);
    return length;
}

Task<void> askRepeatedly(TarnXPCClient &client, MainActor &actor, int count, bench::Samples &samples,
                         StatusReport &last) {
    try {
        while (count-- > 0) {
            const auto start = bench::Clock::now();
            last = co_await client.status(limit);
            samples.push_back(bench::microsecondsSince(start));
        }
    } catch (const TarnXPCClientError &error) {
        bench::fail(error.description());
    }
    actor.post([&actor] { actor.stop(); });
}

void status() {
    const Child barelyAnswering(answerBarely);
    sd_bus *bus = openBus();
    const auto platform = makePlatform();
    auto &actor = platform->mainActor();
    TarnXPCClient client(platform->connector(), actor);
    StatusReport last;
    const auto ask = [&](int count, bench::Samples &samples) {
        detach(askRepeatedly(client, actor, count, samples, last));
        actor.run();
    };
    bench::Samples samples;
    ask(1, samples);
    const auto size = static_cast<std::uint32_t>(TarnXPCCoding::encoder().encode(last).size());
    const auto start = bench::Clock::now();
    while (callBarely(bus, size) != size)
        if (bench::microsecondsSince(start) > 5e6)
            bench::fail("nothing to compare with");
    const auto medians = bench::medians({ask, bench::timed([&] {
                                             if (callBarely(bus, size) != size)
                                                 bench::fail("the bare call failed");
                                         })},
                                        rounds, perRound);
    const Child flooding(flood);
    usleep(200'000);
    samples.clear();
    ask(rounds * perRound, samples);
    bench::report("interfaces", static_cast<double>(last.interfaces.size()));
    bench::report("bytes", size);
    bench::report("status", medians[0]);
    bench::report("bare", medians[1]);
    bench::report("flooded-p99", bench::percentile(samples, 0.99));
}

Task<void> askNobody(TarnXPCClient &client, MainActor &actor, bool &isTold) {
    try {
        co_await client.status(limit);
    } catch (const TarnXPCClientError &error) {
        isTold = error.kind() == TarnXPCClientError::Kind::unavailable;
    }
    actor.post([&actor] { actor.stop(); });
}

void nobody() {
    const auto platform = makePlatform();
    auto &actor = platform->mainActor();
    double longest = 0;
    for (int i = 0; i < rounds; ++i) {
        TarnXPCClient client(platform->connector(), actor);
        bool isTold = false;
        const auto start = bench::Clock::now();
        detach(askNobody(client, actor, isTold));
        actor.run();
        longest = std::max(longest, bench::milliseconds(bench::Clock::now() - start));
        if (!isTold)
            bench::fail("somebody is there");
    }
    bench::report("longest", longest);
}

} // namespace

int main(int count, char **values) {
    const std::string_view mode = count == 2 ? values[1] : "";
    if (mode == "decode")
        decode();
    else if (mode == "status")
        status();
    else if (mode == "nobody")
        nobody();
    else
        bench::fail("decode, status or nobody expected");
}
