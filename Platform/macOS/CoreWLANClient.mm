#include "Platform/macOS/CoreWLANClient.h"

#import <CoreWLAN/CoreWLAN.h>

namespace tarn {

std::optional<bool> CoreWLANClient::powerOn() {
    @autoreleasepool {
        CWInterface *interface = CWWiFiClient.sharedWiFiClient.interface;
        if (!interface)
            return std::nullopt;
        return interface.powerOn != NO;
    }
}

} // namespace tarn
