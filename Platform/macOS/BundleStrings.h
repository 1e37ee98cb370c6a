#pragma once

#include "TarnCore/LocalizedStrings.h"

namespace tarn {

/// The texts in the application bundle, in the language that the system chose for its user.
class BundleStrings final : public LocalizedStrings {
public:
    std::string localized(std::string_view key) const override;
};

} // namespace tarn
