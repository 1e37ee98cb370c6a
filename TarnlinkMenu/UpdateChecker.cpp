#include "TarnlinkMenu/UpdateChecker.h"

#include "TarnCore/Text.h"
#include "TarnSystem/UpdateDefaults.h"
#include "TarnSystem/Updates/TLSInterception.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <exception>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarn {
namespace {

using namespace std::chrono_literals;

constexpr auto timerInterval = 6h;
constexpr auto checkInterval = 24h;
constexpr auto silenceLimit = updateDefaults::silenceLimit;
constexpr double feedTimeout = 8;
constexpr double downloadTimeout = 60;
constexpr double daemonTimeout = 30;
constexpr auto statusInterval = 5s;
constexpr auto statusLimit = 20min;
constexpr std::size_t mostEvents = 40;

constexpr const char *category = "update";
constexpr const char *unknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";

namespace keys {
using updateDefaults::automatic;
using updateDefaults::lastCheck;
using updateDefaults::troubleSince;
constexpr const char *manifest = "UpdateAvailableManifest";
constexpr const char *signature = "UpdateAvailableSignature";
constexpr const char *pendingBuild = UpdateChecker::pendingBuildKey;
constexpr const char *pendingVersion = "UpdatePendingVersion";
constexpr const char *pendingNotes = "UpdatePendingNotes";
constexpr const char *notice = "UpdateFeedNotice";
constexpr const char *highestBuild = "UpdateHighestBuildSeen";
} // namespace keys

constexpr const char *silentText = "feedSilent";
constexpr const char *staleText = "feedStale";

std::string lowercase(std::string text) {
    for (char &character : text)
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return text;
}

std::string lineOf(const UpdateResult &result) {
    std::string line = result.ok ? "true" : "false";
    for (const auto &field : {result.code, result.message})
        line += field.empty() ? "" : " " + field;
    return result.build ? line + " " + std::to_string(*result.build) : line;
}

/// Whether the updater has said its last word against a package. Others, such as that this session may not
/// ask just now, say nothing about it.
bool isRefusal(const UpdateResult &result) {
    const auto begins = [&](std::string_view with) { return result.code.starts_with(with); };
    return !result.ok && (begins("refused.") || begins("failed.") || begins("updater."));
}

/// Whether the updater still needs the client's file.
bool isWaiting(const UpdateResult &result) {
    return !isRefusal(result) &&
           (!result.ok || result.code == "accepted" || result.code == "copying" || result.code == "idle");
}

/// Throws std::system_error.
void makePrivateFolder(const std::string &folder) {
    std::filesystem::create_directories(std::filesystem::path(folder).parent_path());
    if (mkdir(folder.c_str(), S_IRWXU) == 0)
        return;
    const int reason = errno;
    struct stat info{};
    // One that is there already must be as if it had been made here, and no link to elsewhere.
    if (reason != EEXIST || lstat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) ||
        info.st_uid != geteuid() || (info.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        throw std::system_error(reason, std::generic_category(), folder);
}

void removeAll(const std::string &folder) {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

} // namespace

// Every task below has a name: g++ 12 destroys twice what a temporary in a co_await expression holds.

/// A downloaded package; its file goes with it, unless it is left to the updater.
class UpdateChecker::Package {
public:
    Package(const std::string &folder, Work work) : path_(folder + "/package-" + std::to_string(work)) {}
    Package(const Package &) = delete;
    Package &operator=(const Package &) = delete;
    ~Package() {
        if (isLeft_)
            return;
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
        // Fails while another package is in it.
        std::filesystem::remove(std::filesystem::path(path_).parent_path(), ignored);
    }

    const std::string &path() const { return path_; }
    void leave() { isLeft_ = true; }

private:
    const std::string path_;
    bool isLeft_ = false;
};

UpdateChecker::UpdateChecker(const Services &services, Setup setup)
    : services_(services), setup_(std::move(setup)) {
    auto &defaults = services_.defaults;
    removeAll(setup_.downloadFolder);
    lastCheck_ = defaults.date(keys::lastCheck);
    if (lastCheck_ > now())
        lastCheck_.reset();
    automaticChecks_ = defaults.boolean(keys::automatic).value_or(true);
    const auto stored = defaults.string(keys::notice);
    notice_ = stored == silentText  ? Notice::feedSilent
              : stored == staleText ? Notice::feedStale
                                    : Notice::none;
    if (!resolvePending())
        restoreOffer();
}

UpdateChecker::~UpdateChecker() {
    services_.actor.cancel(timer_);
    if (handedOver_ == 0)
        removeAll(setup_.downloadFolder);
}

bool UpdateChecker::resolvePending() {
    auto &defaults = services_.defaults;
    const auto build = defaults.integer(keys::pendingBuild);
    if (!build)
        return false;
    if (installedBuild() >= *build) {
        // The defaults are the user's to write: an address from there is judged like one from outside.
        UpdateManifest manifest;
        manifest.version = defaults.string(keys::pendingVersion).value_or(std::to_string(*build));
        manifest.notes = defaults.string(keys::pendingNotes);
        note("installed " + manifest.version);
        state_ = Installed{manifest.version, UpdateFeed::notesURL(manifest, UpdateFeed::notesHosts())};
    } else {
        note("pending build " + std::to_string(*build) + " did not arrive, running " +
             std::to_string(installedBuild()));
        state_ = Failed{"update.error.installer"};
    }
    forgetPending();
    return true;
}

void UpdateChecker::restoreOffer() {
    auto data = services_.defaults.data(keys::manifest);
    auto signature = services_.defaults.data(keys::signature);
    if (!data && !signature)
        return;
    try {
        auto manifest = UpdateFeed::verifyAndDecode(data.value_or(""), signature.value_or(""),
                                                    services_.feed.publicKey());
        if (UpdateFeed::isApplicable(manifest, installedBuild(), setup_.system)) {
            signedManifest_ = {manifest, *std::move(data), *std::move(signature)};
            state_ = Available{std::move(manifest)};
            return;
        }
    } catch (const UpdateFeedError &error) {
        note("stored offer dropped: " + error.description());
    }
    forgetOffer();
}

void UpdateChecker::forgetOffer() {
    signedManifest_.reset();
    services_.defaults.remove(keys::manifest);
    services_.defaults.remove(keys::signature);
}

void UpdateChecker::forgetPending() {
    for (const char *key : {keys::pendingBuild, keys::pendingVersion, keys::pendingNotes})
        services_.defaults.remove(key);
}

Date UpdateChecker::now() const {
    // Whole seconds, as they are stored: a restart changes no rule.
    return Date(std::chrono::floor<std::chrono::seconds>(services_.clock.now().sinceEpoch));
}

void UpdateChecker::note(std::string_view text) {
    const auto line = text::printable(text);
    services_.log.write(Log::Level::info, category, line);
    events_.push_back(dates::text(now()) + " update: " + line);
    if (events_.size() > mostEvents)
        events_.erase(events_.begin());
}

void UpdateChecker::enter(State state, std::optional<std::string> interceptor) {
    const auto work = work_;
    publish(interceptor_, std::move(interceptor));
    // An observer may have begun something else.
    if (work == work_)
        publish(state_, std::move(state));
}

void UpdateChecker::enterIf(Work work, State state, std::optional<std::string> interceptor) {
    if (work == work_)
        enter(std::move(state), std::move(interceptor));
}

void UpdateChecker::setAutomaticChecks(bool on) {
    services_.defaults.setBoolean(keys::automatic, on);
    publish(automaticChecks_, on);
}

void UpdateChecker::start() {
    services_.actor.cancel(timer_);
    timer_ = services_.actor.postAfter(timerInterval, [this] { start(); });
    checkIfDue();
}

void UpdateChecker::checkIfDue() {
    if (!automaticChecks_ || !updatesAllowed_)
        return;
    const auto time = now();
    if (lastCheck_ && *lastCheck_ <= time && time - *lastCheck_ < checkInterval)
        return;
    check(false);
}

void UpdateChecker::check(bool manual) {
    if (!updatesAllowed_ && !manual)
        return;
    if (std::holds_alternative<Checking>(state_) || std::holds_alternative<Downloading>(state_) ||
        std::holds_alternative<Installing>(state_))
        return;
    const auto work = ++work_;
    auto previous = state_;
    enter(Checking());
    if (work == work_)
        detach(runCheck(manual, std::move(previous), work, isAlive_));
}

Task<void> UpdateChecker::runCheck(bool manual, State previous, Work work, IsAlive isAlive) {
    std::optional<UpdateFeed::SignedManifest> found;
    std::string failure;
    try {
        auto fetch = services_.feed.fetchSigned(feedURL(), feedTimeout);
        found = co_await fetch;
    } catch (const UpdateFeedError &error) {
        failure = error.description();
    }
    if (isAlive.expired() || work != work_)
        co_return;

    if (!found) {
        note("check failed: " + failure);
        feedFailed();
        if (std::holds_alternative<Available>(previous))
            enterIf(work, std::move(previous));
        else
            enterIf(work, manual ? State(Failed{"update.error.check"}) : State(Idle()));
        co_return;
    }

    const auto manifest = found->manifest;
    const auto build = std::to_string(manifest.build);
    const auto installed = std::to_string(installedBuild());
    const bool isApplicable = UpdateFeed::isApplicable(manifest, installedBuild(), setup_.system);
    auto &defaults = services_.defaults;
    defaults.setDate(keys::lastCheck, now());
    if (isApplicable) {
        defaults.setData(keys::manifest, found->data);
        defaults.setData(keys::signature, found->signature);
        signedManifest_ = std::move(found);
        note("available " + manifest.version + " (" + build + "), running " + installed);
    } else {
        forgetOffer();
        note("up to date (" + installed + ", feed " + build + ")");
    }
    publish(lastCheck_, now());
    feedAnswered(manifest.build);
    enterIf(work, isApplicable ? State(Available{manifest}) : State(UpToDate()));
}

void UpdateChecker::feedAnswered(std::int64_t build) {
    auto &defaults = services_.defaults;
    defaults.remove(keys::troubleSince);
    const auto highest = defaults.integer(keys::highestBuild);
    if (!highest || build > *highest)
        defaults.setInteger(keys::highestBuild, build);
    if (highest && build < *highest)
        setNotice(Notice::feedStale, "the feed shows build " + std::to_string(build) + ", it has shown " +
                                         std::to_string(*highest));
    else
        setNotice(Notice::none, "the feed is as it should be again");
}

void UpdateChecker::feedFailed() {
    auto since = services_.defaults.date(keys::troubleSince);
    if (!since || *since > now()) {
        since = now();
        services_.defaults.setDate(keys::troubleSince, *since);
    }
    if (now() - *since >= silenceLimit)
        setNotice(Notice::feedSilent, "no check has succeeded since " + dates::text(*since));
}

void UpdateChecker::setNotice(Notice notice, const std::string &words) {
    if (notice == notice_)
        return;
    if (notice == Notice::none)
        services_.defaults.remove(keys::notice);
    else
        services_.defaults.setString(keys::notice, notice == Notice::feedSilent ? silentText : staleText);
    note(words);
    publish(notice_, notice);
}

void UpdateChecker::downloadAndInstall() {
    const auto *available = std::get_if<Available>(&state_);
    if (!available || !signedManifest_)
        return;
    const auto work = ++work_;
    note("downloading " + available->manifest.version);
    enter(Downloading{available->manifest});
    if (work == work_)
        detach(install(*signedManifest_, work, isAlive_));
}

void UpdateChecker::dismiss() {
    ++work_;
    const auto *failed = std::get_if<Failed>(&state_);
    if (failed && failed->manifest)
        enter(Available{*failed->manifest});
    else
        enter(Idle());
}

Task<void> UpdateChecker::install(UpdateFeed::SignedManifest offer, Work work, IsAlive isAlive) {
    const auto &manifest = offer.manifest;
    auto package = std::make_shared<Package>(setup_.downloadFolder, work);
    std::optional<std::string> failure;
    std::string hash;
    std::string key = "update.error.download";
    std::optional<std::string> interceptor;
    const auto progress = [this, work, isAlive, size = manifest.size](std::uint64_t received) {
        // Ends a download that nobody wants any more.
        if (isAlive.expired() || work != work_)
            throw UpdateFeedError::transport("given up");
        const auto *downloading = std::get_if<Downloading>(&state_);
        if (downloading && size.value_or(0) > 0)
            enter(Downloading{downloading->manifest,
                              std::min(static_cast<double>(received) / static_cast<double>(*size), 1.0)});
    };
    try {
        makePrivateFolder(setup_.downloadFolder);
        auto download = services_.feed.download(URL::parse(manifest.url).value(), manifest.size,
                                                package->path(), downloadTimeout, progress);
        co_await download;
        if (isAlive.expired() || work != work_)
            co_return;
        Callback<std::string> hashing(services_.actor, [&](Callback<std::string>::Resume resume) {
            const auto result = std::make_shared<std::string>();
            services_.queue.run(
                [result, &failure, path = package->path()] {
                    try {
                        *result = UpdateFeed::sha256(path);
                    } catch (const std::exception &error) {
                        failure = error.what();
                    }
                },
                [result, resume = std::move(resume)] { resume(*result); });
        });
        hash = co_await hashing;
    } catch (const UpdateFeedError &error) {
        failure = error.description();
        if (error.cause() && TLSInterception::isCertificateFailure(*error.cause())) {
            interceptor = TLSInterception::interceptor(*error.cause());
            key += interceptor ? ".tls.named" : ".tls";
        }
    } catch (const std::exception &error) {
        failure = error.what();
    }
    if (isAlive.expired() || work != work_)
        co_return;
    if (failure) {
        package.reset();
        note("download failed: " + *failure);
        enterIf(work, Failed{key, manifest}, interceptor);
        co_return;
    }
    if (hash != lowercase(manifest.sha256)) {
        package.reset();
        note("hash mismatch");
        enterIf(work, Failed{"update.error.hash", manifest});
        co_return;
    }

    note("downloaded, sha256 ok; handing over to the daemon");
    enterIf(work, Installing{manifest});
    UpdateResult answer;
    try {
        auto call = handOver(package->path(), offer, isAlive);
        answer = co_await call;
    } catch (const TarnXPCClientError &error) {
        failure = error.description();
    }
    if (isAlive.expired())
        co_return;
    note(failure ? "handover failed: " + *failure : lineOf(answer));
    if (!answer.ok) {
        package.reset();
        enterIf(work, Failed{"update.error.handover", manifest});
        co_return;
    }
    auto &defaults = services_.defaults;
    defaults.setString(keys::pendingVersion, manifest.version);
    defaults.remove(keys::pendingNotes);
    if (const auto notes = UpdateFeed::notesURL(manifest, UpdateFeed::notesHosts()))
        defaults.setString(keys::pendingNotes, notes->absoluteString());
    defaults.setInteger(keys::pendingBuild, manifest.build);
    auto following = follow(std::move(package), manifest, work, isAlive);
    co_await following;
}

Task<UpdateResult> UpdateChecker::handOver(std::string path, UpdateFeed::SignedManifest offer,
                                           IsAlive isAlive) {
    UpdateResult answer;
    std::optional<std::string> reason;
    try {
        auto call = services_.daemon.installVerifiedUpdate(path, offer.data, offer.signature, daemonTimeout);
        answer = co_await call;
        if (!answer.ok && answer.code == "handover.unsupported")
            reason = answer.message;
    } catch (const TarnXPCClientError &error) {
        // A daemon that knows only the older method.
        if (error.remoteName() != unknownMethod)
            throw;
        reason = error.description();
    }
    if (!reason || isAlive.expired())
        co_return answer;
    note("daemon does not take a handed-over manifest (" + *reason + "); letting it fetch");
    auto call = services_.daemon.installUpdate(path, daemonTimeout);
    answer = co_await call;
    co_return answer;
}

Task<void> UpdateChecker::follow(std::shared_ptr<Package> package, UpdateManifest manifest, Work work,
                                 IsAlive isAlive) {
    ++handedOver_;
    auto &actor = services_.actor;
    auto &daemon = services_.daemon;
    std::optional<UpdateResult> last;
    for (const auto end = actor.now() + statusLimit; actor.now() < end;) {
        Callback<bool> pause(actor, [&actor](Callback<bool>::Resume resume) {
            actor.postAfter(statusInterval, [resume = std::move(resume)] { resume(true); });
        });
        co_await pause;
        std::optional<UpdateResult> answer;
        if (!isAlive.expired()) {
            try {
                auto call = daemon.updateStatus(daemonTimeout);
                answer = co_await call;
            } catch (const TarnXPCClientError &) {
                // The daemon is replaced as well, and comes back.
            }
        }
        if (isAlive.expired()) {
            if (package)
                package->leave();
            co_return;
        }
        if (!answer || answer == last)
            continue;
        last = answer;
        note("updater: " + lineOf(*answer));
        if (package && !isWaiting(*answer)) {
            --handedOver_;
            package.reset();
        }
        if (isRefusal(*answer)) {
            // Unless a later hand-over has put its own there.
            if (services_.defaults.integer(keys::pendingBuild) == manifest.build)
                forgetPending();
            enterIf(work, Failed{"update.error.installer", manifest});
            co_return;
        }
        if (answer->ok && answer->code == "installed") {
            enterIf(work, Installing{manifest, true});
            co_return;
        }
    }
    if (package)
        --handedOver_;
    note("updater: nothing more is heard");
}

} // namespace tarn
