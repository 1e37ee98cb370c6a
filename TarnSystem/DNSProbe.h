#pragma once

#include "TarnSystem/DatagramConnection.h"
#include "TarnSystem/Probing.h"
#include "TarnSystem/SecureRandom.h"

#include <cstddef>
#include <string>
#include <vector>

namespace tarn {

/// Probes by one DNS query over UDP, forced out of the named interface.
///
/// Ownership: the services must outlive the probe and its exchanges.
class DNSProbe final : public Probing {
public:
    struct Services {
        MainActor &actor;
        InterfaceLookup &interfaces;
        DatagramNetwork &network;
        SecureRandom &random;
    };

    /// `name` is what probe() asks for.
    DNSProbe(std::string name, const Services &services) : name_(std::move(name)), services_(services) {}

    Task<ProbeOutcome> probe(std::string device, std::string server, std::optional<std::string> localAddress,
                             double timeout) override;
    Task<DNSVerdict> ask(std::string device, std::string server, std::string name,
                         std::optional<std::string> localAddress, double timeout) override;

private:
    struct Ending {
        ProbeOutcome outcome;
        std::optional<std::vector<std::byte>> response;
    };
    class Exchange;

    Task<Ending> exchange(std::string device, std::string server, std::string name,
                          std::optional<std::string> localAddress, double timeout);
    Task<std::optional<NetworkInterface>> findInterface(std::string named);

    std::string name_;
    Services services_;
};

} // namespace tarn
