#include "Simulation/Simulation.h"

#include "Simulation/World.h"
#include "TarnlinkDaemon/Daemon.h"
#include "TarnlinkDaemon/Seal.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <utility>

namespace tarn::sim {
namespace {

constexpr std::uint64_t world = 0;
constexpr std::size_t traceLines = 60;
/// How much the daemon may read, say and switch at once, and for each second.
constexpr double mostWork = 600;
constexpr double workRate = 10;

class Prober final : public Probing {
public:
    /// Those whose answer is not there yet.
    using Waiting = std::set<std::coroutine_handle<>>;

    Prober(VirtualActor &actor, World &around, Waiting &waiting, bool isHopeful, std::uint64_t &count)
        : actor_(actor), world_(around), waiting_(waiting), isHopeful_(isHopeful), count_(count) {}

    Task<ProbeOutcome> probe(std::string device, std::string server, std::optional<std::string>,
                             double timeout) override {
        ++count_;
        auto [latency, outcome] = world_.answer(device, server, timeout);
        co_await Delay{*this, latency};
        co_return isHopeful_ ? ProbeOutcome::reachable(0.01) : outcome;
    }
    Task<DNSVerdict> ask(std::string, std::string, std::string, std::optional<std::string>, double) override {
        co_return DNSVerdict::unreachable;
    }

private:
    struct Delay {
        Prober &prober;
        Time time;

        bool await_ready() const { return false; }
        void await_suspend(std::coroutine_handle<> caller) const {
            prober.waiting_.insert(caller);
            prober.actor_.postAfter(time, [&waiting = prober.waiting_, caller] {
                waiting.erase(caller);
                caller.resume();
            });
        }
        void await_resume() const {}
    };

    VirtualActor &actor_;
    World &world_;
    Waiting &waiting_;
    bool isHopeful_;
    std::uint64_t &count_;
};

class BrokenSwitcher final : public Switching {
public:
    explicit BrokenSwitcher(Switching &inner) : inner_(inner) {}
    std::optional<std::string> carryOut(const Command &command) override {
        if (hasFailed_ && command.kind == Command::Kind::wifiOn)
            return std::nullopt;
        auto error = inner_.carryOut(command);
        hasFailed_ |= error.has_value();
        return error;
    }

private:
    Switching &inner_;
    bool hasFailed_ = false;
};

class LyingDisk final : public StateFolder {
public:
    explicit LyingDisk(StateFolder &inner) : inner_(inner) {}
    ReadResult read(const std::string &name) override { return inner_.read(name); }
    std::optional<std::string> replace(const std::string &, std::string_view) override {
        return std::nullopt;
    }
    std::optional<std::string> append(const std::string &name, std::string_view contents) override {
        return inner_.append(name, contents);
    }
    std::optional<std::string> remove(const std::string &name) override { return inner_.remove(name); }
    std::optional<std::string> keepCopy(const std::string &name) override { return inner_.keepCopy(name); }

private:
    StateFolder &inner_;
};

class CountingReader final : public NetworkReading {
public:
    CountingReader(NetworkReading &inner, bool isDeaf, std::function<void()> counted)
        : inner_(inner), isDeaf_(isDeaf), counted_(std::move(counted)) {}
    Reading read(bool everything) override {
        counted_();
        if (!isDeaf_)
            return inner_.read(everything);
        if (!first_)
            first_ = inner_.read(true);
        return *first_;
    }

private:
    NetworkReading &inner_;
    bool isDeaf_;
    std::function<void()> counted_;
    std::optional<Reading> first_;
};

class Simulation final : World::Observer, Log, Supervisor {
public:
    explicit Simulation(const Options &options)
        : options_(options), end_(seconds(options.days * 86400)), world_(time_, options.seed, *this) {}
    ~Simulation() override { bury(); }

    Result run();

private:
    /// One run of the daemon, with the sides of the machine that end with it.
    struct Process final : NetworkEventSource, HostEvents {
        Process(Simulation &of, std::uint64_t number, bool isUndoing);
        ~Process() override;

        void start(double length, NetworkEventSource::Handler with) override {
            debounce = seconds(length);
            changed = std::move(with);
        }
        void stop() override { changed = {}; }
        void start(HostEvents::Handler with) override { told = std::move(with); }
        void tell(Event event, Time after);
        void change(const std::string &key);

        Simulation &simulation;
        VirtualActor actor;
        bool undoOnly;
        bool isStopping = false;
        Time since;
        Time debounce{};
        NetworkEventSource::Handler changed;
        std::vector<std::string> keys;
        HostEvents::Handler told;
        VirtualQueue readQueue;
        VirtualQueue switchQueue;
        VirtualQueue diskQueue;
        SystemReading reading;
        CountingReader reader;
        Switcher switcher;
        BrokenSwitcher brokenSwitcher;
        LyingDisk lyingDisk;
        Prober::Waiting waiting;
        std::unique_ptr<Daemon> daemon;
        std::optional<bool> isUndone;
    };

    // What the world and the daemon tell.
    void note(std::string line) override;
    void changed(const std::string &key) override {
        if (process_)
            process_->change(key);
    }
    void disturbed() override;
    void switching(const std::string &what, bool takesAway) override;
    void violated(std::string what) override;
    void write(Level level, std::string_view category, std::string_view message) override {
        work();
        note(std::string(level == Level::error ? "! " : "") + std::string(category) + ": " +
             std::string(message));
    }
    void ready() override {}
    void stopping() override {}
    std::optional<MainActor::Duration> watchdogInterval() override { return std::nullopt; }
    void alive() override {}

    bool isOn() const { return process_ && !process_->undoOnly && !process_->isStopping; }
    void planEvent();
    void event();
    void changeSettings();
    void begin(bool isUndoing);
    void bury();
    void ended();
    void restartLater();
    std::optional<Time> carryOut(const WorkQueue::Job &job);
    void stop();
    void check();
    void work();
    void planPauseEnd();
    /// What somebody set while the daemon did not look, it takes for its own doing.
    void doubtRecentChanges();
    std::optional<Time> pauseOnDisk();

    Options options_;
    Result result_;
    VirtualTime time_;
    Time end_;
    DaemonConfig config_;
    std::unique_ptr<Process> process_;
    std::uint64_t processes_ = 0;
    bool isStormy_ = false;
    MainActor::TimerID checkTimer_ = 0;
    /// Nothing has happened for so long that the daemon must be through with it.
    bool isQuiet_ = false;
    double allowance_ = mostWork;
    Time workedAt_{};
    /// The daemon cannot know what the machine would be like without it.
    bool isDoubtful_ = false;
    /// By the time that counts sleep.
    std::optional<Time> pauseEnd_;
    Time pausedAt_{};
    /// Something may have kept the pause from being known after a restart.
    bool isPauseDoubtful_ = false;
    MainActor::TimerID pauseTimer_ = 0;
    std::uint64_t faultsAtStop_ = 0;
    std::uint64_t pretencesAtStop_ = 0;
    /// When the daemon last ceased to watch.
    Time unwatchedAt_{};
    /// Tells of what it is like from its beginning.
    World world_;
};

Simulation::Process::Process(Simulation &of, std::uint64_t number, bool isUndoing)
    : simulation(of), actor(of.time_, number), undoOnly(isUndoing), since(of.time_.now()),
      readQueue(
          actor, [&of] { return of.world_.readingTime(); },
          [this](const WorkQueue::Job &job) { return simulation.carryOut(job); }),
      switchQueue(
          actor, [&of] { return of.world_.random.time(0.0001, 0.02); },
          [this](const WorkQueue::Job &job) { return simulation.carryOut(job); }),
      diskQueue(
          actor, [&of] { return of.world_.random.time(0.0001, 0.01); },
          [this](const WorkQueue::Job &job) { return simulation.carryOut(job); }),
      reading(of.world_, of.world_, [&of](const std::string &) { return of.world_.openStore(); }),
      reader(reading, of.options_.broken == "deaf-reader",
             [&of] {
                 of.work();
                 ++of.result_.readings;
             }),
      switcher(of.world_, of.world_, of.world_, [&of](const std::string &) { return of.world_.openStore(); }),
      brokenSwitcher(switcher), lyingDisk(of.world_) {
    const std::string &broken = of.options_.broken;
    const auto makeProber = [this, isHopeful = broken == "hopeful-prober"](const std::string &) {
        return std::make_unique<Prober>(actor, simulation.world_, waiting, isHopeful,
                                        simulation.result_.probes);
    };
    StateFolder &folder = broken == "lying-disk" ? static_cast<StateFolder &>(lyingDisk) : of.world_;
    Switching &switching =
        broken == "forgetful-switcher" ? static_cast<Switching &>(brokenSwitcher) : switcher;
    daemon = std::make_unique<Daemon>(Daemon::Services{actor,
                                                       of.world_,
                                                       of,
                                                       *this,
                                                       *this,
                                                       of,
                                                       makeProber,
                                                       of.world_,
                                                       reader,
                                                       readQueue,
                                                       switching,
                                                       switchQueue,
                                                       folder,
                                                       diskQueue,
                                                       {},
                                                       [&of] { return of.config_; }},
                                      Daemon::Options{isUndoing, {}},
                                      [this](bool everything) { isUndone = everything; });
}

Simulation::Process::~Process() {
    daemon.reset();
    // Whoever still waits ends with it, and frees what it holds.
    while (!waiting.empty())
        waiting.extract(waiting.begin()).value().resume();
}

void Simulation::Process::tell(Event event, Time after) {
    if (told)
        actor.postAfter(after, [this, event] { told(event); });
}

void Simulation::Process::change(const std::string &key) {
    if (!changed || std::ranges::find(keys, key) != keys.end())
        return;
    keys.push_back(key);
    if (keys.size() > 1)
        return;
    actor.postAfter(debounce, [this] {
        const auto batch = std::exchange(keys, {});
        if (changed)
            changed(batch);
    });
}

void Simulation::note(std::string line) {
    const auto now = time_.now().count() / 1'000'000;
    std::array<char, 40> stamp{};
    std::snprintf(stamp.data(), stamp.size(), "day %lld %02lld:%02lld:%02lld.%03lld ",
                  static_cast<long long>(now / 86'400'000), static_cast<long long>(now / 3'600'000 % 24),
                  static_cast<long long>(now / 60'000 % 60), static_cast<long long>(now / 1000 % 60),
                  static_cast<long long>(now % 1000));
    line.insert(0, stamp.data());
    for (const char letter : line)
        result_.fingerprint = (result_.fingerprint ^ static_cast<unsigned char>(letter)) * 0x100000001b3;
    if (options_.isTraced)
        std::puts(line.c_str());
    result_.lines.push_back(std::move(line));
    if (result_.lines.size() > traceLines)
        result_.lines.pop_front();
}

void Simulation::violated(std::string what) {
    if (!result_.violation.empty())
        return;
    note("VIOLATION: " + what);
    result_.violation = std::move(what);
}

void Simulation::disturbed() {
    isQuiet_ = false;
    time_.cancel(checkTimer_);
    // Paths are asked one after the other, each as often as it takes; what is refused is tried again
    // within a minute, and the rest is for slow answers and new addresses.
    const double paths = static_cast<double>(std::max<std::size_t>(world_.linkedCables(), 1));
    const double bound = paths * static_cast<double>(config_.probeFailuresBeforeFallback + 1) *
                             (config_.probeInterval + config_.probeTimeout) +
                         config_.eventDebounce + 60 + 30;
    checkTimer_ = time_.at(time_.now() + seconds(bound), world, [this] { check(); });
}

void Simulation::switching(const std::string &what, bool takesAway) {
    work();
    ++result_.switches;
    // It cannot know yet.
    isDoubtful_ |=
        world_.ownChangedAt > Time(0) && time_.now() < world_.ownChangedAt + seconds(config_.eventDebounce);
    if (isQuiet_ && isOn() && !world_.isUnsteady())
        violated("nothing has happened, and yet the daemon switches: " + what);
    if (takesAway && isOn() && pauseEnd_ && world_.trueNow() < *pauseEnd_ &&
        time_.now() > std::max(pausedAt_, process_->since) + seconds(15))
        violated("the protection is paused, and yet the daemon switches: " + what);
}

void Simulation::work() {
    const double elapsed = static_cast<double>((time_.now() - std::exchange(workedAt_, time_.now())).count());
    allowance_ = std::min(allowance_ + elapsed / 1e9 * workRate, mostWork) - 1;
    if (allowance_ < 0)
        violated("the daemon does not come to rest");
}

std::optional<Time> Simulation::carryOut(const WorkQueue::Job &job) {
    world_.busy = {};
    try {
        job();
    } catch (const World::Crash &) {
    }
    return world_.isDead ? std::nullopt : std::optional(world_.busy);
}

void Simulation::check() {
    isQuiet_ = true;
    if (!isOn() || world_.isRefusing)
        return;
    ++result_.checks;
    const auto &guard = process_->daemon->guard();
    if (world_.isAvailable(config_) && !world_.isOnline(config_))
        violated("there is a path, and the machine is offline");
    const bool isProtecting = config_.enabled && !guard.pauseLeft(world_.now());
    if (world_.canWiFiCarry(true) && !world_.canWiFiCarry() &&
        !(isProtecting && world_.hasWiredPath(config_)))
        violated("there is no wired path, and Wi-Fi is off");
    const auto missing = world_.wifiLeftovers();
    if (!missing.empty() && !isDoubtful_ && !(isProtecting && world_.hasWiredPath(config_)) &&
        world_.canWiFiCarry(true))
        violated("there is no wired path, and of Wi-Fi is off:" + missing);
    if (!pauseEnd_ || *pauseEnd_ - world_.trueNow() < seconds(1))
        return;
    const auto left = guard.pauseLeft(world_.now());
    if (!left || std::chrono::abs(*left - (*pauseEnd_ - world_.trueNow())) > seconds(1))
        violated("the pause is not what it was");
}

std::optional<Time> Simulation::pauseOnDisk() {
    const auto found = world_.files.find(Daemon::pauseName);
    if (found == world_.files.end())
        return std::nullopt;
    const auto left = Pause::decode(unseal(found->second)).remaining(world_.now(), world_.bootID());
    return left > Time(0) ? std::optional(world_.trueNow() + left) : std::nullopt;
}

void Simulation::planPauseEnd() {
    time_.cancel(std::exchange(pauseTimer_, 0));
    if (!pauseEnd_)
        return;
    const auto left = std::max(*pauseEnd_ - world_.trueNow(), Time(0));
    pauseTimer_ = time_.at(time_.now() + left, world, [this] {
        disturbed();
        pauseTimer_ = time_.at(time_.now() + seconds(1), world, [this] {
            pauseTimer_ = 0;
            pauseEnd_.reset();
            // A slow answer on its way may be waited for.
            if (!isOn() || process_->since + seconds(1) > time_.now() || !config_.enabled ||
                world_.faultAt + seconds(15) > time_.now())
                return;
            const auto &decision = process_->daemon->guard().decision();
            if (decision && decision->status.kind == Status::Kind::paused)
                violated("the pause is over, and the protection does not come back");
        });
    });
}

void Simulation::begin(bool isUndoing) {
    disturbed();
    doubtRecentChanges();
    note(isUndoing ? "what the daemon left behind is undone" : "the daemon starts");
    world_.isDead = false;
    const auto kept = pauseOnDisk();
    if (pauseEnd_ && !isPauseDoubtful_ && *pauseEnd_ - world_.trueNow() > seconds(1) &&
        (!kept || std::chrono::abs(*kept - *pauseEnd_) > seconds(1)))
        violated("the pause on disk is not what it was");
    pauseEnd_ = kept;
    planPauseEnd();
    faultsAtStop_ = world_.faults;
    pretencesAtStop_ = world_.pretences;
    process_ = std::make_unique<Process>(*this, ++processes_, isUndoing);
    process_->daemon->start();
}

void Simulation::bury() {
    if (process_ && pauseEnd_ && time_.now() - pausedAt_ < seconds(1))
        isPauseDoubtful_ = true;
    if (process_ && isOn())
        unwatchedAt_ = time_.now();
    // What it knows may not be in the journal: it tries to write once in a minute.
    isDoubtful_ |=
        process_ && world_.isDead && (world_.isDiskFull || world_.diskFullAt + seconds(70) > time_.now());
    const auto process = std::move(process_);
    world_.isDead = true;
}

void Simulation::doubtRecentChanges() {
    isDoubtful_ |= world_.ownChangedAt > Time(0) && world_.ownChangedAt + seconds(5) > unwatchedAt_;
}

void Simulation::restartLater() {
    const auto wait = world_.random.oneIn(4) ? world_.random.time(1, 3600) : world_.random.time(0.1, 5);
    const bool undoes = world_.random.oneIn(3);
    const auto &history = world_.files.find(History::fileName);
    if (history != world_.files.end() && history->second.size() > 100'000)
        world_.files.erase(history);
    time_.at(time_.now() + wait, world, [this, undoes] { begin(undoes); });
}

void Simulation::ended() {
    doubtRecentChanges();
    // Without a reading at the end it cannot know that something only seemed to work.
    isDoubtful_ |= world_.pretences != pretencesAtStop_;
    if (process_->isUndone == true) {
        const auto left = world_.leftovers();
        if (!left.empty() && !isDoubtful_)
            violated("the daemon ends and leaves behind:" + left);
        if (world_.pretences == pretencesAtStop_ && !world_.canWiFiCarry() && world_.canWiFiCarry(true))
            violated("the daemon ends and leaves Wi-Fi off");
        if (world_.files.contains(Daemon::journalName))
            violated("the daemon ends, and its journal is still there");
        if (std::exchange(isDoubtful_, false)) {
            world_.forgetOwnersOfWiFi();
            world_.forgetOwnersOfOthers();
        }
    } else if (world_.faults == faultsAtStop_ && !world_.isRefusing && !world_.isDiskFull) {
        violated("the daemon could not undo everything, though nothing was in its way");
    }
    note(process_->isUndone == true ? "the daemon ends" : "the daemon ends with something left to undo");
    bury();
    restartLater();
}

void Simulation::stop() {
    note("the daemon is asked to stop");
    unwatchedAt_ = time_.now();
    process_->isStopping = true;
    faultsAtStop_ = world_.faults;
    pretencesAtStop_ = world_.pretences;
    process_->tell(HostEvents::Event::stop, Time(0));
    time_.at(time_.now() + seconds(90), world, [this, number = processes_] {
        if (!process_ || processes_ != number)
            return;
        if (world_.faults == faultsAtStop_ && !world_.isRefusing)
            violated("the daemon does not stop");
        note("the daemon does not stop and is killed");
        world_.isDead = true;
    });
}

void Simulation::changeSettings() {
    auto &random = world_.random;
    switch (random.below(9)) {
    case 0:
        config_.probeMode = random.oneIn(3) ? ProbeMode::off : ProbeMode::dns;
        break;
    case 1:
    case 2:
        config_.wifiOffMode = static_cast<WiFiOffMode>(random.below(3));
        break;
    case 3:
        config_.probeInterval = random.oneIn(2) ? 10 : random.between(1, 60);
        break;
    case 4:
        config_.eventDebounce = random.between(0, 2);
        break;
    case 5:
        config_.probeFailuresBeforeFallback = static_cast<std::int64_t>(1 + random.below(5));
        break;
    case 6:
        config_.respectManualWiFiOff = !random.oneIn(3);
        break;
    case 7:
        config_.disableTetheringWhileWired = !random.oneIn(3);
        config_.fixShadowedDNS = !random.oneIn(3);
        break;
    case 8:
        config_.enabled = !config_.enabled || !random.oneIn(3);
        break;
    }
    note("settings: " + config_.describe());
    if (process_)
        process_->tell(HostEvents::Event::settingsChanged, Time(0));
}

void Simulation::planEvent() {
    auto &random = world_.random;
    isStormy_ = isStormy_ ? !random.oneIn(12) : random.oneIn(15);
    const auto wait = isStormy_ ? random.time(0, 20) : random.time(1, random.oneIn(3) ? 4000 : 900);
    time_.at(time_.now() + wait, world, [this] { event(); });
}

void Simulation::event() {
    auto &random = world_.random;
    ++result_.events;
    allowance_ = mostWork;
    planEvent();
    const auto kind = random.below(100);
    if (kind >= 24)
        return world_.happen();
    disturbed();
    if (kind < 5) {
        changeSettings();
    } else if (kind < 8) {
        const auto length = random.time(60, random.oneIn(2) ? 600 : 36'000);
        note("the machine sleeps for " + std::to_string(length / seconds(1)) + " s");
        world_.sleep(length);
        planPauseEnd();
        if (process_)
            process_->tell(HostEvents::Event::woke, random.time(0, 0.5));
    } else if (kind < 10) {
        note("somebody sets the clock");
        world_.setClock();
        isPauseDoubtful_ = true;
        if (process_)
            process_->tell(HostEvents::Event::clockSet, Time(0));
    } else if (kind < 14 && isOn()) {
        const double length = random.oneIn(4) ? 1e9 : random.between(1, 4000);
        process_->daemon->pause(length);
        pausedAt_ = time_.now();
        pauseEnd_ =
            world_.trueNow() + seconds(std::min(length, static_cast<double>(config_.maxPauseMinutes) * 60));
        isPauseDoubtful_ = world_.isDiskFull;
        planPauseEnd();
    } else if (kind < 16 && isOn()) {
        process_->daemon->resume();
        pauseEnd_.reset();
        planPauseEnd();
    } else if (kind < 19 && isOn()) {
        stop();
    } else if (kind < 21 && process_) {
        note("the daemon is killed");
        world_.isDead = true;
    } else if (kind < 22) {
        note("the power fails");
        world_.isDead = process_ != nullptr;
        world_.cutPower();
        pauseEnd_.reset();
        planPauseEnd();
    } else if (!process_ && world_.damageJournal()) {
        isDoubtful_ = true;
    }
}

Result Simulation::run() {
    begin(false);
    planEvent();
    Time instant{};
    std::size_t jobs = 0;
    while (result_.violation.empty() && time_.runNext(end_)) {
        jobs = time_.now() == std::exchange(instant, time_.now()) ? jobs + 1 : 0;
        if (jobs > 10'000)
            violated("time stands still");
        if (!process_)
            continue;
        if (world_.isDead) {
            ++result_.deaths;
            // What only seemed to work at an end that was cut off, nobody will look at again.
            if (!isOn() && world_.pretences != pretencesAtStop_) {
                isDoubtful_ = true;
                world_.forgetOwnersOfWiFi();
            }
            bury();
            restartLater();
        } else if (process_->isUndone) {
            ended();
        }
    }
    result_.days = static_cast<double>(time_.now().count()) / 86400e9;
    return std::move(result_);
}

} // namespace

Result simulate(const Options &options) {
    return Simulation(options).run();
}

} // namespace tarn::sim
