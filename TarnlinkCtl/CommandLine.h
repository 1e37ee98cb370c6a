#pragma once

#include "TarnSystem/HostSurvey.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace tarn {

/// What the person wants.
struct CtlCommand {
    enum class Verb {
        help,
        version,
        status,
        pause,
        resume,
        diagnostics,
        history,
        doctor,
        setWhileWired,
        setDNSFix
    };

    Verb verb = Verb::help;
    /// Of status and doctor.
    bool asJson = false;
    /// Of status.
    bool isWatching = false;
    /// Of pause; above 0 and finite.
    double minutes = 0;
    /// Of the settings.
    bool isOn = false;

    friend bool operator==(const CtlCommand &, const CtlCommand &) = default;
};

/// Words that make no command; the text says what is wrong with them.
class CtlUsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads the words after the program's name. Throws CtlUsageError.
CtlCommand parseCtlCommand(const std::vector<std::string> &words);

/// The summary of `--help`, with the way out for somebody who is offline.
std::string ctlHelp(HostSurvey::System system);

} // namespace tarn
