#include "Platform/macOS/XPCConnector.h"

#include "Platform/macOS/FoundationText.h"
#include "Platform/macOS/TarnXPCInterface.h"

#import <Foundation/Foundation.h>

#include <atomic>
#include <utility>
#include <variant>

namespace tarn {
namespace {

/// Nil when one of the two is not what it should be.
NSXPCConnection *_Nullable makeConnection(const std::string &serviceName, const std::string &requirement) {
    NSString *name = makeNSString(serviceName);
    NSString *rule = makeNSString(requirement);
    if (!name || !rule)
        return nil;
    NSXPCConnection *connection = [[NSXPCConnection alloc] initWithMachServiceName:name
                                                                           options:NSXPCConnectionPrivileged];
    [connection setRemoteObjectInterface:makeTarnXPCInterface()];
    @try {
        [connection setCodeSigningRequirement:rule];
    } @catch (NSException *) {
        // Not in the requirement language, and without a requirement anybody could answer. Every
        // connection must be invalidated, and none can be while it is suspended, as all are at first.
        [connection resume];
        [connection invalidate];
        return nil;
    }
    return connection;
}

dispatch_block_t _Nullable blockOf(RemoteConnection::Handler handler) {
    if (!handler)
        return nil;
    return ^{
        // A handler may clear itself, and with it what this block holds.
        const auto called = handler;
        called();
    };
}

/// Sends a call, whose texts are UTF-8.
struct Sender {
    void operator()(const TarnXPCProtocol::Status &) const { [remote statusWithReply:data]; }
    void operator()(const TarnXPCProtocol::Pause &call) const {
        NSData *authorization = call.authorization ? makeNSData(*call.authorization) : nil;
        [remote pauseWithSeconds:call.seconds authorization:authorization reply:data];
    }
    void operator()(const TarnXPCProtocol::Resume &) const { [remote resumeWithReply:data]; }
    void operator()(const TarnXPCProtocol::Diagnostics &) const { [remote diagnosticsWithReply:text]; }
    void operator()(const TarnXPCProtocol::SetTetheringWhileWired &call) const {
        [remote setTetheringWhileWiredWithAllow:call.allow reply:data];
    }
    void operator()(const TarnXPCProtocol::SetTetheringDNSFix &call) const {
        [remote setTetheringDNSFixWithEnabled:call.enabled reply:data];
    }
    void operator()(const TarnXPCProtocol::InstallUpdate &call) const {
        [remote installUpdateWithPkgPath:makeNSString(call.pkgPath) reply:data];
    }
    void operator()(const TarnXPCProtocol::InstallVerifiedUpdate &call) const {
        [remote installVerifiedUpdateWithPkgPath:makeNSString(call.pkgPath)
                                        manifest:makeNSData(call.manifest)
                                       signature:makeNSString(call.signature)
                                           reply:data];
    }
    void operator()(const TarnXPCProtocol::UpdateStatus &) const { [remote updateStatusWithReply:data]; }

    id<TarnXPCProtocol> remote;
    TarnXPCDataReply data;
    TarnXPCTextReply text;
};

class XPCConnection final : public RemoteConnection {
public:
    explicit XPCConnection(NSXPCConnection *_Nullable connection) : connection_(connection) {}

    ~XPCConnection() override {
        [connection_ setInvalidationHandler:nil];
        [connection_ setInterruptionHandler:nil];
        // The system requires it of every connection before the last reference goes.
        invalidate();
    }

    void setInvalidationHandler(Handler handler) override {
        [connection_ setInvalidationHandler:blockOf(std::move(handler))];
    }
    void setInterruptionHandler(Handler handler) override {
        [connection_ setInterruptionHandler:blockOf(std::move(handler))];
    }

    void resume() override {
        // Once: the system counts.
        if (!resumed_.exchange(true))
            [connection_ resume];
    }

    void invalidate() override {
        // A connection that is still suspended cannot be invalidated.
        resume();
        [connection_ invalidate];
    }

    bool invoke(const TarnXPCProtocol::Call &call, Reply reply, ErrorHandler failed) override {
        @autoreleasepool {
            // The blocks hold what the caller gave, and nothing of the connection.
            id proxy = [connection_ remoteObjectProxyWithErrorHandler:^(NSError *error) {
                failed({utf8Text(error.domain), error.code, utf8Text(error.localizedDescription)});
            }];
            if (![proxy conformsToProtocol:@protocol(TarnXPCProtocol)])
                return false;
            const TarnXPCDataReply data = ^(NSData *_Nullable record) {
                reply(bytesOf(record));
            };
            const TarnXPCTextReply text = ^(NSString *_Nullable string) {
                reply(utf8Text(string));
            };
            std::visit(Sender{proxy, data, text}, call);
            return true;
        }
    }

private:
    NSXPCConnection *_Nullable const connection_;
    std::atomic<bool> resumed_ = false;
};

} // namespace

std::shared_ptr<RemoteConnection> XPCConnector::connect(const std::string &serviceName,
                                                        const std::string &requirement) {
    @autoreleasepool {
        return std::make_shared<XPCConnection>(makeConnection(serviceName, requirement));
    }
}

} // namespace tarn
