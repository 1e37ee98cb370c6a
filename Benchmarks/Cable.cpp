#include "Benchmarks/Cable.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>

namespace tarn::bench {

void inNetwork(const char *name, const std::function<void()> &work) {
    std::thread([&] {
        const Descriptor network(open((std::string("/run/netns/") + name).c_str(), O_RDONLY | O_CLOEXEC));
        check(network && setns(network.get(), CLONE_NEWNET) == 0, name);
        work();
    }).join();
}

Cable::Cable(const char *device, const char *network) : device_(device) {
    inNetwork(network, [this] { socket_ = Descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)); });
    check(bool(socket_), "socket");
}

Clock::time_point Cable::pull() const {
    const auto start = Clock::now();
    set(false);
    return start;
}

void Cable::set(bool isUp) const {
    ifreq request{};
    device_.copy(request.ifr_name, IFNAMSIZ - 1);
    check(ioctl(socket_.get(), SIOCGIFFLAGS, &request) == 0, "SIOCGIFFLAGS");
    request.ifr_flags = static_cast<short>(isUp ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP);
    check(ioctl(socket_.get(), SIOCSIFFLAGS, &request) == 0, "SIOCSIFFLAGS");
}

} // namespace tarn::bench
