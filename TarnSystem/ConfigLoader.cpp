#include "TarnSystem/ConfigLoader.h"

#include "TarnSystem/Settings.h"

namespace tarn::ConfigLoader {
namespace {

void applyPreferences(Preferences &preferences, DaemonConfig &config) {
    for (const auto &setting : settings::all())
        if (const auto value = preferences.copyAppValue(setting.key, applicationID))
            setting.apply(*value, config);
}

void applyArguments(const std::vector<std::string> &arguments, DaemonConfig &config) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const auto &argument = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (argument == "--dry-run") {
            config.dryRun = true;
        } else if (argument == "--once") {
            config.once = true;
        } else if (argument == "--disabled") {
            config.enabled = false;
        } else if (argument == "--probe-mode" && hasValue) {
            // Another word is no value of this option and is looked at as the next argument.
            if (const auto mode = probeMode(arguments[i + 1])) {
                config.probeMode = *mode;
                ++i;
            }
        } else if (argument == "--probe-name" && hasValue) {
            config.probeName = arguments[++i];
        }
    }
}

} // namespace

DaemonConfig load(Preferences &preferences, const std::vector<std::string> &arguments) {
    DaemonConfig config;
    preferences.refresh(applicationID);
    applyPreferences(preferences, config);
    applyArguments(arguments, config);
    return config;
}

bool writeLocalBool(Preferences &preferences, bool value, const std::string &forKey) {
    preferences.setMachineValue(forKey, value, applicationID);
    return preferences.synchronizeMachine(applicationID);
}

bool writeLocalTetheringWhileWired(Preferences &preferences, bool allow) {
    preferences.setMachineValue(settings::tetheringWhileWired, allow ? "allow" : "disable", applicationID);
    return preferences.synchronizeMachine(applicationID);
}

bool writeLocalTetheringDNSFix(Preferences &preferences, bool enabled) {
    // The older name counts where it is set.
    if (preferences.copyAppValue(settings::splitDNSFix, applicationID))
        preferences.setMachineValue(settings::splitDNSFix, enabled, applicationID);
    return writeLocalBool(preferences, enabled, settings::tetheringDNSFix);
}

bool isTetheringWhileWiredForced(Preferences &preferences) {
    return preferences.isForced(settings::tetheringWhileWired, applicationID);
}

bool isTetheringDNSFixForced(Preferences &preferences) {
    return preferences.isForced(settings::tetheringDNSFix, applicationID) ||
           preferences.isForced(settings::splitDNSFix, applicationID);
}

} // namespace tarn::ConfigLoader
