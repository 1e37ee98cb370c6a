#pragma once

#include "TarnSystem/DatagramConnection.h"

namespace tarn {

/// The interfaces of the system's network path. The native object of what it finds is an
/// `nw_interface_t`, which MacDatagramNetwork takes as the required interface.
class MacInterfaceLookup final : public InterfaceLookup {
public:
    void findInterface(const std::string &name, const std::string &queueLabel,
                       Completion completion) override;
};

} // namespace tarn
