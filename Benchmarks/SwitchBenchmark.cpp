// SwitchBenchmark DEVICE FAR-NETWORK ROUNDS PAUSE DAEMON
//   Plays NetworkManager with a radio on the system bus and starts the daemon. The far end of a cable is
//   pulled, PAUSE milliseconds after Wi-Fi went off: until the wish to switch Wi-Fi on arrives.

#include "Benchmarks/Cable.h"
#include "Benchmarks/Measure.h"

#include <csignal>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace {

using namespace tarn;
using namespace std::chrono_literals;
using bench::Clock;

constexpr const char *path = "/org/freedesktop/NetworkManager";
constexpr const char *name = "org.freedesktop.NetworkManager";

/// As much of NetworkManager as tells of a radio and lets it be switched.
class Manager {
public:
    Manager() {
        bench::check(sd_bus_open_system(&bus_) >= 0, "the bus");
        bench::check(sd_bus_add_object_vtable(bus_, nullptr, path, name, managerTable, this) >= 0, path);
        bench::check(sd_bus_add_object_vtable(bus_, nullptr, "/org/freedesktop/NetworkManager/DnsManager",
                                              "org.freedesktop.NetworkManager.DnsManager", serversTable,
                                              this) >= 0,
                     "DnsManager");
        bench::check(sd_bus_request_name(bus_, name, 0) >= 0, name);
    }
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;
    ~Manager() { sd_bus_flush_close_unref(bus_); }

    /// Serves until Wi-Fi is wanted so; when that was.
    Clock::time_point serveUntil(bool isOn) {
        const auto deadline = Clock::now() + 20s;
        while (isOn_ != isOn) {
            if (Clock::now() > deadline)
                bench::fail("waited in vain");
            serve(10ms);
        }
        return wanted_;
    }
    void serveFor(Clock::duration time) {
        for (const auto end = Clock::now() + time; Clock::now() < end;)
            serve(10ms);
    }

private:
    void serve(std::chrono::microseconds wait) {
        int done = 0;
        while ((done = sd_bus_process(bus_, nullptr)) > 0)
            ;
        bench::check(done == 0 && sd_bus_wait(bus_, static_cast<std::uint64_t>(wait.count())) >= 0,
                     "the bus");
    }

    static int isOn(sd_bus *, const char *, const char *, const char *, sd_bus_message *reply, void *self,
                    sd_bus_error *) {
        return sd_bus_message_append(reply, "b", int{static_cast<Manager *>(self)->isOn_});
    }
    static int setOn(sd_bus *, const char *, const char *, const char *, sd_bus_message *value, void *self,
                     sd_bus_error *) {
        auto &manager = *static_cast<Manager *>(self);
        manager.wanted_ = Clock::now();
        int isOn = 0;
        const int read = sd_bus_message_read(value, "b", &isOn);
        manager.isOn_ = isOn != 0;
        return read;
    }
    static int yes(sd_bus *, const char *, const char *, const char *, sd_bus_message *reply, void *,
                   sd_bus_error *) {
        return sd_bus_message_append(reply, "b", 1);
    }
    static int noPaths(sd_bus *, const char *, const char *, const char *, sd_bus_message *reply, void *,
                       sd_bus_error *) {
        return sd_bus_message_append(reply, "ao", 0);
    }
    static int noServers(sd_bus *, const char *, const char *, const char *, sd_bus_message *reply, void *,
                         sd_bus_error *) {
        return sd_bus_message_append(reply, "aa{sv}", 0);
    }

    static const sd_bus_vtable managerTable[];
    static const sd_bus_vtable serversTable[];

    sd_bus *bus_ = nullptr;
    bool isOn_ = true;
    Clock::time_point wanted_;
};

const sd_bus_vtable Manager::managerTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_WRITABLE_PROPERTY("WirelessEnabled", "b", isOn, setOn, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("WirelessHardwareEnabled", "b", yes, 0, 0),
    SD_BUS_PROPERTY("ActiveConnections", "ao", noPaths, 0, 0),
    SD_BUS_PROPERTY("Devices", "ao", noPaths, 0, 0),
    SD_BUS_VTABLE_END,
};
const sd_bus_vtable Manager::serversTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Configuration", "aa{sv}", noServers, 0, 0),
    SD_BUS_VTABLE_END,
};

} // namespace

int main(int count, char **values) {
    if (count != 6)
        bench::fail("see the top of SwitchBenchmark.cpp");
    const bench::Cable cable(values[1], values[2]);
    cable.pull();
    Manager manager;
    const pid_t daemon = fork();
    bench::check(daemon >= 0, "fork");
    if (daemon == 0) {
        execl(values[5], values[5], "--probe-mode", "off", nullptr);
        _exit(127);
    }
    bench::Samples times;
    for (int rounds = std::atoi(values[3]); rounds > 0; --rounds) {
        cable.plug();
        manager.serveUntil(false);
        manager.serveFor(std::chrono::milliseconds(std::atoi(values[4])));
        const auto start = cable.pull();
        times.push_back(bench::milliseconds(manager.serveUntil(true) - start));
    }
    kill(daemon, SIGKILL);
    waitpid(daemon, nullptr, 0);
    bench::report("median", bench::median(times));
    bench::report("p99", bench::percentile(times, 0.99));
}
