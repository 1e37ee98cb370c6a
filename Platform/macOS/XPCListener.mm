#include "Platform/macOS/XPCListener.h"

#include "Platform/macOS/FoundationText.h"
#include "Platform/macOS/TarnXPCInterface.h"

#import <Foundation/Foundation.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

namespace tarn {
namespace {

/// What the main thread and the queues of listener and connections share.
class Connections : public std::enable_shared_from_this<Connections> {
public:
    Connections(MainActor &actor, RemoteService &service) : actor_(actor), service_(service) {}

    /// A number that no other connection has.
    std::uint64_t nextNumber() {
        const std::lock_guard guard(lock_);
        return ++lastNumber_;
    }

    /// Resumes the connection and keeps it until it is removed; false once closed.
    bool open(std::uint64_t number, NSXPCConnection *connection) {
        // Resumed under the lock: close() could not invalidate a suspended connection.
        const std::lock_guard guard(lock_);
        if (closed_)
            return false;
        [connection resume];
        open_.emplace(number, connection);
        return true;
    }

    void remove(std::uint64_t number) {
        const std::lock_guard guard(lock_);
        open_.erase(number);
    }

    /// Runs a job with the service on the main thread, unless closed by then.
    void post(std::function<void(RemoteService &)> job) {
        // Under the lock: after close() the actor may go.
        const std::lock_guard guard(lock_);
        if (closed_)
            return;
        actor_.post([weak = weak_from_this(), job = std::move(job)] {
            if (const auto self = weak.lock(); self && !self->isClosed())
                job(self->service_);
        });
    }

    /// Main thread. Nothing is called any more.
    void close() {
        std::map<std::uint64_t, NSXPCConnection *> open;
        {
            const std::lock_guard guard(lock_);
            closed_ = true;
            open.swap(open_);
        }
        for (const auto &[number, connection] : open)
            [connection invalidate];
    }

private:
    bool isClosed() {
        const std::lock_guard guard(lock_);
        return closed_;
    }

    MainActor &actor_;
    RemoteService &service_; // main thread
    std::mutex lock_;
    std::map<std::uint64_t, NSXPCConnection *> open_;
    std::uint64_t lastNumber_ = 0;
    bool closed_ = false;
};

/// The other end of one connection.
struct Peer {
    Peer(std::weak_ptr<Connections> all, NSXPCConnection *itself, RemoteCaller who)
        : connections(std::move(all)), connection(itself), caller(std::move(who)) {}

    std::weak_ptr<Connections> connections;
    /// Weak: the connection holds the exported object, and that this.
    __weak NSXPCConnection *connection;
    RemoteCaller caller;
    /// Calls that wait for the main thread, where the service counts them.
    mutable std::atomic<std::size_t> waiting{0};
};

/// Hands a call to the service. `send` answers it on the main thread; once the connection is gone the
/// system discards what is sent.
void handOver(const std::shared_ptr<const Peer> &peer, TarnXPCProtocol::Call call,
              std::function<void(const std::string &bytes)> send) {
    const auto connections = peer->connections.lock();
    if (!connections)
        return;
    if (peer->waiting.fetch_add(1) >= RemoteService::mostCalls) {
        [peer->connection invalidate];
        return;
    }
    connections->post([peer, call = std::move(call), send = std::move(send)](RemoteService &service) {
        peer->waiting.fetch_sub(1);
        service.call(peer->caller, call, [peer, send](const RemoteAnswer &answer) {
            if (answer.refusal == RemoteAnswer::Refusal::none)
                send(answer.bytes);
            else
                [peer->connection invalidate];
        });
    });
}

} // namespace
} // namespace tarn

namespace Methods = tarn::TarnXPCProtocol;

/// What a connection exports: turns each selector into a call.
@interface TarnXPCExportedObject : NSObject <TarnXPCProtocol>
- (instancetype)initWithPeer:(std::shared_ptr<const tarn::Peer>)peer;
@end

@implementation TarnXPCExportedObject {
    std::shared_ptr<const tarn::Peer> _peer;
}

- (instancetype)initWithPeer:(std::shared_ptr<const tarn::Peer>)peer {
    self = [super init];
    if (self)
        _peer = std::move(peer);
    return self;
}

- (void)call:(Methods::Call)call reply:(TarnXPCDataReply)reply {
    tarn::handOver(_peer, std::move(call),
                   [reply](const std::string &bytes) { reply(tarn::makeNSData(bytes)); });
}

- (void)statusWithReply:(TarnXPCDataReply)reply {
    [self call:Methods::Status() reply:reply];
}

- (void)pauseWithSeconds:(double)seconds
           authorization:(NSData *_Nullable)authorization
                   reply:(TarnXPCDataReply)reply {
    Methods::Pause call{seconds, {}};
    if (authorization)
        call.authorization = tarn::bytesOf(authorization);
    [self call:std::move(call) reply:reply];
}

- (void)resumeWithReply:(TarnXPCDataReply)reply {
    [self call:Methods::Resume() reply:reply];
}

- (void)diagnosticsWithReply:(TarnXPCTextReply)reply {
    tarn::handOver(_peer, Methods::Diagnostics(),
                   [reply](const std::string &bytes) { reply(tarn::makeNSString(bytes)); });
}

- (void)setTetheringWhileWiredWithAllow:(BOOL)allow reply:(TarnXPCDataReply)reply {
    [self call:Methods::SetTetheringWhileWired{allow != NO} reply:reply];
}

- (void)setTetheringDNSFixWithEnabled:(BOOL)enabled reply:(TarnXPCDataReply)reply {
    [self call:Methods::SetTetheringDNSFix{enabled != NO} reply:reply];
}

- (void)installUpdateWithPkgPath:(NSString *_Nullable)pkgPath reply:(TarnXPCDataReply)reply {
    [self call:Methods::InstallUpdate{tarn::utf8Text(pkgPath)} reply:reply];
}

- (void)installVerifiedUpdateWithPkgPath:(NSString *_Nullable)pkgPath
                                manifest:(NSData *_Nullable)manifest
                               signature:(NSString *_Nullable)signature
                                   reply:(TarnXPCDataReply)reply {
    Methods::InstallVerifiedUpdate call{tarn::utf8Text(pkgPath), tarn::bytesOf(manifest),
                                        tarn::utf8Text(signature)};
    [self call:std::move(call) reply:reply];
}

- (void)updateStatusWithReply:(TarnXPCDataReply)reply {
    [self call:Methods::UpdateStatus() reply:reply];
}

@end

/// Accepts whoever comes: of programs that do not fulfil the requirement the system delivers nothing.
@interface TarnXPCListenerDelegate : NSObject <NSXPCListenerDelegate>
- (instancetype)initWithConnections:(std::shared_ptr<tarn::Connections>)connections;
@end

@implementation TarnXPCListenerDelegate {
    std::shared_ptr<tarn::Connections> _connections;
}

- (instancetype)initWithConnections:(std::shared_ptr<tarn::Connections>)connections {
    self = [super init];
    if (self)
        _connections = std::move(connections);
    return self;
}

// On the listener's queue. A connection that is not accepted is invalidated by the system.
- (BOOL)listener:(NSXPCListener *)listener shouldAcceptNewConnection:(NSXPCConnection *)connection {
    const auto number = _connections->nextNumber();
    const std::weak_ptr<tarn::Connections> weak = _connections;
    const auto peer = std::make_shared<const tarn::Peer>(
        weak, connection, tarn::RemoteCaller{std::to_string(number), true, {}});
    [connection setExportedInterface:tarn::makeTarnXPCInterface()];
    [connection setExportedObject:[[TarnXPCExportedObject alloc] initWithPeer:peer]];
    [connection setInvalidationHandler:^{
        if (const auto connections = weak.lock())
            connections->remove(number);
    }];
    return _connections->open(number, connection);
}

@end

namespace tarn {

struct XPCListener::State {
    ~State() {
        [listener invalidate];
        connections->close();
    }

    std::shared_ptr<Connections> connections;
    /// The listener does not hold it.
    TarnXPCListenerDelegate *delegate;
    NSXPCListener *listener;
};

XPCListener::XPCListener(MainActor &actor, Log &log) : actor_(actor), log_(log) {}

XPCListener::~XPCListener() = default;

void XPCListener::start(const std::string &serviceName, const std::string &requirement,
                        RemoteService &service) {
    @autoreleasepool {
        NSString *name = makeNSString(serviceName);
        NSString *rule = makeNSString(requirement);
        if (!name || !rule) {
            log_.write(Log::Level::error, "link", "name or requirement of the service is not UTF-8");
            return;
        }
        NSXPCListener *listener = [[NSXPCListener alloc] initWithMachServiceName:name];
        @try {
            [listener setConnectionCodeSigningRequirement:rule];
        } @catch (NSException *exception) {
            log_.write(Log::Level::error, "link", serviceName + ": " + utf8Text(exception.reason));
            // Without a delegate it lets nobody in.
            [listener resume];
            [listener invalidate];
            return;
        }
        state_ = std::make_unique<State>();
        state_->connections = std::make_shared<Connections>(actor_, service);
        state_->delegate = [[TarnXPCListenerDelegate alloc] initWithConnections:state_->connections];
        state_->listener = listener;
        [listener setDelegate:state_->delegate];
        [listener resume];
    }
}

} // namespace tarn
