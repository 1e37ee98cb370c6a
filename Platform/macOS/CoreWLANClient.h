#pragma once

#include "TarnSystem/WiFiClient.h"

@class CWWiFiClient;

namespace tarn {

/// The Wi-Fi of CoreWLAN.
class CoreWLANClient final : public WiFiClient {
public:
    CoreWLANClient();

    std::optional<bool> powerOn() override;
    std::optional<Interface> interface() override;
    PowerResult setPower(bool on) override;

private:
    CWWiFiClient *client_;
};

} // namespace tarn
