// ProbeBenchmark DEVICE SERVER NAME: one DNS exchange, done by DNSProbe on this platform's adapters, by bare
// system calls and by c-ares.

#include "Benchmarks/Measure.h"
#include "Platform/Platform.h"
#include "TarnSystem/DNSMessage.h"
#include "TarnSystem/DNSProbe.h"

#include <ares.h>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace tarn;
using bench::check;

constexpr int rounds = 40;
constexpr int perRound = 100;
constexpr int limitMilliseconds = 2000;

struct Question {
    std::string device;
    std::string server;
    std::string name;
};

Task<void> probeRepeatedly(MainActor &actor, Probing &prober, const Question &question, int count,
                           bench::Samples &samples) {
    for (int i = 0; i < count; ++i) {
        const auto start = bench::Clock::now();
        const auto outcome =
            co_await prober.probe(question.device, question.server, std::nullopt, limitMilliseconds / 1e3);
        samples.push_back(bench::microsecondsSince(start));
        if (outcome.kind != ProbeOutcome::Kind::reachable)
            bench::fail("no reply to a probe: " + outcome.message);
    }
    actor.post([&actor] { actor.stop(); });
}

/// The least that a probe can be: nothing but the system calls.
void exchangeBare(const Question &question, std::vector<std::byte> &query) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    check(descriptor >= 0, "socket");
    check(setsockopt(descriptor, SOL_SOCKET, SO_BINDTODEVICE, question.device.c_str(),
                     static_cast<socklen_t>(question.device.size() + 1)) == 0,
          "SO_BINDTODEVICE");
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(53);
    check(inet_pton(AF_INET, question.server.c_str(), &server.sin_addr) == 1, "inet_pton");
    check(connect(descriptor, reinterpret_cast<const sockaddr *>(&server), sizeof server) == 0, "connect");
    check(getrandom(query.data(), 2, 0) == 2, "getrandom");
    check(send(descriptor, query.data(), query.size(), 0) == static_cast<ssize_t>(query.size()), "send");

    std::array<std::byte, 512> reply;
    pollfd readable{descriptor, POLLIN, 0};
    do {
        check(poll(&readable, 1, limitMilliseconds) == 1, "poll");
        check(recv(descriptor, reply.data(), reply.size(), 0) >= 12, "recv");
    } while (std::memcmp(reply.data(), query.data(), 2) != 0);
    close(descriptor);
}

void checkCares(int status, const char *what) {
    if (status != ARES_SUCCESS)
        bench::fail(std::string(what) + ": " + ares_strerror(status));
}

void exchangeByCares(const Question &question) {
    ares_channel channel = nullptr;
    ares_options options{};
    options.timeout = limitMilliseconds;
    options.tries = 1;
    checkCares(ares_init_options(&channel, &options, ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES), "ares_init");
    checkCares(ares_set_servers_csv(channel, question.server.c_str()), "ares_set_servers");
    ares_set_local_dev(channel, question.device.c_str());
    bool isAnswered = false;
    const auto answered = [](void *flag, int status, int, unsigned char *, int) {
        checkCares(status, "ares_query");
        *static_cast<bool *>(flag) = true;
    };
    constexpr int classIN = 1;
    constexpr int typeA = 1;
    ares_query(channel, question.name.c_str(), classIN, typeA, answered, &isAnswered);
    while (!isAnswered) {
        ares_socket_t descriptor = ARES_SOCKET_BAD;
        check(ares_getsock(channel, &descriptor, 1) != 0, "ares_getsock");
        timeval rest{};
        ares_timeout(channel, nullptr, &rest);
        pollfd readable{descriptor, POLLIN, 0};
        poll(&readable, 1, static_cast<int>(rest.tv_sec * 1000 + rest.tv_usec / 1000 + 1));
        ares_process_fd(channel, readable.revents ? descriptor : ARES_SOCKET_BAD, ARES_SOCKET_BAD);
    }
    ares_destroy(channel);
}

} // namespace

int main(int count, char **values) {
    if (count != 4)
        bench::fail("DEVICE SERVER NAME expected");
    const Question question{values[1], values[2], values[3]};

    const auto platform = makePlatform();
    DNSProbe prober(question.name, {platform->mainActor(), platform->interfaceLookup(), platform->datagrams(),
                                    platform->random()});
    auto query = DNSMessage::query(0, question.name);
    checkCares(ares_library_init(ARES_LIB_INIT_ALL), "ares_library_init");

    const auto probe = [&](int repetitions, bench::Samples &samples) {
        detach(probeRepeatedly(platform->mainActor(), prober, question, repetitions, samples));
        platform->mainActor().run();
    };
    const auto medians = bench::medians({probe, bench::timed([&] { exchangeBare(question, query); }),
                                         bench::timed([&] { exchangeByCares(question); })},
                                        rounds, perRound);
    bench::report("probe", medians[0]);
    bench::report("bare", medians[1]);
    bench::report("cares", medians[2]);
    ares_library_cleanup();
}
