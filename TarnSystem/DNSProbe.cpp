#include "TarnSystem/DNSProbe.h"

#include "TarnSystem/DNSMessage.h"
#include "TarnSystem/Once.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace tarn {
namespace {

constexpr std::uint16_t dnsPort = 53;

double seconds(MainActor::Duration duration) {
    return std::chrono::duration<double>(duration).count();
}

} // namespace

/// One query and what comes back. Reply, failure and time limit may meet on different threads:
/// whoever claims `finished_` completes the exchange, everybody else does nothing.
class DNSProbe::Exchange : public std::enable_shared_from_this<Exchange> {
public:
    Exchange(MainActor &actor, std::shared_ptr<DatagramConnection> connection, std::uint16_t id,
             std::vector<std::byte> query, Callback<Ending>::Resume completion)
        : actor_(actor), connection_(std::move(connection)), id_(id), query_(std::move(query)),
          completion_(std::move(completion)) {}

    void start(MainActor::Duration limit, const std::string &queueLabel) {
        const auto self = shared_from_this();
        timer_ = actor_.postAfter(std::max(limit, MainActor::Duration::zero()),
                                  [self] { self->finish(ProbeOutcome::timeout()); });
        connection_->start(queueLabel, [self](DatagramConnection::State state, const std::string &error) {
            self->stateChanged(state, error);
        });
    }

private:
    void stateChanged(DatagramConnection::State state, const std::string &error) {
        switch (state) {
        case DatagramConnection::State::ready:
            sendQuery();
            break;
        case DatagramConnection::State::failed:
            actor_.cancel(timer_);
            finish(ProbeOutcome::error(error));
            break;
        case DatagramConnection::State::cancelled:
            actor_.cancel(timer_);
            break;
        case DatagramConnection::State::setup:
        case DatagramConnection::State::preparing:
        case DatagramConnection::State::waiting:
            // A path may still come up; without one the time limit ends the exchange.
            break;
        }
    }

    void sendQuery() {
        sent_ = actor_.now();
        connection_->send(query_, [self = shared_from_this()](std::optional<std::string> error) {
            if (error)
                self->finish(ProbeOutcome::error(*std::move(error)));
        });
        // A path that changes makes a connection ready again: the query is sent again, but one
        // receive is enough.
        if (!std::exchange(isReceiving_, true))
            receiveOne();
    }

    void receiveOne() {
        connection_->receiveMessage(
            [self = shared_from_this()](std::optional<std::span<const std::byte>> datagram,
                                        std::optional<std::string> error) {
                self->received(datagram, std::move(error));
            });
    }

    void received(std::optional<std::span<const std::byte>> datagram, std::optional<std::string> error) {
        if (error) {
            finish(ProbeOutcome::error(*std::move(error)));
        } else if (datagram && DNSMessage::responseID(*datagram) == id_) {
            const double latency = sent_ ? seconds(actor_.now() - *sent_) : 0;
            actor_.cancel(timer_);
            finish(ProbeOutcome::reachable(latency),
                   std::vector<std::byte>(datagram->begin(), datagram->end()));
        } else {
            // Stray or forged: it must not end the exchange.
            receiveOne();
        }
    }

    void finish(ProbeOutcome outcome, std::optional<std::vector<std::byte>> response = std::nullopt) {
        if (!finished_.claim())
            return;
        connection_->cancel();
        completion_({std::move(outcome), std::move(response)});
    }

    MainActor &actor_;
    const std::shared_ptr<DatagramConnection> connection_;
    const std::uint16_t id_;
    const std::vector<std::byte> query_;
    const Callback<Ending>::Resume completion_;
    MainActor::TimerID timer_ = 0;
    std::optional<MainActor::TimePoint> sent_;
    bool isReceiving_ = false;
    Once finished_;
};

Task<ProbeOutcome> DNSProbe::probe(std::string device, std::string server,
                                   std::optional<std::string> localAddress, double timeout) {
    const Ending ending =
        co_await exchange(std::move(device), std::move(server), name_, std::move(localAddress), timeout);
    co_return ending.outcome;
}

Task<DNSVerdict> DNSProbe::ask(std::string device, std::string server, std::string name,
                               std::optional<std::string> localAddress, double timeout) {
    const Ending ending = co_await exchange(std::move(device), std::move(server), std::move(name),
                                            std::move(localAddress), timeout);
    co_return verdict(ending.outcome, ending.response);
}

Task<std::optional<NetworkInterface>> DNSProbe::findInterface(std::string named) {
    Callback<std::optional<NetworkInterface>> found(services_.actor, [&](auto resume) {
        services_.interfaces.findInterface(named, "tarnlink.dnsprobe.pathmonitor", std::move(resume));
    });
    co_return co_await found;
}

Task<DNSProbe::Ending> DNSProbe::exchange(std::string device, std::string server, std::string name,
                                          std::optional<std::string> localAddress, double timeout) {
    DatagramParameters parameters;
    parameters.requiredInterface = co_await findInterface(device);
    if (!parameters.requiredInterface) {
        if (!localAddress)
            co_return Ending{ProbeOutcome::error("interface " + device + " not available"), std::nullopt};
        parameters.requiredLocalAddress = localAddress->substr(0, localAddress->find('%'));
    }
    auto connection = services_.network.connect(server, dnsPort, parameters);
    const auto id = DNSMessage::randomID(services_.random);
    auto query = DNSMessage::query(id, name);
    Callback<Ending> ended(services_.actor, [&](auto resume) {
        std::make_shared<Exchange>(services_.actor, std::move(connection), id, std::move(query),
                                   std::move(resume))
            ->start(fromSeconds(timeout), "tarnlink.dnsprobe." + device);
    });
    co_return co_await ended;
}

} // namespace tarn
