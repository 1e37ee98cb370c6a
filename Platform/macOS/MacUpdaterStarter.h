#pragma once

#include "TarnSystem/UpdaterStarter.h"

namespace tarn {

/// Starts the updater that lies beside this program, with the request's path as its only argument. It goes on
/// when this program ends: launchd's property list says so.
class MacUpdaterStarter final : public UpdaterStarter {
public:
    std::optional<std::string> start(const std::string &requestPath) override;
};

} // namespace tarn
