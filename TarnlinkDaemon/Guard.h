#pragma once

#include "TarnCore/Policy.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/KernelTables.h"
#include "TarnSystem/Log.h"
#include "TarnSystem/ProbeOutcome.h"
#include "TarnSystem/SystemClock.h"
#include "TarnlinkDaemon/History.h"
#include "TarnlinkDaemon/Journal.h"
#include "TarnlinkDaemon/Reading.h"
#include "TarnlinkDaemon/Switcher.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tarn {

/// What reaches the guard.
namespace input {

/// The first input, and the only one of its kind.
struct Start {
    DaemonConfig config;
    std::string bootID;
    /// What an earlier daemon left behind.
    std::optional<Journal> journal;
    std::optional<Pause> pause;
    /// Why the journal that was there cannot be used; empty when it can, or there was none.
    std::string damage;
    std::uint64_t nextHistoryNumber = 1;
    /// Only what the journal says is to be undone; then the guard finishes.
    bool undoOnly = false;
};
/// A batch of changes of the dynamic store.
struct NetworkChanged {
    std::vector<std::string> keys;
};
/// The answer to `Read`, with the number of the last one that was given before it began.
struct ReadingTaken {
    std::uint64_t number = 0;
    Reading reading;
};
struct ReadingFailed {
    std::uint64_t number = 0;
    std::string message;
};
struct ProbeEnded {
    std::uint64_t number = 0;
    ProbeOutcome outcome;
};
/// The answer to `CountBytes`.
struct BytesCounted {
    std::string device;
    std::optional<KernelTables::ByteCounts> bytes;
};
/// The answers to `Carry` and `WriteJournal`; the error is empty when it succeeded.
struct CommandEnded {
    std::uint64_t number = 0;
    std::string error;
};
struct JournalWritten {
    std::uint64_t number = 0;
    std::string error;
};
/// The moment of the last `WakeAt` has come.
struct TimeCame {};
struct PauseWanted {
    std::chrono::nanoseconds length{};
};
struct ResumeWanted {};
struct SettingsChanged {
    DaemonConfig config;
};
struct Woke {};
struct ClockSet {};
struct StopWanted {};

} // namespace input

struct Input {
    using What = std::variant<input::Start, input::NetworkChanged, input::ReadingTaken, input::ReadingFailed,
                              input::ProbeEnded, input::BytesCounted, input::CommandEnded,
                              input::JournalWritten, input::TimeCame, input::PauseWanted, input::ResumeWanted,
                              input::SettingsChanged, input::Woke, input::ClockSet, input::StopWanted>;
    Moment at;
    What what;
};

/// What the guard wants done.
namespace effect {

/// Read the network. Several that are given before a reading begins are one.
struct Read {
    std::uint64_t number = 0;
    bool everything = false;
};
struct SendProbe {
    std::uint64_t number = 0;
    std::string device;
    std::string server;
    std::optional<std::string> localAddress;
    double timeout = 0; // seconds
};
struct CountBytes {
    std::string device;
};
/// One at a time.
struct Carry {
    std::uint64_t number = 0;
    Command command;
};
/// One at a time. An empty journal needs no file.
struct WriteJournal {
    std::uint64_t number = 0;
    Journal journal;
};
/// None: there is no pause any more.
struct WritePause {
    std::optional<Pause> pause;
};
/// Send `TimeCame` at this time since boot; replaces an earlier one. None: never.
struct WakeAt {
    std::optional<std::chrono::nanoseconds> sinceBoot;
};
struct Remember {
    HistoryEntry entry;
};
struct RememberDone {
    std::uint64_t number = 0;
    std::string what;
};
/// A decision other than the last one, for whoever shows it.
struct Decided {
    Decision decision;
};
struct Say {
    Log::Level level = Log::Level::info;
    std::string message;
};
/// Nothing more is wanted. `isUndone`: nothing of ours is left on the machine. `isHung`: a command does
/// not end; only a new process can go on.
struct Finish {
    bool isUndone = true;
    bool isHung = false;
};

} // namespace effect

using Effect = std::variant<effect::Read, effect::SendProbe, effect::CountBytes, effect::Carry,
                            effect::WriteJournal, effect::WritePause, effect::WakeAt, effect::Remember,
                            effect::RememberDone, effect::Decided, effect::Say, effect::Finish>;

/// The daemon's judgement: what it knows, and what it wants done about it. It touches nothing:
/// equal inputs at equal moments give equal effects, so that what happened on a machine can be
/// gone through again elsewhere.
///
/// What keeps people online: nothing that takes a path away is carried out before the journal
/// with its undoing is on disk; switching Wi-Fi on waits for nothing; a network that cannot be
/// read counts as one without a cable.
///
/// Thread: one.
class Guard {
public:
    using Duration = std::chrono::nanoseconds;

    /// Takes one input and returns what is to be done about it, in order.
    std::vector<Effect> handle(const Input &input);

    /// The last decision; none before the first.
    const std::optional<Decision> &decision() const { return decision_; }
    const DaemonConfig &config() const { return config_; }
    /// The last reading; empty before the first.
    const Reading &reading() const { return reading_; }
    const Journal &journal() const { return journal_; }
    /// Probe states of the paths that are there.
    ProbeStates probeStates() const;
    /// The switches by which it decides, as the last reading has them.
    TarnControl control() const;
    /// What is left of a pause; none when there is none.
    std::optional<Duration> pauseLeft(const Moment &now) const;

private:
    struct Path {
        /// What would make another path of it.
        std::vector<std::string> identity = {};
        /// Empty when there is none to ask.
        std::string server = {};
        std::optional<std::string> source = {};
        ProbeState state = ProbeState::pending();
        /// The probe under way; 0 for none.
        std::uint64_t probe = 0;
        Duration deadline{};
        /// When the next is due, if the path is wanted.
        Duration next{};
        bool isWanted = false;
        std::optional<KernelTables::ByteCounts> bytes = {};
        /// When the counters are looked at again before that; none for not at all.
        std::optional<Duration> stallCheck = {};
    };
    /// How the carrying out of one wish goes.
    struct Attempt {
        unsigned failures = 0;
        /// Of those, how often it succeeded and showed nothing.
        unsigned fruitless = 0;
        std::string lastError = {};
        Duration retryAt{};
        /// Succeeded; the reading with this number must show it.
        std::optional<std::uint64_t> shownBy;
        /// Succeeded again and again and shows nothing: left until the world changes.
        bool isGivenUp = false;
    };
    /// Something to be changed, as the last reading has it.
    struct Wish {
        std::string key;
        Command command;
        /// What the journal has to say before; none when it may be carried out at once.
        std::optional<Journal> journal;
    };
    static constexpr const char *flushKey = "flush";
    static constexpr const char *wifiOnKey = "wifi on";
    /// How often a command may succeed and show nothing.
    static constexpr unsigned mostFruitless = 6;
    /// How often the undoing of one thing is tried before the end.
    static constexpr unsigned mostUndoTries = 3;

    void on(const input::Start &start);
    void on(const input::NetworkChanged &change);
    void on(const input::ReadingTaken &taken);
    void on(const input::ReadingFailed &failed);
    void on(const input::ProbeEnded &ended);
    void on(const input::BytesCounted &counted);
    void on(const input::CommandEnded &ended);
    void on(const input::JournalWritten &written);
    void on(const input::TimeCame &);
    void on(const input::PauseWanted &wanted);
    void on(const input::ResumeWanted &);
    void on(const input::SettingsChanged &change);
    void on(const input::Woke &);
    void on(const input::ClockSet &);
    void on(const input::StopWanted &);

    Duration now() const { return at_.sinceBoot; }
    bool isPaused() const { return pauseLeft(at_).has_value(); }
    void say(Log::Level level, std::string message);
    /// Reads, and evaluates with this cause when the reading is there.
    void look(std::string cause, bool everything);
    void evaluate();
    void evaluateIfCurrent();
    /// Wi-Fi is off in a way that no entry of the journal explains.
    bool isOffByOthers() const;
    void updatePaths();
    static bool isProbed(const Path &path) { return path.state.kind != ProbeState::Kind::notApplicable; }
    void sendProbe(const std::string &device, Path &path);
    void probeEnded(const std::string &device, Path &path, const ProbeOutcome &outcome);
    void readingLost(const std::string &message);
    /// The last reading shows all that was switched.
    bool isReadingCurrent() const { return hasReading_ && readShown_ >= readNeeded_; }
    bool mustSwitchOn() const { return mustSwitchOn_ || (journal_.wifi && journal_.wifi->isUnknown); }
    /// It shows what was switched of Wi-Fi.
    bool isWiFiCurrent() const { return hasReading_ && readShown_ >= wifiReadNeeded_; }
    /// What is not known yet has to be, before Wi-Fi can be switched on whole.
    bool isAwaitingReading() const;
    void keepPause(Duration length);
    void forgetPause();
    /// Does what has come due.
    void checkTimes();

    /// The most urgent first.
    std::vector<Wish> wishes() const;
    /// Everything of Wi-Fi that is off comes on.
    Wish wifiOn() const;
    /// None when there is nothing to take off.
    std::optional<Wish> wifiOff() const;
    /// Of a Wi-Fi service, by the last reading; null where that does not tell.
    const ProtocolConfiguration *configurationOf(const std::string &serviceID, IPProtocol protocol) const;
    /// The last reading shows that it has an address again.
    bool isBack(const Journal::SavedProtocol &saved) const;
    /// Leaves out of the journal what somebody has given an address since, and knows better.
    void forgetConfigured();
    /// What the journal says of Wi-Fi and the reading does not show as undone.
    void addWiFiUndoing(std::vector<Wish> &list) const;
    /// What takes paths away is undone, and `all` the rest as well.
    void addUndoing(std::vector<Wish> &list, bool all) const;
    void addResolverWishes(std::vector<Wish> &list) const;
    static Wish puttingBack(const Journal::Resolver &resolver);
    /// The phone behind whose link-local address one of the servers is; null for none.
    const InterfaceSnapshot *tetheringBehind(const std::vector<std::string> &servers) const;
    /// The journal without what somebody else has undone.
    Journal tidied(const std::vector<Wish> &wanted) const;
    /// Starts what can be started: one command, one writing.
    void proceed();
    /// What a command that succeeded means for the journal.
    void settle(const Command &command);
    bool isWritten(const Journal &journal) const { return !isFileDamaged_ && written_ == journal; }
    void write(const Journal &journal, bool isForWish);
    void finishIfDone();
    void setTimer();

    std::vector<Effect> effects_;
    Moment at_;
    DaemonConfig config_;
    std::string bootID_;
    std::optional<Pause> pause_;

    Reading reading_;
    bool hasReading_ = false;
    /// Readings that failed since the last that did not.
    unsigned readingsFailed_ = 0;
    Duration readAt_{};
    std::uint64_t readsAsked_ = 0;
    std::uint64_t readShown_ = 0;
    /// A reading failed or did not come, and none has come since.
    bool isLate_ = false;
    /// Readings with a smaller number do not show what was switched since.
    std::uint64_t readNeeded_ = 0;
    std::uint64_t wifiReadNeeded_ = 0;
    /// A reading that was asked for has to be here by then.
    std::optional<Duration> readDeadline_;
    std::optional<Duration> readRetry_;
    /// What has happened since the last evaluation.
    std::vector<std::string> causes_;

    std::map<std::string, Path> paths_;
    std::uint64_t probesSent_ = 0;

    std::optional<Decision> decision_;
    /// Its number in the history.
    std::uint64_t decisionNumber_ = 0;
    std::uint64_t nextHistoryNumber_ = 1;

    /// What of ours is on the machine, as far as we know.
    Journal journal_;
    /// What is on disk, unless that is damaged.
    Journal written_;
    bool isFileDamaged_ = false;
    std::optional<Journal> writing_;
    bool isWritingForWish_ = false;
    std::uint64_t writes_ = 0;
    Attempt writeAttempt_;
    bool isWriteFailureSaid_ = false;

    /// Wi-Fi has to come on whatever the policy says, because nobody sees what happens.
    bool mustSwitchOn_ = false;
    std::map<std::string, Attempt> attempts_;
    std::optional<Wish> carrying_;
    Duration carryDeadline_{};
    std::uint64_t commands_ = 0;
    /// For whom the command under way, or the next, is remembered.
    std::uint64_t carryingFor_ = 0;
    bool isFlushDue_ = false;
    bool isMissingWiFiSaid_ = false;
    std::optional<Duration> wakeAt_;
    bool isStopping_ = false;
    bool isFinished_ = false;
};

} // namespace tarn
