#pragma once

#include "TarnSystem/WiFiClient.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// The current Wi-Fi association, as far as the system tells of it.
struct WiFiDetails {
    enum class Band { ghz2_4, ghz5, ghz6 };

    /// Name of the network. Untrusted: whoever runs the network chose it.
    std::optional<std::string> ssid;
    std::optional<Band> band;
    std::optional<std::int64_t> channel;
    /// Received signal strength in dBm.
    std::optional<std::int64_t> rssi;

    friend bool operator==(const WiFiDetails &, const WiFiDetails &) = default;
};

/// The coded form: "ghz2_4", "ghz5" or "ghz6".
std::string_view rawValue(WiFiDetails::Band band);
/// The band with this coded form; none for any other text.
std::optional<WiFiDetails::Band> wifiBand(std::string_view rawValue);

/// Reads the association.
///
/// Thread: one at a time; a call blocks for as long as the system takes to answer.
class WiFiDetailsReading {
public:
    virtual ~WiFiDetailsReading() = default;
    /// Absent without a Wi-Fi interface and while its radio is off. Never throws.
    virtual std::optional<WiFiDetails> current() = 0;
};

/// Reads it from the system's Wi-Fi, which must outlive this.
class CoreWLANDetails final : public WiFiDetailsReading {
public:
    explicit CoreWLANDetails(WiFiClient &client) : client_(client) {}
    std::optional<WiFiDetails> current() override;

private:
    WiFiClient &client_;
};

} // namespace tarn
