#pragma once

#include "TarnSystem/AdminAuthorization.h"
#include "TarnSystem/KernelTables.h"
#include "TarnSystem/Preferences.h"
#include "TarnSystem/VPNDetector.h"
#include "TarnSystem/WorkQueue.h"
#include "TarnXPC/Records.h"
#include "TarnXPC/RemoteListener.h"
#include "TarnlinkDaemon/Daemon.h"
#include "TarnlinkDaemon/UpdateRequests.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tarn {

/// Answers what clients ask of the daemon.
///
/// Everybody may ask for the status. Whoever wants a pause shows an authorization of an administrator.
/// The rest is for those whom the managing right is granted. Where the system lets in signed programs
/// only, that is enough for all but pausing.
///
/// Codes of PauseResult: "granted" with the minutes, "resumed", "notPaused", "badLength", "failed", and
/// "denied.noCredential" (nobody has authenticated, and nobody can be asked), "denied.admin" (refused).
/// "failed" is also a pause that was judged too late. Of SettingResult: "saved", "managed" (management has
/// set it), "overridden" (stored, but another setting counts more), "failed" (not stored), "dryRun" (this
/// daemon changes nothing), and the two denied ones. UpdateResult has the last three as well, beside
/// "tooLong" and those of UpdateRequests.
///
/// Thread: main thread; what may block is done on the two queues.
/// Ownership: the services must outlive this, and this every job that it gave to a queue.
class DaemonService final : public RemoteService {
public:
    struct Services {
        Daemon &daemon;
        SystemClock &clock;
        KernelTables &kernelTables;
        /// Used on `authorizationQueue` alone.
        Authorizing &pausing;
        Authorizing &managing;
        WorkQueue &authorizationQueue;
        /// Used on `settingsQueue` alone.
        Preferences &settings;
        WorkQueue &settingsQueue;
        /// Used on `settingsQueue` alone.
        UpdateRequests &updates;
    };
    /// Of arguments, in bytes; a call with more is refused.
    static constexpr std::size_t mostPathBytes = 4096;
    static constexpr std::size_t mostManifestBytes = 64 * 1024;
    static constexpr std::size_t mostSignatureBytes = 4096;
    /// A pause that could not be judged for longer does not begin any more: nobody waits for it.
    static constexpr std::chrono::seconds longestWait{5};

    explicit DaemonService(const Services &services) : services_(services) {}
    DaemonService(const DaemonService &) = delete;
    DaemonService &operator=(const DaemonService &) = delete;

    void call(const RemoteCaller &caller, const TarnXPCProtocol::Call &call, Reply reply) override;

    /// The daemon's state as of now.
    StatusReport report();

private:
    /// A status of AuthorizationServices.
    using Judged = std::function<void(std::int32_t status)>;

    void on(const RemoteCaller &caller, const TarnXPCProtocol::Pause &call, Reply reply);
    void on(const RemoteCaller &caller, const TarnXPCProtocol::Resume &, Reply reply);
    void on(const RemoteCaller &caller, const TarnXPCProtocol::Diagnostics &, Reply reply);
    void on(const RemoteCaller &caller, const TarnXPCProtocol::SetTetheringWhileWired &call, Reply reply);
    void on(const RemoteCaller &caller, const TarnXPCProtocol::SetTetheringDNSFix &call, Reply reply);
    void on(const RemoteCaller &caller, const TarnXPCProtocol::InstallUpdate &call, Reply reply);
    void on(const RemoteCaller &caller, const TarnXPCProtocol::InstallVerifiedUpdate &call, Reply reply);
    void on(const RemoteCaller &caller, const TarnXPCProtocol::UpdateStatus &, Reply reply);

    /// Whether an authorization that the caller has sent is its own and stands for the pausing right.
    void judgePausing(const RemoteCaller &caller, const std::string &authorization, Judged judged);
    /// Whether the caller has the managing right.
    void judgeManaging(const RemoteCaller &caller, Judged judged);
    void verify(Authorizing &right, std::string externalForm, Judged judged);
    /// The answer to whoever may not, of a type with a code, and with what else there is to tell.
    template <class Record> Record denied(std::int32_t status) const;
    /// Whoever may not gets a denied `Record`.
    template <class Record>
    void manage(const RemoteCaller &caller, Reply reply, std::function<void(Reply)> go);
    void change(bool (*isForced)(Preferences &), bool (*write)(Preferences &, bool), bool value,
                std::function<bool(const DaemonConfig &)> isInForce, Reply reply);
    void submit(const RemoteCaller &caller, Reply reply, std::string pkgPath,
                std::optional<std::string> manifest, std::optional<std::string> signature);
    void ask(std::function<UpdateResult(UpdateRequests &)> question, Reply reply);
    PauseResult pause(double seconds);
    PauseResult refused(std::string code, std::string message) const;
    std::optional<Date> pausedUntil() const;
    const std::optional<VPNDetector::Tunnel> &tunnel(const Moment &now);

    Services services_;
    /// By client.
    std::map<std::string, std::size_t> underWay_;
    std::optional<VPNDetector::Tunnel> tunnel_;
    std::optional<std::chrono::nanoseconds> tunnelSeenAt_;
    std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

} // namespace tarn
