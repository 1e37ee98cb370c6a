#include "Platform/Linux/UdpNetwork.h"

#include <cerrno>
#include <cstring>
#include <mutex>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <utility>

namespace tarn {
namespace {

constexpr auto pauseBeforeRetry = std::chrono::milliseconds(100);

struct Endpoint {
    sockaddr_storage address{};
    socklen_t size = 0;

    int family() const { return address.ss_family; }
};

std::string message(int error) {
    return std::generic_category().message(error);
}

/// A numeric or, after a look-up that may block, a named host.
std::optional<Endpoint> resolve(const std::string &host, std::uint16_t port, bool isNumeric,
                                std::string &error) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = AI_NUMERICSERV | (isNumeric ? AI_NUMERICHOST : 0);
    addrinfo *list = nullptr;
    const int result = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &list);
    if (result != 0) {
        error = result == EAI_SYSTEM ? message(errno) : gai_strerror(result);
        return std::nullopt;
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo *)> owner(list, freeaddrinfo);
    Endpoint endpoint;
    std::memcpy(&endpoint.address, list->ai_addr, list->ai_addrlen);
    endpoint.size = list->ai_addrlen;
    return endpoint;
}

// There is no path now; one may come up.
bool isWaitingFor(int error) {
    return error == ENETUNREACH || error == EHOSTUNREACH || error == EADDRNOTAVAIL || error == ENETDOWN;
}

} // namespace

struct UdpNetwork::Shared {
    explicit Shared(EventLoop &owner) : loop(owner) {}
    EventLoop &loop;
    // A look-up on a thread of its own may end after the network and its loop.
    std::mutex lock;
    bool isClosed = false; // guarded by lock
    // The largest datagram there is. One is enough: a datagram is handed on before the next is read.
    std::array<std::byte, 65536> buffer;
};

class UdpNetwork::Connection final : public DatagramConnection,
                                     public std::enable_shared_from_this<Connection> {
public:
    Connection(std::shared_ptr<Shared> shared, std::string host, std::uint16_t port,
               DatagramParameters parameters)
        : shared_(std::move(shared)), host_(std::move(host)), port_(port),
          parameters_(std::move(parameters)) {}

    ~Connection() override { release(); }

    void start(const std::string &, StateHandler handler) override {
        handler_ = std::move(handler);
        std::string error;
        if (auto endpoint = resolve(host_, port_, true, error))
            open(*endpoint);
        else
            lookUpHost();
    }

    void send(std::vector<std::byte> datagram, SendCompletion completion) override {
        if (isCancelled_)
            return;
        const auto sent = ::send(socket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL);
        completion(sent < 0 ? std::optional(message(errno)) : std::nullopt);
    }

    void receiveMessage(ReceiveCompletion completion) override {
        if (isCancelled_)
            return;
        receive_ = std::move(completion);
        if (source_)
            return;
        const auto readable = [](sd_event_source *, int, std::uint32_t, void *self) {
            // The handler may let go of the connection.
            static_cast<Connection *>(self)->shared_from_this()->takeDatagram();
            return 0;
        };
        const int result =
            sd_event_add_io(shared_->loop.event(), &source_, socket_.get(), EPOLLIN, readable, this);
        if (result < 0)
            std::exchange(receive_, nullptr)(std::nullopt, message(-result));
    }

    void cancel() override {
        if (std::exchange(isCancelled_, true))
            return;
        const auto self = shared_from_this();
        release();
        receive_ = nullptr;
        const auto handler = std::exchange(handler_, nullptr);
        if (handler)
            handler(State::cancelled, {});
    }

private:
    void release() {
        source_ = sd_event_source_disable_unref(source_);
        socket_ = Descriptor();
        shared_->loop.cancel(std::exchange(retry_, 0));
    }

    void report(State state, const std::string &error = {}) {
        // A copy, because the handler may cancel.
        if (const auto handler = handler_)
            handler(state, error);
    }

    /// A name has to be looked up, which blocks: not on this thread.
    void lookUpHost() {
        report(State::preparing);
        std::thread([weak = weak_from_this(), shared = shared_, host = host_, port = port_] {
            std::string error;
            const auto endpoint = resolve(host, port, false, error);
            const std::lock_guard guard(shared->lock);
            if (shared->isClosed)
                return;
            shared->loop.post([weak, endpoint, error] {
                const auto self = weak.lock();
                if (!self || self->isCancelled_)
                    return;
                if (endpoint)
                    self->open(*endpoint);
                else
                    self->report(State::failed, error);
            });
        }).detach();
    }

    void open(const Endpoint &endpoint) {
        const int error = tryOpen(endpoint);
        if (error == 0) {
            report(State::ready);
        } else if (isWaitingFor(error)) {
            retry_ = shared_->loop.postAfter(pauseBeforeRetry, [weak = weak_from_this(), endpoint] {
                if (const auto self = weak.lock())
                    self->open(endpoint);
            });
            report(State::waiting, message(error));
        } else {
            report(State::failed, message(error));
        }
    }

    /// The system's error number, 0 for success.
    int tryOpen(Endpoint endpoint) {
        socket_ = Descriptor(socket(endpoint.family(), SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (!socket_)
            return errno;
        if (const auto &interface = parameters_.requiredInterface) {
            if (setsockopt(socket_.get(), SOL_SOCKET, SO_BINDTODEVICE, interface->name.c_str(),
                           static_cast<socklen_t>(interface->name.size() + 1)) != 0)
                return errno;
            // A link-local server without a zone is one on this interface.
            auto &scoped = reinterpret_cast<sockaddr_in6 &>(endpoint.address);
            if (endpoint.family() == AF_INET6 && IN6_IS_ADDR_LINKLOCAL(&scoped.sin6_addr) &&
                scoped.sin6_scope_id == 0)
                scoped.sin6_scope_id = interface->index;
        }
        // Reuse of the local port is not asked for: on this system it would let two exchanges share one.
        if (const auto &local = parameters_.requiredLocalAddress) {
            std::string error;
            const auto own = resolve(*local, 0, true, error);
            if (!own)
                return EINVAL;
            if (bind(socket_.get(), reinterpret_cast<const sockaddr *>(&own->address), own->size) != 0)
                return errno;
        }
        // Connected, so that the kernel drops what does not come from this server and this port.
        if (::connect(socket_.get(), reinterpret_cast<const sockaddr *>(&endpoint.address), endpoint.size) !=
            0)
            return errno;
        return 0;
    }

    void takeDatagram() {
        if (!receive_) {
            // Nobody waits: sleep until somebody does.
            source_ = sd_event_source_disable_unref(source_);
            return;
        }
        auto &buffer = shared_->buffer;
        const auto size = recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (size < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        const auto completion = std::exchange(receive_, nullptr);
        if (size < 0)
            completion(std::nullopt, message(errno));
        else
            completion(std::span<const std::byte>(buffer.data(), static_cast<std::size_t>(size)),
                       std::nullopt);
    }

    const std::shared_ptr<Shared> shared_;
    const std::string host_;
    const std::uint16_t port_;
    const DatagramParameters parameters_;
    StateHandler handler_;
    ReceiveCompletion receive_;
    Descriptor socket_;
    sd_event_source *source_ = nullptr;
    MainActor::TimerID retry_ = 0;
    bool isCancelled_ = false;
};

UdpNetwork::UdpNetwork(EventLoop &loop) : shared_(std::make_shared<Shared>(loop)) {}

UdpNetwork::~UdpNetwork() {
    const std::lock_guard guard(shared_->lock);
    shared_->isClosed = true;
}

std::shared_ptr<DatagramConnection> UdpNetwork::connect(const std::string &host, std::uint16_t port,
                                                        const DatagramParameters &parameters) {
    return std::make_shared<Connection>(shared_, host, port, parameters);
}

LinuxInterfaceLookup::LinuxInterfaceLookup() : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

void LinuxInterfaceLookup::findInterface(const std::string &name, const std::string &,
                                         Completion completion) {
    ifreq request{};
    if (name.size() >= sizeof request.ifr_name) {
        completion(std::nullopt);
        return;
    }
    std::memcpy(request.ifr_name, name.data(), name.size());
    if (ioctl(socket_.get(), SIOCGIFINDEX, &request) != 0)
        completion(std::nullopt);
    else
        completion(NetworkInterface{name, static_cast<std::uint32_t>(request.ifr_ifindex), nullptr});
}

} // namespace tarn
