#pragma once

#include "Platform/Linux/FileWatch.h"
#include "Platform/Linux/LoopBus.h"
#include "TarnSystem/Log.h"
#include "TarnXPC/RemoteListener.h"

#include <memory>
#include <optional>
#include <string>

namespace tarn {

/// The service as an object on the system bus (BusProtocol.h). Bus and name may come, go and be another's
/// for a while; who may have the name and who may call is the bus's configuration.
class BusListener final : public RemoteListener {
public:
    /// Both must outlive this.
    BusListener(EventLoop &loop, Log &log) : loop_(loop), log_(log) {}
    BusListener(const BusListener &) = delete;
    BusListener &operator=(const BusListener &) = delete;
    void start(const std::string &serviceName, const std::string &requirement,
               RemoteService &service) override;

private:
    using Message = std::shared_ptr<sd_bus_message>;

    static int take(sd_bus_message *message, void *self, sd_bus_error *);
    static int named(sd_bus_message *reply, void *self, sd_bus_error *);

    int publish(sd_bus *bus);
    RemoteCaller callerOf(const Message &call);
    void identify(sd_bus_message *call, std::function<void(std::optional<ProcessIdentity>)> told);

    EventLoop &loop_;
    Log &log_;
    RemoteService *service_ = nullptr;
    std::string name_;
    bool isFailureSaid_ = false;
    /// What is asked later must find out whether this is still there.
    std::shared_ptr<BusListener *> self_ = std::make_shared<BusListener *>(this);
    std::optional<LoopBus> bus_;
    std::optional<FileWatch> socket_;
};

} // namespace tarn
