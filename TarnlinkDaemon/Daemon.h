#pragma once

#include "TarnSystem/HostEvents.h"
#include "TarnSystem/Log.h"
#include "TarnSystem/NetworkEventSource.h"
#include "TarnSystem/Preferences.h"
#include "TarnSystem/Probing.h"
#include "TarnSystem/Supervisor.h"
#include "TarnSystem/SystemClock.h"
#include "TarnSystem/TrafficCounters.h"
#include "TarnSystem/WorkQueue.h"
#include "TarnlinkDaemon/Guard.h"
#include "TarnlinkDaemon/History.h"
#include "TarnlinkDaemon/StateFolder.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// The daemon: gives the guard what happens and carries out what it wants.
///
/// Thread: main thread; the three queues do what blocks.
/// Ownership: the services must outlive the daemon, and the daemon every job that it gave to a queue
///   and every probe under way.
class Daemon {
public:
    struct Services {
        MainActor &actor;
        SystemClock &clock;
        Log &log;
        NetworkEventSource &events;
        HostEvents &host;
        Supervisor &supervisor;
        /// Makes a prober that asks for this name.
        std::function<std::unique_ptr<Probing>(const std::string &name)> makeProber;
        TrafficCounting &counters;
        /// Used on `readQueue` alone.
        NetworkReading &reader;
        WorkQueue &readQueue;
        /// Used on `switchQueue` alone.
        Switching &switcher;
        WorkQueue &switchQueue;
        /// Written on `diskQueue` alone; read where the daemon is made.
        StateFolder &folder;
        WorkQueue &diskQueue;
        /// Told, before the first reading, which services the journal says are disabled. May be empty.
        std::function<void(const std::vector<std::string> &serviceIDs)> rememberDisabled;
        /// Gives the settings as they are now.
        std::function<DaemonConfig()> loadConfig;
    };
    struct Options {
        /// Only undo what an earlier daemon left behind, and end.
        bool undoOnly = false;
        /// Takes each line of the recording, in order; empty for none.
        std::function<void(const std::string &line)> record;
    };
    static constexpr const char *journalName = "journal.json";
    static constexpr const char *pauseName = "pause.json";

    /// Reads what an earlier daemon left in the folder. `finished` is called once, when everything is
    /// undone, or could not be, after a stop.
    Daemon(const Services &services, Options options, std::function<void(bool isUndone)> finished);
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;
    ~Daemon();

    /// Begins. Called once.
    void start();
    /// Undoes everything and calls `finished`; again does nothing.
    void stop();

    enum class PauseResult {
        paused,
        badLength, ///< Not a number, infinite, or not above zero.
    };
    /// Pauses the protection; an earlier pause gives way. A longer pause than the settings allow becomes as
    /// long as they allow. `seconds` counts from now, time asleep included.
    PauseResult pause(double seconds);
    /// False when there was no pause.
    bool resume();
    /// Takes the settings as they are now.
    void reloadConfig();

    const Guard &guard() const { return guard_; }
    const History &history() const { return history_; }

private:
    void handle(Input::What what);
    void perform(effect::Read &read);
    void perform(effect::SendProbe &probe);
    void perform(effect::CountBytes &count);
    void perform(effect::Carry &carry);
    void perform(effect::WriteJournal &write);
    void perform(effect::WritePause &write);
    void perform(effect::WakeAt &wake);
    void perform(effect::Remember &remember);
    void perform(effect::RememberDone &remember);
    void perform(effect::Decided &decided);
    void perform(effect::Say &say);
    void perform(effect::Finish &finish);
    void startReading();
    Task<void> probe(effect::SendProbe probe, std::shared_ptr<Probing> prober, std::weak_ptr<bool> isAlive);
    void told(HostEvents::Event event);
    void writeHistory(HistoryWrite write);
    void useConfig(const DaemonConfig &config);
    void sayAlive();
    /// Runs work on the disk queue; `done` only while this lives.
    void onDisk(WorkQueue::Job work, WorkQueue::Job done = [] {});

    Services services_;
    Options options_;
    std::function<void(bool)> finished_;
    Guard guard_;
    History history_;
    std::deque<Input> inputs_;
    bool isHandling_ = false;
    std::shared_ptr<Probing> prober_;
    std::string probeName_;
    double debounce_ = 0;
    bool isSubscribed_ = false;
    bool isDryRun_ = false;
    std::optional<effect::Read> readWanted_;
    bool isReading_ = false;
    MainActor::TimerID timer_ = 0;
    MainActor::TimerID aliveTimer_ = 0;
    std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

} // namespace tarn
