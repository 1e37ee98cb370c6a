#pragma once

#include "Platform/Linux/EventLoop.h"
#include "TarnSystem/DatagramConnection.h"
#include "TarnSystem/Descriptor.h"

#include <array>
#include <cstddef>

namespace tarn {

/// UDP sockets bound to a device (SO_BINDTODEVICE, socket(7)), which needs no privilege since Linux 5.7.
///
/// Thread: the event loop's throughout.
class UdpNetwork final : public DatagramNetwork {
public:
    explicit UdpNetwork(EventLoop &loop);
    ~UdpNetwork() override;

    std::shared_ptr<DatagramConnection> connect(const std::string &host, std::uint16_t port,
                                                const DatagramParameters &parameters) override;

private:
    struct Shared;
    class Connection;

    std::shared_ptr<Shared> shared_;
};

/// Asks the kernel for one interface by name (SIOCGIFINDEX, netdevice(7)).
class LinuxInterfaceLookup final : public InterfaceLookup {
public:
    LinuxInterfaceLookup();
    void findInterface(const std::string &name, const std::string &queueLabel,
                       Completion completion) override;

private:
    Descriptor socket_;
};

} // namespace tarn
