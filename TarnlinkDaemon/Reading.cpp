#include "TarnlinkDaemon/Reading.h"

#include "TarnSystem/IPProtocolConfig.h"

#include <algorithm>
#include <utility>

namespace tarn {
namespace {

/// Whether everything in it could be told: what could not is null, and could not be put back.
bool isWhole(const Value &value) {
    if (const auto *dictionary = value.dictionary())
        return std::ranges::all_of(*dictionary, [](const auto &entry) { return isWhole(entry.second); });
    if (const auto *array = value.array())
        return std::ranges::all_of(*array, isWhole);
    return !value.isNull();
}

std::optional<ProtocolConfiguration> configuration(ServiceControlling &services, const std::string &serviceID,
                                                   IPProtocol protocol) {
    try {
        auto present = services.configuration(serviceID, protocol);
        if (!present.entries || isWhole(*present.entries))
            return present;
        return std::nullopt;
    } catch (const ServiceControlError &) {
        return std::nullopt;
    }
}

} // namespace

bool isAddressLess(const ProtocolConfiguration &configuration, IPProtocol protocol) {
    return IPProtocolConfig::isAddressLess(configuration.entries.value_or(Value()), configuration.enabled,
                                           protocol == IPProtocol::ipv4);
}

bool Reading::WiFiService::isAddressLess() const {
    return ipv4 && ipv6 && tarn::isAddressLess(*ipv4, IPProtocol::ipv4) &&
           tarn::isAddressLess(*ipv6, IPProtocol::ipv6);
}

bool Reading::canWiFiCarry() const {
    const bool hasPower = wifiPower.value_or(true);
    return hasPower && (wifiServices.empty() || std::ranges::any_of(wifiServices, [](const auto &service) {
                            return service.enabled && !service.isAddressLess();
                        }));
}

Reading SystemReading::read(bool everything) {
    Reading reading;
    reading.interfaces = state_.readInterfaces();
    reading.wifiPower = state_.wifiPowerOn();

    std::vector<InterfaceSnapshot> wifi;
    std::ranges::copy_if(reading.interfaces, std::back_inserter(wifi), [](const auto &snapshot) {
        return snapshot.kind == InterfaceKind::wifi && snapshot.serviceID;
    });
    const bool isAskedAnew = everything || wifi != lastWiFi_;
    for (std::size_t i = 0; i < wifi.size(); ++i) {
        const auto &id = *wifi[i].serviceID;
        auto &service = reading.wifiServices.emplace_back(
            isAskedAnew ? Reading::WiFiService{id,
                                               {},
                                               true,
                                               configuration(services_, id, IPProtocol::ipv4),
                                               configuration(services_, id, IPProtocol::ipv6)}
                        : lastServices_[i]);
        service.name = wifi[i].serviceName;
        service.enabled = wifi[i].serviceEnabled;
    }
    lastWiFi_ = std::move(wifi);
    lastServices_ = reading.wifiServices;

    if (!store_)
        store_ = openStore_(VPNSplitDNS::clientName);
    if (store_)
        reading.resolvers = VPNSplitDNS::resolvers(*store_);
    return reading;
}

} // namespace tarn
