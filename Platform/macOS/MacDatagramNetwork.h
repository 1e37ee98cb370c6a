#pragma once

#include "TarnSystem/DatagramConnection.h"

namespace tarn {

/// UDP of the Network framework. A required interface must come from MacInterfaceLookup;
/// another is refused with std::invalid_argument.
///
/// Thread: the handlers of a connection run on its own serial queue, never inside a call.
/// Ownership: a connection that is destroyed without cancel() ends and reports nothing more;
///   after cancel() it may be destroyed at any time, `cancelled` is reported all the same.
class MacDatagramNetwork final : public DatagramNetwork {
public:
    std::shared_ptr<DatagramConnection> connect(const std::string &host, std::uint16_t port,
                                                const DatagramParameters &parameters) override;
};

} // namespace tarn
