#pragma once

#include <optional>
#include <string>

namespace tarn {

/// What only a check-up asks of the system: how Tarnlink is set up on it, and who else has a hand in its
/// network.
///
/// Thread: one at a time; no call waits for longer than two seconds. Nothing is changed, and nobody is asked
///   for a password. Errors: none; what cannot be told is absent, or counts as good.
class HostSurvey {
public:
    /// Which words and commands a person has there.
    enum class System { gnuLinux, macOS };

    virtual ~HostSurvey() = default;
    virtual System system() const = 0;
    /// What carries calls to the daemon is there.
    virtual bool hasBus() = 0;
    /// The system has been told of the daemon's service: by a policy of the bus, or as a LaunchDaemon.
    virtual bool isRegistered() = 0;
    /// Some process has published that service; absent where the bus does not say.
    virtual std::optional<bool> isPublished() = 0;
    /// Whether a wireless device belongs to the manager through which Tarnlink switches it; absent while that
    /// manager does not run or does not know the device.
    virtual std::optional<bool> isManaged(const std::string &device) = 0;
    /// Whether the kernel drops IPv4 packets that come in through the device while its best route to their
    /// sender is another one (RFC 3704, section 2.2).
    virtual bool isReversePathStrict(const std::string &device) = 0;
    /// Whether somebody can ask for a password in this process's graphical session; absent without such a
    /// session.
    virtual std::optional<bool> hasAuthenticationAgent() = 0;
};

} // namespace tarn
