#pragma once

#include "TarnSystem/Log.h"
#include "TarnSystem/UserDefaults.h"

#import <Foundation/Foundation.h>

namespace tarn {

/// The user defaults of the application's domain, from whichever program.
///
/// Ownership: the log must outlive this.
class MacUserDefaults final : public UserDefaults {
public:
    explicit MacUserDefaults(Log &log);

    std::optional<bool> boolean(const std::string &key) override;
    std::optional<std::int64_t> integer(const std::string &key) override;
    std::optional<std::string> string(const std::string &key) override;
    std::optional<Date> date(const std::string &key) override;
    std::optional<std::string> data(const std::string &key) override;

    void setBoolean(const std::string &key, bool value) override;
    void setInteger(const std::string &key, std::int64_t value) override;
    void setString(const std::string &key, const std::string &value) override;
    void setDate(const std::string &key, Date value) override;
    void setData(const std::string &key, const std::string &value) override;
    void remove(const std::string &key) override;

private:
    id _Nullable object(const std::string &key) const;
    /// Nil is what has no form as a property list.
    void store(const std::string &key, id _Nullable object);

    Log &log_;
    NSUserDefaults *_Nonnull const defaults_;
};

} // namespace tarn
