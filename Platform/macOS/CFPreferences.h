#pragma once

#include "TarnSystem/Preferences.h"

namespace tarn {

/// The preferences of Core Foundation. A managed value is seen because the system puts it
/// before every other.
///
/// Thread: one at a time for one object; several objects may be used at once, because the system's functions
/// are thread-safe. What one of them set, all of them see at once.
class CFPreferences final : public Preferences {
public:
    void refresh(const std::string &applicationID) override;
    std::optional<Value> copyAppValue(const std::string &key, const std::string &applicationID) override;
    bool isForced(const std::string &key, const std::string &applicationID) override;
    void setMachineValue(const std::string &key, const Value &value,
                         const std::string &applicationID) override;
    bool synchronizeMachine(const std::string &applicationID) override;

private:
    /// A value since the last synchronizeMachine() had no form as a property list.
    bool refused_ = false;
};

} // namespace tarn
