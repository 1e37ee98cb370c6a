#include "TarnSystem/WiFiController.h"

#include "TarnCore/Text.h"

#include <exception>
#include <utility>

namespace tarn {
namespace {

constexpr const char *usualDevice = "en0";

std::string describe(WiFiControlError::Kind kind, std::int32_t status, const std::string &message) {
    switch (kind) {
    case WiFiControlError::Kind::coreWLAN:
        return "CoreWLAN: " + message;
    case WiFiControlError::Kind::networksetup:
        return "networksetup(" + std::to_string(status) + "): " + message;
    case WiFiControlError::Kind::networkManager:
        return "NetworkManager: " + message;
    case WiFiControlError::Kind::noInterface:
        break;
    }
    return "No Wi-Fi interface available";
}

} // namespace

WiFiControlError::WiFiControlError(Kind kind, std::int32_t status, std::string message)
    : std::runtime_error(describe(kind, status, message)), kind_(kind), status_(status),
      message_(std::move(message)) {}

WiFiControlError WiFiControlError::coreWLAN(std::string message) {
    return {Kind::coreWLAN, 0, std::move(message)};
}

WiFiControlError WiFiControlError::networksetup(std::int32_t status, std::string standardError) {
    return {Kind::networksetup, status, std::move(standardError)};
}

WiFiControlError WiFiControlError::noInterface() {
    return {Kind::noInterface, 0, {}};
}

WiFiControlError WiFiControlError::networkManager(std::string message) {
    return {Kind::networkManager, 0, std::move(message)};
}

std::string WiFiControlError::description() const {
    // Not what(), which ends at a zero byte.
    return describe(kind_, status_, message_);
}

void WiFiController::setPower(bool on) {
    const auto result = client_.setPower(on);
    if (result.kind == WiFiClient::PowerResult::Kind::done)
        return;
    // The tool has ways of its own to the radio: it may succeed where the framework saw no interface, and
    // its words are the ones worth reporting.
    if (tool_)
        runTool(*tool_, on);
    else
        settleWithoutTool(result, on);
}

void WiFiController::runTool(const std::string &tool, bool on) {
    ProcessLauncher::Result result;
    try {
        result =
            processes_.run(tool, {"-setairportpower", deviceName().value_or(usualDevice), on ? "on" : "off"});
    } catch (const WiFiControlError &) {
        throw;
    } catch (const std::exception &error) {
        throw WiFiControlError::networksetup(-1, error.what());
    }
    if (result.launchError)
        throw WiFiControlError::networksetup(-1, *std::move(result.launchError));
    if (result.status != 0)
        throw WiFiControlError::networksetup(result.status, text::isUTF8(result.standardError)
                                                                ? std::move(result.standardError)
                                                                : std::string());
}

// The tool and the name it is tried with belong to the Mac; on another system there is nothing left
// to try. Wi-Fi that stays on because nobody here can switch it is no failure that anybody could
// mend; Wi-Fi that stays off may be mended as soon as somebody can.
void WiFiController::settleWithoutTool(const WiFiClient::PowerResult &result, bool on) {
    using Kind = WiFiClient::PowerResult::Kind;
    if (result.kind == Kind::refused)
        throw WiFiControlError::networkManager(result.message);
    if (result.kind == Kind::noController && on)
        throw WiFiControlError::networkManager("nothing that could switch Wi-Fi on is running");
    if (!hasSaidWhy_.test_and_set())
        log_.write(Log::Level::info, "wifi",
                   result.kind == Kind::noInterface
                       ? "no Wi-Fi interface: there is nothing to switch"
                       : "nothing that could switch Wi-Fi is running: it stays as it is");
}

std::optional<std::string> WiFiController::deviceName() {
    auto interface = client_.interface();
    return interface ? std::move(interface->name) : std::nullopt;
}

} // namespace tarn
