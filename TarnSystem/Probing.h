#pragma once

#include "TarnSystem/ProbeOutcome.h"
#include "TarnSystem/Task.h"

#include <optional>
#include <string>

namespace tarn {

/// Asks a name server through one interface. One attempt a call, never a retry.
///
/// Thread: main actor; the task ends there. Any number of calls may be under way.
/// Arguments: `device` is an interface name; `server` an address, possibly with a zone, or a
///   host name; `localAddress` an address of the interface, possibly with a zone, which serves
///   when the interface itself cannot be required; `timeout` in seconds, a negative one is 0.
/// Errors: none is thrown; they are outcomes.
class Probing {
public:
    virtual ~Probing() = default;
    /// Whether any reply comes back.
    virtual Task<ProbeOutcome> probe(std::string device, std::string server,
                                     std::optional<std::string> localAddress, double timeout) = 0;
    /// What the server says of `name`.
    virtual Task<DNSVerdict> ask(std::string device, std::string server, std::string name,
                                 std::optional<std::string> localAddress, double timeout) = 0;
};

} // namespace tarn
