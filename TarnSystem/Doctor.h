#pragma once

#include "TarnCore/DateText.h"
#include "TarnCore/InterfaceSnapshot.h"
#include "TarnSystem/HostSurvey.h"
#include "TarnSystem/SystemVisibility.h"
#include "TarnSystem/VPNDetector.h"
#include "TarnSystem/VPNSplitDNS.h"

#include <optional>
#include <string>
#include <vector>

/// Finds what commonly goes wrong around Tarnlink.
namespace tarn::doctor {

/// What is known of machine and installation. A new one is that of a healthy machine without any network.
struct Facts {
    /// What the daemon said when it was asked for its status.
    enum class Daemon {
        answers,
        absent,  ///< Nobody is there, or nobody is let through.
        silent,  ///< No answer in time.
        failing, ///< An error, or nothing that makes sense.
    };
    /// A journal in the daemon's state folder.
    struct Journal {
        Date written;
        /// The services that it names, as the journal has them.
        std::vector<std::string> serviceIDs = {};
    };
    struct Radio {
        std::string device;
        /// As HostSurvey::isManaged().
        std::optional<bool> isManaged;
    };

    HostSurvey::System system = HostSurvey::System::gnuLinux;

    Daemon daemon = Daemon::answers;
    /// Of a failing daemon, in words for people.
    std::string daemonError = {};
    bool hasBus = true;
    bool isRegistered = true;
    std::optional<bool> isPublished = true;
    /// Short command names of the processes that can be seen.
    std::vector<std::string> processes = {};

    /// The system knows the right to pause.
    bool knowsRights = true;
    /// As HostSurvey::hasAuthenticationAgent().
    std::optional<bool> hasAgent = {};

    std::vector<InterfaceSnapshot> interfaces = {};
    /// The network could not be read; the fields from `interfaces` to `strictDevices` say nothing.
    bool isNetworkHidden = false;
    SystemVisibility visibility = {};
    /// Of resolv.conf(5).
    std::vector<std::string> resolverFile = {};
    std::vector<VPNSplitDNS::Resolver> resolvers = {};
    std::optional<VPNDetector::Tunnel> tunnel = {};
    std::vector<Radio> radios = {};
    /// Devices whose reverse-path filter is strict.
    std::vector<std::string> strictDevices = {};
    bool fixesShadowedDNS = true;

    Date now = {};
    /// The day on which this program was built, or an earlier moment; the epoch when that is not known.
    Date built = {};
    Date booted = {};

    std::optional<Journal> journal = {};
    /// This process may not look at the journal.
    bool isJournalHidden = false;

    /// Run by sudo(8): what is remembered of checks for updates is root's.
    bool isSudo = false;
    bool checksForUpdates = true;
    std::optional<Date> lastUpdateCheck = {};
    /// The first check that failed after the last good one.
    std::optional<Date> updateTroubleSince = {};
    std::string updateFeedURL = {};
};

/// What is wrong, and what to do about it. The texts may hold words of others, such as domains.
struct Finding {
    /// For programs; stays as it is.
    std::string id;
    /// One English sentence.
    std::string line;
    /// A command, or where to click, in the words of the facts' system.
    std::string remedy;

    friend bool operator==(const Finding &, const Finding &) = default;
};

/// In the order in which a person should care for them. None for a healthy machine.
std::vector<Finding> diagnose(const Facts &facts);

/// What could not be looked at and would have counted, one phrase each.
std::vector<std::string> notSeen(const Facts &facts);

/// The shell command that undoes what a daemon that is gone has left behind, and the line for somebody who is
/// offline: it stops the daemon, and undoes whatever may be left.
std::string undoCommand(HostSurvey::System system);
std::string rescueLine(HostSurvey::System system);

/// The service identifiers in the contents of a journal, each once; none in what is no journal.
std::vector<std::string> servicesInJournal(std::string_view contents);

} // namespace tarn::doctor
