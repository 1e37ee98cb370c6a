#pragma once

#include "TarnSystem/Log.h"

namespace tarn {

/// Lines on standard error; when that is the journal, with its level prefix (sd-daemon(3)).
/// Debug lines go to the journal only.
class LinuxLog final : public Log {
public:
    LinuxLog();
    void write(Level level, std::string_view category, std::string_view message) override;

private:
    bool isJournal_;
};

} // namespace tarn
