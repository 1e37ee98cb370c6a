#pragma once

#include "TarnCore/AppInfo.h"
#include "TarnCore/DateText.h"
#include "TarnSystem/Log.h"
#include "TarnSystem/MainActor.h"
#include "TarnSystem/SystemClock.h"
#include "TarnSystem/SystemVersion.h"
#include "TarnSystem/Task.h"
#include "TarnSystem/URL.h"
#include "TarnSystem/Updates/UpdateFeed.h"
#include "TarnSystem/UserDefaults.h"
#include "TarnSystem/WorkQueue.h"
#include "TarnXPC/TarnXPCClient.h"
#include "TarnlinkMenu/Observable.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tarn {

/// Looks for updates, downloads the one that the user wants and hands it to the daemon.
///
/// What it remembers, by keys of the user defaults: "UpdateCheck" (automatic checks), "UpdateLastCheck",
/// "UpdateAvailableManifest" and "UpdateAvailableSignature" (the offer, verified again when it is restored),
/// "UpdatePendingBuild", "UpdatePendingVersion" and "UpdatePendingNotes" (what should run after the next
/// start), and for the notice "UpdateFeedNotice", "UpdateFeedTroubleSince" (the first failed check after
/// the last good one) and "UpdateHighestBuildSeen" (in a verified manifest).
///
/// A package lies in `downloadFolder`, which only the user can enter, and is removed with that folder on
/// every failure and when the daemon does not take it. Once accepted, it stays until the updater says that
/// it has a copy of its own, refuses it, or says nothing for 20 minutes; what a crash or an early quit
/// leaves there goes at the next start.
///
/// Thread: main thread. Ownership: the services must outlive this and every task under way; the checker
///   may go at any time. Errors: none; what fails is a state and a note.
class UpdateChecker final : public Observable {
public:
    /// A newer build is on offer.
    struct Available {
        UpdateManifest manifest;
        friend bool operator==(const Available &, const Available &) = default;
    };
    struct Downloading {
        UpdateManifest manifest;
        /// Done, 0 to 1; stays 0 when the size is not announced.
        double fraction = 0;
        friend bool operator==(const Downloading &, const Downloading &) = default;
    };
    /// The package is handed to the daemon.
    struct Installing {
        UpdateManifest manifest;
        /// The updater is done; the next start of this application runs the new build.
        bool isInPlace = false;
        friend bool operator==(const Installing &, const Installing &) = default;
    };
    /// The new build is running.
    struct Installed {
        std::string version;
        /// Absent: UpdateFeed::defaultNotesURL() tells.
        std::optional<URL> notes = {};
        friend bool operator==(const Installed &, const Installed &) = default;
    };
    struct Failed {
        /// Of a localised text: "update.error.check", "….download", "….download.tls",
        /// "….download.tls.named" (with the interceptor), "….hash", "….handover", "….installer".
        std::string key;
        /// Of the offer that still stands.
        std::optional<UpdateManifest> manifest = {};
        friend bool operator==(const Failed &, const Failed &) = default;
    };
    struct Idle {
        friend bool operator==(const Idle &, const Idle &) = default;
    };
    struct Checking {
        friend bool operator==(const Checking &, const Checking &) = default;
    };
    struct UpToDate {
        friend bool operator==(const UpToDate &, const UpToDate &) = default;
    };
    using State =
        std::variant<Available, Downloading, Installing, Installed, Failed, Idle, Checking, UpToDate>;

    /// What a signature cannot tell: that somebody keeps news away. Beside the state, and independent of it.
    enum class Notice {
        none,
        /// No check has succeeded for 30 days and more, though some were made.
        feedSilent,
        /// The vendor has once signed a higher build than the feed shows now.
        feedStale,
    };

    /// Key of the user defaults: an installation is under way, or its end has not been judged.
    static constexpr const char *pendingBuildKey = "UpdatePendingBuild";

    struct Services {
        TarnXPCClient &daemon;
        UpdateFeed &feed;
        UserDefaults &defaults;
        MainActor &actor;
        SystemClock &clock;
        Log &log;
        /// Where a package is hashed.
        WorkQueue &queue;
    };
    struct Setup {
        /// Of this checker alone: what is in it is removed. Those above it are made where they are missing.
        std::string downloadFolder;
        SystemVersion system;
        std::int64_t installedBuild = AppInfo::build;
        URL feedURL = UpdateFeed::defaultManifestURL();
    };

    UpdateChecker(const Services &services, Setup setup);
    ~UpdateChecker();

    // Published.
    const State &state() const { return state_; }
    /// When a check last succeeded; whole seconds.
    const std::optional<Date> &lastCheck() const { return lastCheck_; }
    bool automaticChecks() const { return automaticChecks_; }
    void setAutomaticChecks(bool on);
    /// Who inspects the network's encrypted traffic, beside "update.error.download.tls.named".
    const std::optional<std::string> &interceptor() const { return interceptor_; }
    Notice notice() const { return notice_; }

    /// When false, only the user's checks run.
    bool updatesAllowed() const { return updatesAllowed_; }
    void setUpdatesAllowed(bool allowed) { updatesAllowed_ = allowed; }
    const URL &feedURL() const { return setup_.feedURL; }
    void setFeedURL(URL url) { setup_.feedURL = std::move(url); }
    const std::optional<UpdateFeed::SignedManifest> &signedManifest() const { return signedManifest_; }
    std::int64_t installedBuild() const { return setup_.installedBuild; }
    /// The latest 40 notes, oldest first, each one line.
    const std::vector<std::string> &events() const { return events_; }

    /// Checks when due, now and every 6 hours.
    void start();
    /// Due is 24 hours after the last check that succeeded; a last check in the future counts as none.
    void checkIfDue();
    /// `manual`: the user asked.
    void check(bool manual);
    /// Does nothing unless an update is available.
    void downloadAndInstall();
    /// The user closes what is shown. Work under way changes the state no more: a download is given up,
    /// while an installation goes on once the daemon has the package.
    void dismiss();
    void note(std::string_view text);

private:
    class Package;
    /// Names what the state is about; whatever belongs to an earlier one changes it no more.
    using Work = std::uint64_t;
    using IsAlive = std::weak_ptr<bool>;

    bool resolvePending();
    void restoreOffer();
    void forgetOffer();
    void forgetPending();
    void enter(State state, std::optional<std::string> interceptor = {});
    void enterIf(Work work, State state, std::optional<std::string> interceptor = {});
    void setNotice(Notice notice, const std::string &words);
    void feedAnswered(std::int64_t build);
    void feedFailed();
    Date now() const;

    Task<void> runCheck(bool manual, State previous, Work work, IsAlive isAlive);
    Task<void> install(UpdateFeed::SignedManifest offer, Work work, IsAlive isAlive);
    /// Throws TarnXPCClientError.
    Task<UpdateResult> handOver(std::string path, UpdateFeed::SignedManifest offer, IsAlive isAlive);
    /// Until the updater is done with the package or the time is up.
    Task<void> follow(std::shared_ptr<Package> package, UpdateManifest manifest, Work work, IsAlive isAlive);

    Services services_;
    Setup setup_;
    State state_ = Idle();
    std::optional<Date> lastCheck_;
    bool automaticChecks_ = true;
    std::optional<std::string> interceptor_;
    Notice notice_ = Notice::none;
    bool updatesAllowed_ = true;
    std::optional<UpdateFeed::SignedManifest> signedManifest_;
    std::vector<std::string> events_;
    /// Packages that the updater may still open.
    unsigned handedOver_ = 0;
    MainActor::TimerID timer_ = 0;
    Work work_ = 0;
    std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

} // namespace tarn
