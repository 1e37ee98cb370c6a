// WatchBenchmark loss DEVICE FAR-NETWORK ROUNDS PAUSE
//   The far end of a cable is pulled, PAUSE milliseconds after it was plugged in: until the handler has it.
// WatchBenchmark flap DEVICE FAR-NETWORK ROUNDS 0
//   The same, 5 to 600 ms after the cable came up.
// WatchBenchmark manager DEVICE FAR-NETWORK ROUNDS PAUSE
//   The same with the default delay, beside the time until NetworkManager lets the device go.
// WatchBenchmark storm DEVICE awake|asleep ROUNDS CHANGES
//   A burst of changes, sent while the reader may run or while it may not.
// WatchBenchmark idle
//   Watches, and does nothing else.

#include "Benchmarks/Cable.h"
#include "Benchmarks/Measure.h"
#include "Platform/Platform.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/Descriptor.h"
#include "TarnSystem/SCDynamicStoreEventSource.h"
#include "TarnSystem/SystemStateReader.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <memory>
#include <net/if.h>
#include <random>
#include <sched.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <thread>

namespace {

using namespace tarn;
using namespace std::chrono_literals;
using bench::Clock;
using Time = std::atomic<Clock::time_point>;

constexpr auto never = Clock::time_point::max();

class Machine {
public:
    explicit Machine(double debounce, const std::string &device) {
        key_ = "State:/Network/Interface/" + device + "/Link";
        source_.start(debounce, [this](const std::vector<std::string> &keys) {
            if (std::ranges::find(keys, key_) != keys.end())
                told_ = Clock::now();
            ++batches;
            lastBatch = Clock::now();
            if (isReading)
                picture = reader_.readInterfaces();
        });
    }

    void runFor(Clock::duration time) {
        platform_->mainActor().postAfter(time, [this] { platform_->mainActor().stop(); });
        platform_->mainActor().run();
    }
    void run() { platform_->mainActor().run(); }
    void runUntil(const std::function<bool()> &condition) {
        const auto deadline = Clock::now() + 20s;
        while (!condition() && Clock::now() < deadline)
            runFor(1ms);
        if (!condition())
            bench::fail("waited in vain");
    }
    /// Runs until the link is told of, or not any more; when it was told.
    Clock::time_point runUntilTold() {
        runUntil([this] { return told_.load() != never; });
        return told_;
    }
    void forget() { told_ = never; }
    std::vector<InterfaceSnapshot> freshPicture() { return reader_.readInterfaces(); }

    int batches = 0;
    Clock::time_point lastBatch = Clock::now();
    bool isReading = false;
    std::vector<InterfaceSnapshot> picture;

private:
    std::unique_ptr<Platform> platform_ = makePlatform();
    SystemStateReader reader_{platform_->openDynamicStore("bench"),
                              platform_->openNetworkPreferences("bench"), platform_->wifi()};
    SCDynamicStoreEventSource source_{[this](const std::string &name, DynamicStoreWatch::Callback callback) {
                                          return platform_->watchDynamicStore(name, std::move(callback));
                                      },
                                      platform_->mainActor()};
    std::string key_;
    Time told_ = never;
};

/// One loss after the pause: from the pull to the handler's call.
double lose(Machine &machine, const bench::Cable &cable, Clock::duration pause) {
    machine.forget();
    cable.plug();
    machine.runUntilTold();
    machine.runFor(pause);
    machine.forget();
    Time pulled = never;
    // In the midst of the loop's sleep, as a hand would.
    std::thread hand([&] {
        std::this_thread::sleep_for(2ms);
        pulled = cable.pull();
    });
    const auto told = machine.runUntilTold();
    hand.join();
    return bench::milliseconds(told - pulled.load());
}

void measureLosses(const char *device, const char *network, int rounds,
                   const std::function<Clock::duration()> &pause) {
    Machine machine(0, device);
    const bench::Cable cable(device, network);
    cable.pull();
    machine.runFor(500ms);
    bench::Samples samples;
    for (int i = 0; i < rounds; ++i)
        samples.push_back(lose(machine, cable, pause()));
    cable.plug();
    bench::report("median", bench::percentile(samples, 0.5));
    bench::report("p99", bench::percentile(samples, 0.99));
    bench::report("most", bench::percentile(samples, 1));
}

/// NetworkManager's state of a device (NMDeviceState); 100 is "activated".
class Manager {
public:
    explicit Manager(const char *device) {
        check(sd_bus_open_system(&bus_));
        sd_bus_message *reply = nullptr;
        check(sd_bus_call_method(bus_, service, "/org/freedesktop/NetworkManager", service,
                                 "GetDeviceByIpIface", nullptr, &reply, "s", device));
        const char *path = nullptr;
        check(sd_bus_message_read(reply, "o", &path));
        path_ = path;
        sd_bus_message_unref(reply);
    }
    ~Manager() { sd_bus_close_unref(bus_); }
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;
    bool isActivated() const {
        std::uint32_t state = 0;
        check(sd_bus_get_property_trivial(bus_, service, path_.c_str(),
                                          "org.freedesktop.NetworkManager.Device", "State", nullptr, 'u',
                                          &state));
        return state == 100;
    }

private:
    static constexpr const char *service = "org.freedesktop.NetworkManager";
    static void check(int result) {
        if (result < 0)
            bench::fail("NetworkManager does not answer");
    }
    sd_bus *bus_ = nullptr;
    std::string path_;
};

void measureBesideManager(const char *device, const char *network, int rounds, Clock::duration pause) {
    Machine machine(DaemonConfig().eventDebounce, device);
    const bench::Cable cable(device, network);
    const Manager manager(device);
    bench::Samples ours;
    bench::Samples theirs;
    for (int i = 0; i < rounds; ++i) {
        cable.plug();
        machine.runUntil([&] { return manager.isActivated(); });
        machine.runFor(pause);
        machine.forget();
        const auto pulled = cable.pull();
        ours.push_back(bench::milliseconds(machine.runUntilTold() - pulled));
        machine.runUntil([&] { return !manager.isActivated(); });
        theirs.push_back(bench::milliseconds(Clock::now() - pulled));
    }
    cable.plug();
    bench::report("ours", bench::percentile(ours, 0.5));
    bench::report("theirs", bench::percentile(theirs, 0.5));
}

/// Adds or removes an IPv4 address without waiting for the kernel's word.
class AddressChanges {
public:
    explicit AddressChanges(const char *device) : index_(if_nametoindex(device)) {
        bench::check(index_ != 0 && socket_, device);
    }
    void send(std::uint16_t type, std::uint32_t address) {
        struct {
            nlmsghdr header;
            ifaddrmsg message;
            rtattr attribute;
            std::uint32_t address;
        } request{};
        request.header.nlmsg_len = sizeof request;
        request.header.nlmsg_type = type;
        request.header.nlmsg_flags = NLM_F_REQUEST;
        if (type == RTM_NEWADDR)
            request.header.nlmsg_flags |= NLM_F_CREATE;
        request.message.ifa_family = AF_INET;
        request.message.ifa_prefixlen = 32;
        request.message.ifa_index = index_;
        request.attribute = {RTA_LENGTH(sizeof address), IFA_LOCAL};
        request.address = htonl(address);
        bench::check(::send(socket_.get(), &request, sizeof request, 0) > 0, "send");
    }

private:
    unsigned index_;
    Descriptor socket_{socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)};
};

void measureStorms(const char *device, bool isAwake, int rounds, int changes) {
    Machine machine(DaemonConfig().eventDebounce, device);
    machine.isReading = true;
    machine.runFor(500ms);
    AddressChanges addresses(device);
    std::minstd_rand random;
    int right = 0;
    int mostBatches = 0;
    std::vector<std::uint32_t> left;
    for (int round = 0; round < rounds; ++round) {
        machine.batches = 0;
        const auto storm = [&] {
            for (const auto address : std::exchange(left, {}))
                addresses.send(RTM_DELADDR, address);
            for (int i = 0; i < changes / 2; ++i) {
                const std::uint32_t address = 0x0a010000U + static_cast<std::uint32_t>(i % 250);
                addresses.send(RTM_NEWADDR, address);
                addresses.send(RTM_DELADDR, address);
            }
            // What is there at the end differs from round to round.
            for (auto i = random() % 8; i > 0; --i)
                addresses.send(RTM_NEWADDR, left.emplace_back(0x0a020000U + random() % 1000));
        };
        if (isAwake) {
            std::atomic<bool> isOver = false;
            std::thread sender([&] {
                storm();
                isOver = true;
            });
            machine.runUntil([&] { return isOver.load(); });
            sender.join();
        } else {
            storm();
        }
        const auto over = Clock::now();
        machine.runUntil([&] {
            const auto quiet = std::max(machine.lastBatch, over) + 350ms;
            return Clock::now() > quiet;
        });
        mostBatches = std::max(mostBatches, machine.batches);
        right += machine.batches > 0 && machine.picture == machine.freshPicture();
    }
    bench::report("batches", mostBatches);
    bench::report("wrong", rounds - right);
}

} // namespace

int main(int count, char **values) {
    const auto is = [&](std::string_view mode, int arguments) {
        return count == arguments && values[1] == mode;
    };
    const auto number = [&](int position) { return std::atoi(values[position]); };
    const auto pause = [&] { return std::chrono::milliseconds(number(5)); };
    if (is("loss", 6)) {
        measureLosses(values[2], values[3], number(4), pause);
    } else if (is("flap", 6)) {
        std::minstd_rand random;
        std::uniform_int_distribution gap(5, 600);
        measureLosses(values[2], values[3], number(4),
                      [&] { return std::chrono::milliseconds(gap(random)); });
    } else if (is("manager", 6)) {
        measureBesideManager(values[2], values[3], number(4), pause());
    } else if (is("storm", 6)) {
        measureStorms(values[2], std::string_view(values[3]) == "awake", number(4), number(5));
    } else if (count == 2 && values[1] == std::string_view("idle")) {
        Machine(DaemonConfig().eventDebounce, "").run();
    } else {
        bench::fail("wrong use");
    }
}
