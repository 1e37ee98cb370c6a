#pragma once

#include "Platform/Linux/EventLoop.h"
#include "TarnXPC/RemoteConnection.h"

namespace tarn {

/// Connections to services on the system bus.
///
/// Thread: main thread. Ownership: the loop must outlive this and every connection.
class BusConnector final : public RemoteConnector {
public:
    explicit BusConnector(EventLoop &loop) : loop_(loop) {}
    std::shared_ptr<RemoteConnection> connect(const std::string &serviceName,
                                              const std::string &requirement) override;

private:
    EventLoop &loop_;
};

} // namespace tarn
