#pragma once

#include "TarnCore/Value.h"

#include <optional>
#include <string>

namespace tarn {

/// The system's store of settings by application.
///
/// Thread: one at a time.
/// Errors: reading has none, what cannot be read is absent; writing reports through synchronize().
class Preferences {
public:
    virtual ~Preferences() = default;

    /// Makes changes visible that others made since the last call.
    virtual void refresh(const std::string &applicationID) = 0;
    /// The value that counts for the application: a managed one before the user's before the machine's.
    virtual std::optional<Value> copyAppValue(const std::string &key, const std::string &applicationID) = 0;
    /// Whether management has set the key, so that nobody else can.
    virtual bool isForced(const std::string &key, const std::string &applicationID) = 0;
    /// Sets a value, which must not be null, for any user on the current host. It is stored by
    /// synchronizeMachine().
    virtual void setMachineValue(const std::string &key, const Value &value,
                                 const std::string &applicationID) = 0;
    /// Stores what was set for any user on the current host; false when that failed; then
    /// either the old or the new values are there, whole.
    virtual bool synchronizeMachine(const std::string &applicationID) = 0;
};

} // namespace tarn
