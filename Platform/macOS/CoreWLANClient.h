#pragma once

#include "TarnSystem/WiFiClient.h"

namespace tarn {

/// The Wi-Fi of CoreWLAN.
class CoreWLANClient final : public WiFiClient {
public:
    std::optional<bool> powerOn() override;
};

} // namespace tarn
