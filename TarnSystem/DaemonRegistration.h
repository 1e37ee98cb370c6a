#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// How far the system has been told to start something of ours by itself, in the words of macOS
/// (SMAppService.Status).
enum class RegistrationState {
    enabled,
    notRegistered,
    /// Registered, but somebody has to allow it first, or has forbidden it.
    requiresApproval,
    /// The system knows nothing of it; on macOS also what was never registered.
    notFound,
};

/// Whether the system starts the daemon.
///
/// Thread: one at a time, any; calls may block while the system is asked.
class DaemonRegistration {
public:
    virtual ~DaemonRegistration() = default;
    /// Absent when the system cannot be asked.
    virtual std::optional<RegistrationState> state() = 0;
    /// Whether an application can change it on this system; where not, the next two calls only fail.
    virtual bool canRegister() const = 0;
    /// Has the daemon started, now and whenever the system starts, as soon as that is allowed. Returns why
    /// not, in the system's words for people.
    virtual std::optional<std::string> registerDaemon() = 0;
    /// The opposite; a running daemon is asked to end.
    virtual std::optional<std::string> unregisterDaemon() = 0;
    /// What an administrator types to have the daemon started, on a system where an application does not do
    /// that: there the two calls above change nothing. Absent where they do, and where nothing helps.
    virtual std::optional<std::string> administratorCommand(RegistrationState state) const = 0;
    /// Shows the person where the system is told what may run; main thread. Does nothing where there is no
    /// such place.
    virtual void openSystemSettings() = 0;
};

/// What the state of a unit's file (systemctl(1), "is-enabled") says of the daemon.
RegistrationState registrationOfUnit(std::string_view unitFileState);
/// The administratorCommand() of a system with systemd.
std::optional<std::string> commandForUnit(RegistrationState state, const std::string &unit);

} // namespace tarn
