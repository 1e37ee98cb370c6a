#include "Platform/Linux/LinuxWiFi.h"

#include "Platform/Linux/Sysfs.h"
#include "TarnCore/Text.h"
#include "TarnSystem/WiFiFrequency.h"

#include <chrono>
#include <string>
#include <thread>

namespace tarn {
namespace {

using Kind = WiFiClient::PowerResult::Kind;

constexpr const char *path = "/org/freedesktop/NetworkManager";
constexpr const char *interfaceName = "org.freedesktop.NetworkManager";

std::optional<bool> truth(BusConnection &bus, const BusService &manager, const char *property) {
    const auto message = bus.property(manager, path, interfaceName, property, "b");
    int value = 0;
    if (!message || sd_bus_message_read(message.get(), "b", &value) <= 0)
        return std::nullopt;
    return value != 0;
}

} // namespace

std::optional<bool> LinuxWiFi::powerOn() {
    const auto devices = sysfs::wirelessDevices();
    if (devices.empty())
        return std::nullopt;
    SystemVisibility visibility;
    network_.bus().update(visibility);
    if (const auto isEnabled = network_.bus().networkManagerWiFiEnabled())
        return isEnabled;
    // Several radios: one with power is enough to be attached to a second network.
    std::optional<bool> power;
    for (const auto &device : devices)
        if (const auto isOn = sysfs::isRadioOn(device))
            power = power.value_or(false) || *isOn;
    return power;
}

std::optional<WiFiClient::Interface> LinuxWiFi::interface() {
    const auto devices = sysfs::wirelessDevices();
    if (devices.empty())
        return std::nullopt;
    Interface interface;
    interface.name = devices.front();
    interface.powerOn = powerOn().value_or(true);
    if (const auto point = network_.bus().activeAccessPoint(devices.front())) {
        if (!point->ssid.empty())
            interface.ssid = text::withValidUTF8(point->ssid);
        interface.channel = channelOfFrequency(point->megahertz);
        interface.rssi = rssiOfStrength(point->strength);
    }
    return interface;
}

WiFiClient::PowerResult LinuxWiFi::setPower(bool on) {
    auto result = switchPower(on);
    // Also after a failure: an answer that comes too late does not say what was done.
    network_.news().arrive();
    return result;
}

WiFiClient::PowerResult LinuxWiFi::switchPower(bool on) {
    const auto deadline = std::chrono::steady_clock::now() + longestWait;
    if (sysfs::wirelessDevices().empty())
        return {Kind::noInterface, {}};
    bus_.update();
    const auto call = bus_.newCall(manager_, path, "org.freedesktop.DBus.Properties", "Set");
    if (!call)
        return {Kind::noController, {}};
    sd_bus_message_append(call.get(), "ssv", interfaceName, "WirelessEnabled", "b", int{on});
    BusFailure failure;
    if (!bus_.send(call, &failure))
        return {Kind::refused, failure.message.empty() ? failure.name : failure.message};
    // The kernel's news of the radio reaches NetworkManager after its answer.
    for (;;) {
        if (on && truth(bus_, manager_, "WirelessHardwareEnabled") == false)
            return {Kind::refused, "a hardware switch keeps Wi-Fi off"};
        const auto isOn = truth(bus_, manager_, "WirelessEnabled");
        if (isOn == on)
            return {};
        if (!isOn || std::chrono::steady_clock::now() >= deadline)
            return {Kind::refused, isOn ? "NetworkManager agreed, but did not switch Wi-Fi"
                                        : "NetworkManager no longer answers"};
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

} // namespace tarn
