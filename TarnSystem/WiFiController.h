#pragma once

#include "TarnSystem/Log.h"
#include "TarnSystem/ProcessLauncher.h"
#include "TarnSystem/WiFiClient.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace tarn {

/// The Wi-Fi radio was not switched.
class WiFiControlError : public std::runtime_error {
public:
    enum class Kind {
        coreWLAN,       ///< The system's framework refused.
        networksetup,   ///< The command-line tool failed or could not be run.
        noInterface,    ///< There is no Wi-Fi interface.
        networkManager, ///< NetworkManager refused.
    };

    static WiFiControlError coreWLAN(std::string message);
    /// `status` is the tool's exit status, -1 when it did not run; `standardError` what it wrote there,
    /// or why it did not run.
    static WiFiControlError networksetup(std::int32_t status, std::string standardError);
    static WiFiControlError noInterface();
    static WiFiControlError networkManager(std::string message);

    Kind kind() const { return kind_; }
    /// Of `networksetup`, else 0.
    std::int32_t status() const { return status_; }
    /// The message or the standard error; empty for `noInterface`.
    const std::string &message() const { return message_; }
    /// For people, in English. Ends as the message does, a line break included.
    std::string description() const;

private:
    WiFiControlError(Kind kind, std::int32_t status, std::string message);

    Kind kind_;
    std::int32_t status_;
    std::string message_;
};

/// Reads and switches the power of the Wi-Fi radio.
///
/// Thread: one at a time. setPower() blocks until the system or its tool has done it: never on a
///   thread that has to stay responsive.
class WiFiControlling {
public:
    virtual ~WiFiControlling() = default;
    /// Throws WiFiControlError.
    virtual void setPower(bool on) = 0;
    /// Absent when there is no Wi-Fi interface, or nothing that tells. Never throws.
    virtual std::optional<bool> powerOn() = 0;
};

/// Switches through the system's Wi-Fi and, where that does not do it, through the system's
/// command-line tool.
///
/// Ownership: everything handed over must outlive the controller.
class WiFiController final : public WiFiControlling {
public:
    /// `tool` is the path of the tool, which takes "-setairportpower", an interface name and "on" or
    /// "off" (networksetup(8)); absent on a system without one.
    WiFiController(WiFiClient &client, ProcessLauncher &processes, std::optional<std::string> tool, Log &log)
        : client_(client), processes_(processes), tool_(std::move(tool)), log_(log) {}

    /// Without a tool, a machine with nothing to switch counts as done, and so does switching off where
    /// nothing could do it.
    void setPower(bool on) override;
    std::optional<bool> powerOn() override { return client_.powerOn(); }
    /// Name of the default Wi-Fi interface; absent without an interface or a name.
    std::optional<std::string> deviceName();

private:
    void runTool(const std::string &tool, bool on);
    void settleWithoutTool(const WiFiClient::PowerResult &result, bool on);

    WiFiClient &client_;
    ProcessLauncher &processes_;
    std::optional<std::string> tool_;
    Log &log_;
    std::atomic_flag hasSaidWhy_;
};

} // namespace tarn
