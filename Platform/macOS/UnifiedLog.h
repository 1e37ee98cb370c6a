#pragma once

#include "TarnSystem/Log.h"

#include <memory>

namespace tarn {

/// The unified log, with the application's identifier as subsystem.
class UnifiedLog final : public Log {
public:
    UnifiedLog();
    ~UnifiedLog() override;
    void write(Level level, std::string_view category, std::string_view message) override;

private:
    struct Categories;
    std::unique_ptr<Categories> categories_;
};

} // namespace tarn
