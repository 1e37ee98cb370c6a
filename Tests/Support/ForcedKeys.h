#pragma once

#include "TarnSystem/Preferences.h"

#include <set>

namespace tarn {

/// Preferences of which only is told what management forces; what changes is seen after a refresh.
struct ForcedKeys final : Preferences {
    std::set<std::string> keys;

    void refresh(const std::string &) override { visible_ = keys; }
    std::optional<Value> copyAppValue(const std::string &, const std::string &) override { return {}; }
    bool isForced(const std::string &key, const std::string &domain) override {
        return domain == "com.veltrion.tarnlink" && visible_.contains(key);
    }
    void setMachineValue(const std::string &, const Value &, const std::string &) override {}
    bool synchronizeMachine(const std::string &) override { return false; }

private:
    std::set<std::string> visible_;
};

} // namespace tarn
