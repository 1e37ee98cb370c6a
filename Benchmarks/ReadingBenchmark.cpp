// ReadingBenchmark: one reading of the network, beside a bare dump of links, addresses and routes.
// ReadingBenchmark COUNT: so many readings and nothing else, for counting system calls.

#include "Benchmarks/Measure.h"
#include "Platform/Platform.h"
#include "TarnSystem/SystemStateReader.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace tarn;
using bench::check;

constexpr std::chrono::seconds settling{2};
constexpr int rounds = 20;
constexpr std::chrono::milliseconds roundLength{25};

alignas(nlmsghdr) std::array<char, 32768> buffer;

/// True once the end of the dump was among the messages.
bool hasEnded(std::size_t size) {
    for (const auto *message = reinterpret_cast<const nlmsghdr *>(buffer.data()); NLMSG_OK(message, size);
         message = NLMSG_NEXT(message, size)) {
        if (message->nlmsg_type == NLMSG_ERROR)
            bench::fail("a dump was refused");
        if (message->nlmsg_type == NLMSG_DONE)
            return true;
    }
    return false;
}

template <class Body> void dump(int descriptor, std::uint16_t type, const Body &body) {
    struct {
        nlmsghdr header;
        Body body;
    } request{{sizeof request, type, NLM_F_REQUEST | NLM_F_DUMP, 0, 0}, body};
    check(send(descriptor, &request, sizeof request, 0) == sizeof request, "send");
    ssize_t size = 0;
    do {
        size = recv(descriptor, buffer.data(), buffer.size(), 0);
        check(size > 0, "recv");
    } while (!hasEnded(static_cast<std::size_t>(size)));
}

/// The least that a reading can be: a fresh socket and three dumps without counters and without routes of
/// other tables, nothing done with them.
void dumpBare() {
    const int descriptor = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    check(descriptor >= 0, "socket");
    const int on = 1;
    check(setsockopt(descriptor, SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof on) == 0, "setsockopt");
    struct {
        ifinfomsg info;
        rtattr header;
        std::uint32_t mask;
    } links{{}, {RTA_LENGTH(sizeof links.mask), IFLA_EXT_MASK}, RTEXT_FILTER_SKIP_STATS};
    rtmsg routes{};
    routes.rtm_table = RT_TABLE_MAIN;
    routes.rtm_type = RTN_UNICAST;
    dump(descriptor, RTM_GETLINK, links);
    dump(descriptor, RTM_GETADDR, ifaddrmsg{});
    dump(descriptor, RTM_GETROUTE, routes);
    close(descriptor);
}

} // namespace

int main(int count, char **values) {
    const auto platform = makePlatform();
    const std::string client = SystemStateReader::clientName;
    SystemStateReader reader(platform->openDynamicStore(client), platform->openNetworkPreferences(client),
                             platform->wifi());
    if (count > 1) {
        for (int left = std::atoi(values[1]); left > 0; --left)
            reader.readInterfaces();
        return 0;
    }

    // A network that was made just now still changes.
    int warmUps = 0;
    for (const auto start = bench::Clock::now(); bench::Clock::now() - start < settling; ++warmUps)
        reader.readInterfaces();
    const int perRound =
        std::max(1, static_cast<int>(warmUps * (roundLength / std::chrono::duration<double>(settling))));
    const auto medians = bench::medians(
        {bench::timed([&] { reader.readInterfaces(); }), bench::timed(dumpBare)}, rounds, perRound);
    bench::report("interfaces", static_cast<double>(reader.readInterfaces().size()));
    bench::report("reading", medians[0]);
    bench::report("dump", medians[1]);
}
