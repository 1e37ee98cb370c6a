#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tarn {

/// An interface that the system can send through.
struct NetworkInterface {
    std::string name;
    std::uint32_t index = 0;
    /// The system's own object for it, where there is one.
    std::shared_ptr<const void> native;
};

/// Finds interfaces by name.
class InterfaceLookup {
public:
    using Completion = std::function<void(std::optional<NetworkInterface>)>;

    virtual ~InterfaceLookup() = default;
    /// Calls `completion` exactly once with the interface of exactly this name, or with none;
    /// on any thread, possibly inside the call. `queueLabel` names the system's queue in diagnostics.
    virtual void findInterface(const std::string &name, const std::string &queueLabel,
                               Completion completion) = 0;
};

struct DatagramParameters {
    bool prohibitExpensivePaths = false;
    bool allowLocalEndpointReuse = true;
    /// Traffic leaves through this interface, whatever the routing table says.
    std::optional<NetworkInterface> requiredInterface;
    /// Numeric local address without zone, to bind to with any port.
    std::optional<std::string> requiredLocalAddress;
};

/// One UDP conversation with one peer. Datagrams from anybody else are not delivered, and each
/// connection has a local port of its own, drawn at random by the system (RFC 5452, section 9.2).
///
/// Thread: handlers are called one at a time, on any thread, possibly inside the call that
///   they answer. Calls may come from any thread that a handler runs on, and from the creator's.
/// Ownership: holds its handlers until cancel() has been reported, then drops them.
/// Errors: an error is the system's own description of it for people.
class DatagramConnection {
public:
    enum class State { setup, preparing, waiting, ready, failed, cancelled };
    /// `error` is empty unless the state is failed or waiting.
    using StateHandler = std::function<void(State state, const std::string &error)>;
    using SendCompletion = std::function<void(std::optional<std::string> error)>;
    /// A whole datagram, valid during the call; or none, with the error if there was one.
    using ReceiveCompletion = std::function<void(std::optional<std::span<const std::byte>> datagram,
                                                 std::optional<std::string> error)>;

    virtual ~DatagramConnection() = default;

    /// Begins; `queueLabel` names the system's queue in diagnostics. Once only.
    virtual void start(const std::string &queueLabel, StateHandler handler) = 0;
    /// Sends one datagram. Only while ready.
    virtual void send(std::vector<std::byte> datagram, SendCompletion completion) = 0;
    /// Waits for one datagram. Only while ready; one at a time.
    virtual void receiveMessage(ReceiveCompletion completion) = 0;
    /// Ends the conversation: `cancelled` is reported once, after that nothing is, and further
    /// calls do nothing.
    virtual void cancel() = 0;
};

/// Makes datagram connections.
class DatagramNetwork {
public:
    virtual ~DatagramNetwork() = default;
    /// `host` is a numeric address, possibly with a zone, or a host name. A required interface
    /// comes from this system's InterfaceLookup. Never null.
    virtual std::shared_ptr<DatagramConnection> connect(const std::string &host, std::uint16_t port,
                                                        const DatagramParameters &parameters) = 0;
};

} // namespace tarn
