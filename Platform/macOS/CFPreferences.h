#pragma once

#include "TarnSystem/Preferences.h"

namespace tarn {

/// The preferences of Core Foundation. A managed value is seen because the system puts it
/// before every other.
class CFPreferences final : public Preferences {
public:
    void refresh(const std::string &applicationID) override;
    std::optional<Value> copyAppValue(const std::string &key, const std::string &applicationID) override;
    void setMachineValue(const std::string &key, const Value &value,
                         const std::string &applicationID) override;
    bool synchronizeMachine(const std::string &applicationID) override;

private:
    /// A value since the last synchronizeMachine() had no form as a property list.
    bool refused_ = false;
};

} // namespace tarn
