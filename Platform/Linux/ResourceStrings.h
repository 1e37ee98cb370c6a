#pragma once

#include "TarnCore/LocalizedStrings.h"

#include <mutex>

namespace tarn {

/// The string table installed beside the program ("../share/tarnlink/LANGUAGE.lproj"), in the
/// language of the environment: German where that says so, else English. Read when first asked.
class ResourceStrings final : public LocalizedStrings {
public:
    std::string localized(std::string_view key) const override;

private:
    mutable std::once_flag isRead_;
    mutable StringTable table_;
};

} // namespace tarn
