#include "TarnXPC/TarnXPCClient.h"

#include "TarnCore/Text.h"
#include "TarnXPC/TarnXPC.h"
#include "TarnXPC/TarnXPCCoding.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <mutex>
#include <string_view>
#include <utility>
#include <variant>

namespace tarn {

using Error = TarnXPCClientError;

Error Error::timeout(double seconds) {
    return {Kind::timeout, "Timed out after " + text::fromDouble(seconds) + "s waiting for the daemon."};
}
Error Error::decoding(const std::string &text) {
    return {Kind::decoding, "Failed to decode daemon response: " + text};
}
Error Error::remote(const std::string &text, const std::string &name) {
    return {Kind::remote, "Daemon returned an error: " + text, name};
}
Error Error::unavailable() {
    return {Kind::unavailable, "The Tarnlink daemon is not available."};
}
Error Error::invalidated() {
    return {Kind::invalidated, "The XPC connection was invalidated."};
}

Error mapError(const RemoteError &error) {
    constexpr std::int64_t interrupted = 4097; // NSXPCConnectionInterrupted
    constexpr std::int64_t invalid = 4099;     // NSXPCConnectionInvalid
    if (error.domain == "NSCocoaErrorDomain" && (error.code == interrupted || error.code == invalid))
        return Error::unavailable();
    // On the bus: nobody has the name or there is no bus, the bus lets nobody through, the connection of
    // the other or our own is gone.
    constexpr std::string_view bus = "org.freedesktop.DBus.Error.";
    constexpr std::string_view system = "System.Error.";
    constexpr std::array<std::string_view, 7> ofBus = {"ServiceUnknown", "NameHasNoOwner", "NoServer",
                                                       "FileNotFound",   "AccessDenied",   "NoReply",
                                                       "Disconnected"};
    constexpr std::array<std::string_view, 10> ofSystem = {
        "EAGAIN",     "ENOENT", "ECONNREFUSED", "EACCES",    "EPERM",
        "ECONNRESET", "EPIPE",  "ENOTCONN",     "ESHUTDOWN", "ENOTDIR"};
    const std::string_view name = error.domain;
    const auto isAmong = [&](std::string_view prefix, const auto &names) {
        return name.starts_with(prefix) &&
               std::find(names.begin(), names.end(), name.substr(prefix.size())) != names.end();
    };
    if (isAmong(bus, ofBus) || isAmong(system, ofSystem))
        return Error::unavailable();

    std::string words = error.localizedDescription;
    for (char &character : words)
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    for (const char *phrase : {"couldn’t communicate", "couldn't communicate", "service not found"})
        if (words.find(phrase) != std::string::npos)
            return Error::unavailable();
    return Error::remote(error.localizedDescription, error.domain);
}

namespace {

using Result = std::variant<std::string, Error>;

/// The first of reply, error and time limit ends a call; whatever comes later is dropped.
class Latch {
public:
    explicit Latch(std::function<void(Result)> resume) : resume_(std::move(resume)) {}

    void finish(Result result) {
        {
            const std::lock_guard guard(lock_);
            if (std::exchange(done_, true))
                return;
        }
        resume_(std::move(result));
    }

private:
    std::mutex lock_;
    bool done_ = false; // guarded by lock_
    std::function<void(Result)> resume_;
};

} // namespace

struct TarnXPCClient::State : std::enable_shared_from_this<State> {
    State(RemoteConnector &remote, MainActor &main) : connector(remote), actor(main) {}

    std::shared_ptr<RemoteConnection> connectionOrThrow();
    void dropConnection(const std::shared_ptr<RemoteConnection> &which);
    void invalidate();

    /// The bytes of the answer.
    static Task<std::string> call(std::shared_ptr<State> self, TarnXPCProtocol::Call call, double timeout);
    /// The answer as a record.
    template <class Record>
    static Task<Record> ask(std::shared_ptr<State> self, TarnXPCProtocol::Call call, double timeout);

    RemoteConnector &connector;
    MainActor &actor;
    std::mutex lock; // never held across a remote call
    std::shared_ptr<RemoteConnection> connection;
    bool isInvalidated = false;
};

std::shared_ptr<RemoteConnection> TarnXPCClient::State::connectionOrThrow() {
    const std::lock_guard guard(lock);
    if (isInvalidated)
        throw Error::invalidated();
    if (connection)
        return connection;
    auto made = connector.connect(TarnXPC::machServiceName, TarnXPC::daemonRequirement);
    const auto lost = [weak = weak_from_this(), which = std::weak_ptr(made)] {
        if (const auto self = weak.lock())
            self->dropConnection(which.lock());
    };
    made->setInvalidationHandler(lost);
    made->setInterruptionHandler(lost);
    made->resume();
    connection = made;
    return made;
}

void TarnXPCClient::State::dropConnection(const std::shared_ptr<RemoteConnection> &which) {
    std::shared_ptr<RemoteConnection> dropped;
    {
        const std::lock_guard guard(lock);
        // A late word about a connection that is gone must not cost its successor.
        if (!connection || connection != which)
            return;
        connection->setInvalidationHandler({});
        connection->setInterruptionHandler({});
        // Let go of outside the lock.
        dropped = std::exchange(connection, nullptr);
    }
}

void TarnXPCClient::State::invalidate() {
    std::shared_ptr<RemoteConnection> taken;
    {
        const std::lock_guard guard(lock);
        taken = std::exchange(connection, nullptr);
        isInvalidated = true;
    }
    if (taken)
        taken->invalidate();
}

Task<std::string> TarnXPCClient::State::call(std::shared_ptr<State> self, TarnXPCProtocol::Call call,
                                             double timeout) {
    const auto connection = self->connectionOrThrow();
    auto result = co_await Callback<Result>(self->actor, [&](Callback<Result>::Resume resume) {
        const auto latch = std::make_shared<Latch>(std::move(resume));
        const bool isSent = connection->invoke(
            call, [latch](std::string bytes) { latch->finish(std::move(bytes)); },
            [latch](const RemoteError &error) { latch->finish(mapError(error)); });
        if (!isSent)
            return latch->finish(Error::unavailable());
        // Not cancelled by an answer: it finds the latch closed.
        self->actor.postAfter(fromSeconds(std::max(timeout, 0.0)),
                              [latch, timeout] { latch->finish(Error::timeout(timeout)); });
    });
    if (auto *error = std::get_if<Error>(&result))
        throw *error;
    co_return std::get<std::string>(std::move(result));
}

template <class Record>
Task<Record> TarnXPCClient::State::ask(std::shared_ptr<State> self, TarnXPCProtocol::Call call,
                                       double timeout) {
    const auto bytes = co_await State::call(std::move(self), std::move(call), timeout);
    try {
        co_return TarnXPCCoding::decoder().decode<Record>(bytes);
    } catch (const DecodingError &error) {
        throw Error::decoding(error.description());
    }
}

namespace {

/// Neither system can send other text.
void requireText(const std::string &text, const char *what) {
    if (!text::isUTF8(text) || text.find('\0') != std::string::npos)
        throw Error::remote(std::string(what) + " is no text that can be sent.");
}

} // namespace

TarnXPCClient::TarnXPCClient(RemoteConnector &connector, MainActor &actor)
    : state_(std::make_shared<State>(connector, actor)) {}

TarnXPCClient::~TarnXPCClient() = default;

void TarnXPCClient::invalidate() {
    state_->invalidate();
}

Task<StatusReport> TarnXPCClient::status(double timeout) {
    return State::ask<StatusReport>(state_, TarnXPCProtocol::Status(), timeout);
}
Task<PauseResult> TarnXPCClient::pause(double seconds, std::optional<std::string> authorization,
                                       double timeout) {
    return State::ask<PauseResult>(state_, TarnXPCProtocol::Pause{seconds, std::move(authorization)},
                                   timeout);
}
Task<PauseResult> TarnXPCClient::resume(double timeout) {
    return State::ask<PauseResult>(state_, TarnXPCProtocol::Resume(), timeout);
}
Task<std::string> TarnXPCClient::diagnostics(double timeout) {
    return State::call(state_, TarnXPCProtocol::Diagnostics(), timeout);
}
Task<SettingResult> TarnXPCClient::setTetheringWhileWired(bool allow, double timeout) {
    return State::ask<SettingResult>(state_, TarnXPCProtocol::SetTetheringWhileWired{allow}, timeout);
}
Task<SettingResult> TarnXPCClient::setTetheringDNSFix(bool enabled, double timeout) {
    return State::ask<SettingResult>(state_, TarnXPCProtocol::SetTetheringDNSFix{enabled}, timeout);
}
Task<UpdateResult> TarnXPCClient::installUpdate(std::string pkgPath, double timeout) {
    requireText(pkgPath, "The path of the package");
    return State::ask<UpdateResult>(state_, TarnXPCProtocol::InstallUpdate{std::move(pkgPath)}, timeout);
}
Task<UpdateResult> TarnXPCClient::installVerifiedUpdate(std::string pkgPath, std::string manifest,
                                                        std::string signature, double timeout) {
    requireText(pkgPath, "The path of the package");
    requireText(signature, "The signature");
    return State::ask<UpdateResult>(
        state_,
        TarnXPCProtocol::InstallVerifiedUpdate{std::move(pkgPath), std::move(manifest), std::move(signature)},
        timeout);
}
Task<UpdateResult> TarnXPCClient::updateStatus(double timeout) {
    return State::ask<UpdateResult>(state_, TarnXPCProtocol::UpdateStatus(), timeout);
}

} // namespace tarn
