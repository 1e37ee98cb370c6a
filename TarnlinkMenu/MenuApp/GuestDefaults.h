#pragma once

#include "TarnSystem/UserDefaults.h"
#include "TarnlinkMenu/UpdateChecker.h"

namespace tarn {

/// What the user's application remembers, for a process beside it: it is read, and nothing of it changes.
/// An installation under way is left to the application to judge.
class GuestDefaults final : public UserDefaults {
public:
    /// `host` must outlive this.
    explicit GuestDefaults(UserDefaults &host) : host_(host) {}

    std::optional<bool> boolean(const std::string &key) override { return host_.boolean(key); }
    std::optional<std::int64_t> integer(const std::string &key) override {
        return key == UpdateChecker::pendingBuildKey ? std::nullopt : host_.integer(key);
    }
    std::optional<std::string> string(const std::string &key) override { return host_.string(key); }
    std::optional<Date> date(const std::string &key) override { return host_.date(key); }
    std::optional<std::string> data(const std::string &key) override { return host_.data(key); }

    void setBoolean(const std::string &, bool) override {}
    void setInteger(const std::string &, std::int64_t) override {}
    void setString(const std::string &, const std::string &) override {}
    void setDate(const std::string &, Date) override {}
    void setData(const std::string &, const std::string &) override {}
    void remove(const std::string &) override {}

private:
    UserDefaults &host_;
};

} // namespace tarn
