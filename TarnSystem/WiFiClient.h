#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tarn {

/// The system's Wi-Fi: its default interface, as the system tells of it.
///
/// Thread: one at a time reads, and one at a time switches; the two may be different and do so at the
///   same time. Calls block for as long as the system takes to answer.
class WiFiClient {
public:
    struct Channel {
        std::int64_t number = 0;
        /// 1: 2.4 GHz, 2: 5 GHz, 3: 6 GHz; anything else is unknown (CoreWLAN's CWChannelBand).
        std::int64_t bandCode = 0;
    };
    struct Interface {
        /// Such as "en0".
        std::optional<std::string> name;
        bool powerOn = false;
        /// Name of the joined network; absent without one and where the system withholds it.
        std::optional<std::string> ssid;
        std::optional<Channel> channel;
        /// Signal in dBm; 0 when there is no reading.
        std::int64_t rssi = 0;
    };
    struct PowerResult {
        enum class Kind {
            done,
            refused,      ///< The system did not do it; `message` tells why.
            noInterface,  ///< There is no Wi-Fi interface.
            noController, ///< There is one, but nothing that could switch it.
        };
        Kind kind = Kind::done;
        std::string message;
    };

    virtual ~WiFiClient() = default;
    /// Whether the default Wi-Fi interface has power; absent when there is no such interface, or
    /// nothing that tells. May be asked often.
    virtual std::optional<bool> powerOn() = 0;
    /// All that can be told of the default interface; absent when there is none.
    virtual std::optional<Interface> interface() = 0;
    /// Switches the radio.
    virtual PowerResult setPower(bool on) = 0;
};

} // namespace tarn
