#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <systemd/sd-bus.h>
#include <vector>

namespace tarn {

struct BusRelease {
    void operator()(sd_bus *bus) const { sd_bus_close_unref(bus); }
    void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
};
using BusMessage = std::unique_ptr<sd_bus_message, BusRelease>;

/// A service on the bus that is asked only while it runs.
struct BusService {
    const char *name;
    bool isRunning = false;
    /// Gave no answer in time since the last update(), and is not asked again before the next.
    bool isSilent = false;
    /// How often it came or went, or may have unseen.
    unsigned changes = 0;
    /// It is asked also when it does not run, and the bus starts it then.
    bool startsOnDemand = false;
};

/// Why a call had no answer.
struct BusFailure {
    /// The error's name, such as "org.freedesktop.DBus.Error.AccessDenied".
    std::string name;
    std::string message;
};

/// A connection to the system bus that waits for nothing longer than its limit and leaves a service
/// that does not run alone, unless it starts on demand.
///
/// Thread: one at a time. Ownership: the services must outlive the connection.
class BusConnection {
public:
    BusConnection(std::vector<BusService *> services, std::chrono::microseconds limit)
        : services_(std::move(services)), limit_(static_cast<std::uint64_t>(limit.count())) {}
    BusConnection(const BusConnection &) = delete;
    BusConnection &operator=(const BusConnection &) = delete;

    /// Opens the bus when it is not open, and learns which of its services came or went. Returns 0 or
    /// the system's error number; then no service counts as running.
    int update();

    /// A call to be filled in and sent; null when there is no connection, or the service does not
    /// run or is silent.
    BusMessage newCall(const BusService &service, const char *path, const char *interface,
                       const char *method);
    /// The answer to a call; null without one, with the reason in `failure` where that is wanted.
    BusMessage send(const BusMessage &call, BusFailure *failure = nullptr);
    /// The same within another limit, for what waits for a person.
    BusMessage send(const BusMessage &call, std::chrono::microseconds limit, BusFailure *failure = nullptr);
    /// A property's value, positioned inside the variant; null without an answer.
    BusMessage property(const BusService &service, const char *path, const char *interface,
                        const char *property, const char *type);
    /// All properties of an interface, an array of dictionary entries; null without an answer.
    BusMessage properties(const BusService &service, const char *path, const char *interface);

private:
    /// These return 0 or the system's error number.
    int open();
    int becomeReady();
    int watch(BusService &service);
    void close();

    std::unique_ptr<sd_bus, BusRelease> bus_;
    std::vector<BusService *> services_;
    std::uint64_t limit_; // microseconds
};

} // namespace tarn
