#include "Platform/Linux/BusConnector.h"

#include "Platform/Linux/BusProtocol.h"
#include "Platform/Linux/LoopBus.h"

#include <cerrno>
#include <cstdint>
#include <map>
#include <utility>

namespace tarn {
namespace {

/// Takes what the system made of an error, which is freed.
RemoteError taken(sd_bus_error &error) {
    RemoteError result{error.name ? error.name : "", 0, error.message ? error.message : ""};
    sd_bus_error_free(&error);
    return result;
}

RemoteError fromNumber(int result) {
    sd_bus_error error{};
    sd_bus_error_set_errno(&error, result);
    return taken(error);
}

const RemoteError disconnected{SD_BUS_ERROR_DISCONNECTED, 0, "The connection to the bus has ended"};

constexpr std::size_t mostWaiting = 100;

struct SlotRelease {
    void operator()(sd_bus_slot *slot) const { sd_bus_slot_unref(slot); }
};

/// What the bus calls back. It outlives the connection until it is out of such a call.
struct Line : std::enable_shared_from_this<Line> {
    struct Call {
        Line *line = nullptr;
        std::uint64_t id = 0;
        RemoteConnection::Reply reply;
        RemoteConnection::ErrorHandler failed;
        std::unique_ptr<sd_bus_slot, SlotRelease> slot{};
    };

    Line(EventLoop &eventLoop, std::string name) : loop(eventLoop), service(std::move(name)) {}

    void open();
    int send(const TarnXPCProtocol::Call &what, Call &call);
    void fail(std::uint64_t id, const RemoteError &error);
    void end(const RemoteError &error);
    void endSoon(RemoteError error);
    static int answered(sd_bus_message *reply, void *data, sd_bus_error *);

    EventLoop &loop;
    const std::string service;
    RemoteConnection::Handler invalidated;
    bool isOver = false;
    BusHandle bus;
    std::uint64_t lastID = 0;
    std::map<std::uint64_t, Call> calls; // in the order in which they were sent
};

void Line::open() {
    const auto gone = [](sd_bus_message *, void *self, sd_bus_error *) {
        static_cast<Line *>(self)->endSoon(disconnected);
        return 0;
    };
    const int result = LoopBus::open(loop, bus, gone, this);
    // Whatever the reason, there is no bus.
    if (result < 0)
        endSoon({SD_BUS_ERROR_NO_SERVER, 0, fromNumber(result).localizedDescription});
}

int Line::send(const TarnXPCProtocol::Call &what, Call &call) {
    if (isOver || !bus)
        return -ENOTCONN;
    sd_bus_message *made = nullptr;
    int result = sd_bus_message_new_method_call(bus.get(), &made, service.c_str(),
                                                BusProtocol::objectPath(service).c_str(), service.c_str(),
                                                BusProtocol::methods[what.index()].name);
    const BusMessage message(made);
    if (result >= 0)
        result = sd_bus_message_set_auto_start(made, 0);
    if (result >= 0)
        result = BusProtocol::append(made, what);
    sd_bus_slot *slot = nullptr;
    if (result >= 0)
        result = sd_bus_call_async(bus.get(), &slot, made, answered, &call, UINT64_MAX);
    call.slot.reset(slot);
    return result;
}

int Line::answered(sd_bus_message *reply, void *data, sd_bus_error *) {
    auto &call = *static_cast<Call *>(data);
    const auto self = call.line->shared_from_this();
    if (const auto *error = sd_bus_message_get_error(reply)) {
        const bool hasWords = error->message && *error->message;
        self->fail(call.id, {error->name, 0, hasWords ? error->message : error->name});
        return 0;
    }
    const char *text = nullptr;
    if (sd_bus_message_has_signature(reply, "s") <= 0 || sd_bus_message_read(reply, "s", &text) < 0) {
        self->fail(call.id, {SD_BUS_ERROR_INVALID_SIGNATURE, 0,
                             "The reply is of type \"" + std::string(sd_bus_message_get_signature(reply, 1)) +
                                 "\" and not \"s\""});
        return 0;
    }
    const auto ended = self->calls.extract(call.id);
    ended.mapped().reply(text);
    return 0;
}

void Line::fail(std::uint64_t id, const RemoteError &error) {
    if (const auto ended = calls.extract(id))
        ended.mapped().failed(error);
}

void Line::end(const RemoteError &error) {
    // A handler may drop the connection, which leaves no calls here, or send another call.
    const auto self = shared_from_this();
    for (const auto last = lastID; !calls.empty() && calls.begin()->first <= last;)
        fail(calls.begin()->first, error);
    if (const auto handler = std::exchange(invalidated, {}))
        handler();
    bus.reset();
}

void Line::endSoon(RemoteError error) {
    if (std::exchange(isOver, true))
        return;
    loop.post([self = shared_from_this(), error = std::move(error)] { self->end(error); });
}

class BusRemoteConnection final : public RemoteConnection {
public:
    BusRemoteConnection(EventLoop &loop, const std::string &service)
        : line_(std::make_shared<Line>(loop, service)) {}
    BusRemoteConnection(const BusRemoteConnection &) = delete;
    BusRemoteConnection &operator=(const BusRemoteConnection &) = delete;
    ~BusRemoteConnection() override {
        line_->isOver = true;
        line_->invalidated = {};
        // What the calls hold may be the last that holds something else.
        std::exchange(line_->calls, {}).clear();
        // The bus may be calling at this moment.
        line_->loop.post([line = line_] { line->bus.reset(); });
    }

    void setInvalidationHandler(Handler handler) override { line_->invalidated = std::move(handler); }
    void setInterruptionHandler(Handler) override {}
    void resume() override {
        if (!line_->isOver && !line_->bus)
            line_->open();
    }
    void invalidate() override { line_->endSoon(disconnected); }

    bool invoke(const TarnXPCProtocol::Call &what, Reply reply, ErrorHandler failed) override {
        // The bus refuses more than 128 to a service that is silent; this is the same silence.
        if (line_->calls.size() >= mostWaiting)
            return true;
        const auto id = ++line_->lastID;
        auto &call = line_->calls[id];
        call = {line_.get(), id, std::move(reply), std::move(failed)};
        const int result = line_->send(what, call);
        if (result < 0)
            line_->loop.post([line = line_, id, error = fromNumber(result)] { line->fail(id, error); });
        return true;
    }

private:
    std::shared_ptr<Line> line_;
};

} // namespace

std::shared_ptr<RemoteConnection> BusConnector::connect(const std::string &serviceName, const std::string &) {
    return std::make_shared<BusRemoteConnection>(loop_, serviceName);
}

} // namespace tarn
