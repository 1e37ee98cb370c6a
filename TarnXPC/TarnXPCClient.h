#pragma once

#include "TarnSystem/MainActor.h"
#include "TarnSystem/Task.h"
#include "TarnXPC/Records.h"
#include "TarnXPC/RemoteConnection.h"

#include <exception>
#include <memory>
#include <optional>
#include <string>

namespace tarn {

/// The only error that TarnXPCClient throws. The words are fixed.
class TarnXPCClientError : public std::exception {
public:
    enum class Kind { timeout, decoding, remote, unavailable, invalidated };

    static TarnXPCClientError timeout(double seconds);
    static TarnXPCClientError decoding(const std::string &text);
    /// `name`: as remoteName().
    static TarnXPCClientError remote(const std::string &text, const std::string &name = {});
    static TarnXPCClientError unavailable();
    static TarnXPCClientError invalidated();

    Kind kind() const { return kind_; }
    const std::string &description() const { return description_; }
    /// Of a `remote` error, RemoteError's domain, which on the bus is the error's name; else empty.
    const std::string &remoteName() const { return remoteName_; }
    const char *what() const noexcept override { return description_.c_str(); }

private:
    TarnXPCClientError(Kind kind, std::string description, std::string remoteName = {})
        : kind_(kind), description_(std::move(description)), remoteName_(std::move(remoteName)) {}

    Kind kind_;
    std::string description_;
    std::string remoteName_;
};

/// A program's only way to the daemon: one connection, made by the first call and made anew by the first
/// call after it was lost.
///
/// Each operation throws TarnXPCClientError, `timeout` seconds after it began at the latest; a negative
/// time limit counts as zero. What the daemon answers after that is dropped. A path or a signature that is
/// not UTF-8, or holds a zero byte, is `remote`, thrown before anything is awaited.
///
/// Thread: the operations on the main actor; invalidate() on any thread where the connection allows it.
/// Ownership: connector and actor must outlive the client and every operation under way; the client may
///   go before its operations end.
class TarnXPCClient {
public:
    TarnXPCClient(RemoteConnector &connector, MainActor &actor);
    TarnXPCClient(const TarnXPCClient &) = delete;
    TarnXPCClient &operator=(const TarnXPCClient &) = delete;
    ~TarnXPCClient();

    Task<StatusReport> status(double timeout);
    /// `authorization`: the external form that AdminAuthorization gives.
    Task<PauseResult> pause(double seconds, std::optional<std::string> authorization, double timeout);
    Task<PauseResult> resume(double timeout);
    /// As the daemon sent it.
    Task<std::string> diagnostics(double timeout);
    Task<SettingResult> setTetheringWhileWired(bool allow, double timeout);
    Task<SettingResult> setTetheringDNSFix(bool enabled, double timeout);
    Task<UpdateResult> installUpdate(std::string pkgPath, double timeout);
    /// Manifest and signature as fetched, the latter in base64.
    Task<UpdateResult> installVerifiedUpdate(std::string pkgPath, std::string manifest, std::string signature,
                                             double timeout);
    Task<UpdateResult> updateStatus(double timeout);

    /// Ends the client for good: operations throw `invalidated` from now on.
    void invalidate();

private:
    struct State;

    std::shared_ptr<State> state_;
};

/// The error that a connection's error counts as.
TarnXPCClientError mapError(const RemoteError &error);

} // namespace tarn
