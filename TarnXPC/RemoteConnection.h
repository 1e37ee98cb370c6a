#pragma once

#include "TarnXPC/TarnXPCProtocol.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace tarn {

/// Why a call has no answer, in the system's own terms.
struct RemoteError {
    /// Of an NSError; on the bus the error's name, such as "org.freedesktop.DBus.Error.NoReply", and for
    /// what the system's error numbers tell "System.Error." and the number's name (sd-bus-errors(3)).
    std::string domain;
    /// 0 where the domain says it all.
    std::int64_t code = 0;
    /// The system's words for people.
    std::string localizedDescription;
};

/// One connection to a service of the system.
///
/// Thread: any on macOS; the main thread on Linux. Handlers are called on the connection's own thread,
///   never inside a call that sets them, and one may drop the connection.
class RemoteConnection {
public:
    using Reply = std::function<void(std::string)>;
    using ErrorHandler = std::function<void(const RemoteError &)>;
    using Handler = std::function<void()>;

    /// Ends the connection quietly; calls under way may remain unanswered.
    virtual ~RemoteConnection() = default;

    /// Called once when the connection has become useless, also when it never came about. An empty one
    /// clears it.
    virtual void setInvalidationHandler(Handler handler) = 0;
    /// Called when the service ended; where the system does not tell, never.
    virtual void setInterruptionHandler(Handler handler) = 0;
    /// Before this the connection does nothing.
    virtual void resume() = 0;
    /// Ends it; calls under way get an error.
    virtual void invalidate() = 0;

    /// Sends a call. One of the two is called, once, unless the service stays silent; there is no time
    /// limit. False, and nothing happens, when the remote end does not have the methods.
    virtual bool invoke(const TarnXPCProtocol::Call &call, Reply reply, ErrorHandler failed) = 0;
};

/// Makes connections. Thread: as the connection's.
class RemoteConnector {
public:
    virtual ~RemoteConnector() = default;

    /// A connection to the service of that name in the system's domain, not the user's, whose program
    /// must fulfil the code-signing requirement; where programs are not signed, the system's rule about
    /// who may own the name takes its place. Never fails; what is wrong shows in the calls.
    virtual std::shared_ptr<RemoteConnection> connect(const std::string &serviceName,
                                                      const std::string &requirement) = 0;
};

} // namespace tarn
