#include "Platform/macOS/CoreWLANClient.h"

#include "Platform/macOS/CFText.h"

#import <CoreWLAN/CoreWLAN.h>

namespace tarn {

CoreWLANClient::CoreWLANClient() : client_(CWWiFiClient.sharedWiFiClient) {}

std::optional<bool> CoreWLANClient::powerOn() {
    @autoreleasepool {
        CWInterface *interface = client_.interface;
        if (!interface)
            return std::nullopt;
        return interface.powerOn != NO;
    }
}

std::optional<WiFiClient::Interface> CoreWLANClient::interface() {
    @autoreleasepool {
        CWInterface *interface = client_.interface;
        if (!interface)
            return std::nullopt;
        Interface description;
        description.name = text((__bridge CFStringRef)interface.interfaceName);
        description.powerOn = interface.powerOn != NO;
        description.ssid = text((__bridge CFStringRef)interface.ssid);
        if (CWChannel *channel = interface.wlanChannel)
            description.channel = Channel{channel.channelNumber, channel.channelBand};
        description.rssi = interface.rssiValue;
        return description;
    }
}

WiFiClient::PowerResult CoreWLANClient::setPower(bool on) {
    @autoreleasepool {
        CWInterface *interface = client_.interface;
        if (!interface)
            return {PowerResult::Kind::noInterface, {}};
        NSError *error = nil;
        if ([interface setPower:on error:&error])
            return {};
        return {PowerResult::Kind::refused,
                text((__bridge CFStringRef)error.localizedDescription).value_or(std::string())};
    }
}

} // namespace tarn
