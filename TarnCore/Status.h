#pragma once

#include "TarnCore/Value.h"

#include <array>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tarn {

/// A record that could not be decoded.
class DecodingError : public std::runtime_error {
public:
    enum class Kind { typeMismatch, keyNotFound, dataCorrupted };

    DecodingError(Kind kind, const std::string &description) : std::runtime_error(description), kind_(kind) {}

    Kind kind() const { return kind_; }
    std::string description() const { return what(); }

private:
    Kind kind_;
};

/// What the switching policy concluded: which path the machine is on, and whether that is well.
struct Status {
    enum class Kind {
        wired,            ///< A verified wired path is in use; Wi-Fi is off.
        wiredPending,     ///< A wired path has an address and is being probed.
        wiredUnreachable, ///< A wired path has an address but fails the probe; Wi-Fi stays on.
        wifi,             ///< No usable wired path; Wi-Fi carries the traffic.
        offline,          ///< Neither.
        wifiOff,          ///< No wired path, and the user switched Wi-Fi off.
        paused,           ///< An administrator paused the policy.
        disabled,         ///< The policy is switched off by configuration.
    };
    static constexpr std::array allKinds = {Kind::wired,  Kind::wiredPending, Kind::wiredUnreachable,
                                            Kind::wifi,   Kind::offline,      Kind::wifiOff,
                                            Kind::paused, Kind::disabled};

    Kind kind = Kind::offline;
    /// Interface name and service name; empty unless `hasPayload`.
    std::string device;
    std::string name;

    static Status wired(std::string device, std::string name);
    static Status wiredPending(std::string device, std::string name);
    static Status wiredUnreachable(std::string device, std::string name);
    static Status wifi() { return {Kind::wifi, {}, {}}; }
    static Status offline() { return {Kind::offline, {}, {}}; }
    static Status wifiOff() { return {Kind::wifiOff, {}, {}}; }
    static Status paused() { return {Kind::paused, {}, {}}; }
    static Status disabled() { return {Kind::disabled, {}, {}}; }

    /// The three wired cases carry `device` and `name`.
    static bool hasPayload(Kind of);
    /// The case's name, as in the coded form: "wired", "wiredPending" ...
    static std::string_view caseName(Kind of);

    /// The keyed form: a dictionary with the case's name as its one key; the value holds
    /// "device" and "name", in that order, or nothing.
    Value encoded() const;
    /// Reads the keyed form. Unknown keys are ignored.
    /// Throws DecodingError unless exactly one case is named and its payload is complete.
    static Status decode(const Value &value);

    friend bool operator==(const Status &, const Status &) = default;
};

} // namespace tarn
