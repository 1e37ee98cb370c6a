#pragma once

#include "TarnXPC/RemoteConnection.h"

namespace tarn {

/// Connections of NSXPCConnection to services in the system's domain. Handlers, replies and errors come on
/// the connection's own queue.
///
/// With a name or requirement that is none there is no remote end, and so no methods: invoke() is false.
///
/// Thread: any, several at once.
class XPCConnector final : public RemoteConnector {
public:
    std::shared_ptr<RemoteConnection> connect(const std::string &serviceName,
                                              const std::string &requirement) override;
};

} // namespace tarn
