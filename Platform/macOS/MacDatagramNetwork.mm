#include "Platform/macOS/MacDatagramNetwork.h"

#include "Platform/macOS/CFRef.h"
#include "Platform/macOS/CFText.h"

#import <Foundation/Foundation.h>
#import <Network/Network.h>

#include <mutex>
#include <stdexcept>
#include <utility>

namespace tarn {
namespace {

using State = DatagramConnection::State;
using StateHandler = DatagramConnection::StateHandler;
using SendCompletion = DatagramConnection::SendCompletion;
using ReceiveCompletion = DatagramConnection::ReceiveCompletion;

std::optional<std::string> description(nw_error_t error) {
    if (!error)
        return std::nullopt;
    const auto cfError = CFRef<CFErrorRef>::adopt(nw_error_copy_cf_error(error));
    return text(CFRef<CFStringRef>::adopt(CFErrorCopyDescription(cfError.get())).get());
}

/// None for a state that has no meaning for a connection in use.
std::optional<State> translate(nw_connection_state_t state) {
    switch (state) {
    case nw_connection_state_waiting:
        return State::waiting;
    case nw_connection_state_preparing:
        return State::preparing;
    case nw_connection_state_ready:
        return State::ready;
    case nw_connection_state_failed:
        return State::failed;
    case nw_connection_state_cancelled:
        return State::cancelled;
    case nw_connection_state_invalid:
        break;
    }
    return std::nullopt;
}

/// What the blocks of a connection hold. It holds the connection, which holds the blocks: the
/// report of `cancelled` breaks this circle.
class Conversation final : public std::enable_shared_from_this<Conversation> {
public:
    explicit Conversation(nw_connection_t connection) : connection_(connection) {}

    void start(const std::string &queueLabel, StateHandler handler) {
        nw_connection_t connection = nil;
        {
            const std::lock_guard guard(lock_);
            connection = connection_;
            handler_ = std::move(handler);
        }
        dispatch_queue_attr_t attributes = dispatch_queue_attr_make_with_autorelease_frequency(
            DISPATCH_QUEUE_SERIAL, DISPATCH_AUTORELEASE_FREQUENCY_INHERIT);
        nw_connection_set_queue(connection, dispatch_queue_create(queueLabel.c_str(), attributes));
        const auto self = shared_from_this();
        nw_connection_set_state_changed_handler(connection, ^(nw_connection_state_t state, nw_error_t error) {
            // The block itself may go while it runs.
            const auto conversation = self;
            conversation->stateChanged(state, error);
        });
        nw_connection_start(connection);
        bool ended = false;
        {
            const std::lock_guard guard(lock_);
            started_ = true;
            ended = ended_;
        }
        // Only what has been started reports its end.
        if (ended)
            nw_connection_cancel(connection);
    }

    void send(const std::vector<std::byte> &datagram, SendCompletion completion) {
        nw_connection_t connection = connectionInUse();
        if (!connection)
            return;
        dispatch_data_t content =
            dispatch_data_create(datagram.data(), datagram.size(), nullptr, DISPATCH_DATA_DESTRUCTOR_DEFAULT);
        const auto self = shared_from_this();
        nw_connection_send(connection, content, NW_CONNECTION_DEFAULT_MESSAGE_CONTEXT, true,
                           ^(nw_error_t error) {
                               if (!self->hasEnded())
                                   completion(description(error));
                           });
    }

    void receiveMessage(ReceiveCompletion completion) {
        nw_connection_t connection = connectionInUse();
        if (!connection)
            return;
        const auto self = shared_from_this();
        nw_connection_receive_message(
            connection, ^(dispatch_data_t content, nw_content_context_t, bool, nw_error_t error) {
                if (self->hasEnded())
                    return;
                if (!content) {
                    completion(std::nullopt, description(error));
                    return;
                }
                const void *bytes = nullptr;
                std::size_t size = 0;
                // Owns the bytes; it is not named again, and ARC would let go of it at once.
                NS_VALID_UNTIL_END_OF_SCOPE dispatch_data_t mapped =
                    dispatch_data_create_map(content, &bytes, &size);
                completion(std::span(static_cast<const std::byte *>(bytes), size), description(error));
            });
    }

    void cancel() {
        nw_connection_t connection = nil;
        {
            const std::lock_guard guard(lock_);
            if (!ended_ && started_)
                connection = connection_;
            ended_ = true;
        }
        if (connection)
            nw_connection_cancel(connection);
    }

    /// Ends without a report, unless the end has been asked for before.
    void abandon() {
        StateHandler dropped;
        {
            const std::lock_guard guard(lock_);
            if (ended_)
                return;
            dropped.swap(handler_);
        }
        cancel();
    }

private:
    /// Once the end has been asked for, only that is reported.
    bool hasEnded() {
        const std::lock_guard guard(lock_);
        return ended_;
    }

    nw_connection_t connectionInUse() {
        const std::lock_guard guard(lock_);
        return ended_ ? nil : connection_;
    }

    void stateChanged(nw_connection_state_t state, nw_error_t error) {
        const auto translated = translate(state);
        if (!translated)
            return;
        const bool isLast = *translated == State::cancelled;
        // Released outside the lock and after the report: it may take this object with it.
        NS_VALID_UNTIL_END_OF_SCOPE nw_connection_t finished = nil;
        StateHandler handler;
        {
            const std::lock_guard guard(lock_);
            if (isLast) {
                finished = connection_;
                connection_ = nil;
                ended_ = true;
                handler.swap(handler_);
            } else if (!ended_) {
                handler = handler_;
            }
        }
        if (!handler)
            return;
        const bool hasReason = *translated == State::waiting || *translated == State::failed;
        handler(*translated, hasReason ? description(error).value_or(std::string()) : std::string());
    }

    std::mutex lock_;
    nw_connection_t connection_;
    StateHandler handler_;
    bool started_ = false;
    bool ended_ = false;
};

class MacDatagramConnection final : public DatagramConnection {
public:
    explicit MacDatagramConnection(nw_connection_t connection)
        : conversation_(std::make_shared<Conversation>(connection)) {}
    ~MacDatagramConnection() override { conversation_->abandon(); }

    void start(const std::string &queueLabel, StateHandler handler) override {
        conversation_->start(queueLabel, std::move(handler));
    }
    void send(std::vector<std::byte> datagram, SendCompletion completion) override {
        conversation_->send(datagram, std::move(completion));
    }
    void receiveMessage(ReceiveCompletion completion) override {
        conversation_->receiveMessage(std::move(completion));
    }
    void cancel() override { conversation_->cancel(); }

private:
    std::shared_ptr<Conversation> conversation_;
};

} // namespace

std::shared_ptr<DatagramConnection> MacDatagramNetwork::connect(const std::string &host, std::uint16_t port,
                                                                const DatagramParameters &parameters) {
    nw_parameters_t nwParameters =
        nw_parameters_create_secure_udp(NW_PARAMETERS_DISABLE_PROTOCOL, NW_PARAMETERS_DEFAULT_CONFIGURATION);
    nw_parameters_set_prohibit_expensive(nwParameters, parameters.prohibitExpensivePaths);
    nw_parameters_set_reuse_local_address(nwParameters, parameters.allowLocalEndpointReuse);
    if (parameters.requiredInterface) {
        const void *native = parameters.requiredInterface->native.get();
        // Null would mean any interface: a probe could then succeed through the wrong one.
        if (!native)
            throw std::invalid_argument("requiredInterface");
        nw_parameters_require_interface(nwParameters, (__bridge nw_interface_t)native);
    }
    if (parameters.requiredLocalAddress)
        nw_parameters_set_local_endpoint(
            nwParameters, nw_endpoint_create_host(parameters.requiredLocalAddress->c_str(), "0"));
    nw_endpoint_t endpoint = nw_endpoint_create_host(host.c_str(), std::to_string(port).c_str());
    return std::make_shared<MacDatagramConnection>(nw_connection_create(endpoint, nwParameters));
}

} // namespace tarn
