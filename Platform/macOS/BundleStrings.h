#pragma once

#include "TarnCore/LocalizedStrings.h"

#import <Foundation/Foundation.h>

namespace tarn {

/// The texts in the application bundle, in the language that the system chose for its user; where the
/// environment sets LC_ALL (locale(7)) when this is made, in that language, if the bundle has it.
class BundleStrings final : public LocalizedStrings {
public:
    BundleStrings();

    std::string localized(std::string_view key) const override;

private:
    NSBundle *_Nonnull const bundle_;
};

} // namespace tarn
