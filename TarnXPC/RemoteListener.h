#pragma once

#include "TarnSystem/ProcessIdentity.h"
#include "TarnXPC/TarnXPCProtocol.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace tarn {

/// Who calls.
struct RemoteCaller {
    /// Differs from one connection to another.
    std::string client;
    /// The system has let in only programs that fulfil the code-signing requirement.
    bool isSigned = false;
    /// Asks the system for the process at the other end and tells it on the main thread, once; absent
    /// when the system does not know, or it has ended. May be copied and called later. Empty where
    /// `isSigned`.
    std::function<void(std::function<void(std::optional<ProcessIdentity>)> told)> identify;
};

/// The answer to a call.
struct RemoteAnswer {
    /// Valid UTF-8.
    std::string bytes;
    /// Why there is none; then `bytes` does not count. The system makes an error of it where its
    /// protocol has errors, and otherwise ends the connection.
    enum class Refusal {
        none,
        busy,          ///< Too many calls of this client are under way.
        notAuthorized, ///< The caller may not.
    };
    Refusal refusal = Refusal::none;
    /// For people.
    std::string message = {};
};

/// What answers the calls.
class RemoteService {
public:
    using Reply = std::function<void(RemoteAnswer)>;

    /// How many calls of one client, that is, of one connection, may be under way.
    static constexpr std::size_t mostCalls = 16;

    virtual ~RemoteService() = default;
    /// Main thread. `reply` is called once, on the main thread, at once or later; a caller that has gone
    /// by then harms nobody.
    virtual void call(const RemoteCaller &caller, const TarnXPCProtocol::Call &call, Reply reply) = 0;
};

/// The door through which calls come in.
///
/// Thread: main thread.
/// Errors: none. A door that cannot be opened is said once in the log and, where the system tells, tried
///   again with growing pauses.
class RemoteListener {
public:
    /// Nobody is let in any more, and nothing is called.
    virtual ~RemoteListener() = default;

    /// Publishes the service under the name; clients must fulfil the code-signing requirement where
    /// programs are signed. Called once; `service` must outlive this.
    virtual void start(const std::string &serviceName, const std::string &requirement,
                       RemoteService &service) = 0;
};

} // namespace tarn
