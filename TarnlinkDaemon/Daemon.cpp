#include "TarnlinkDaemon/Daemon.h"

#include "TarnCore/Status.h"
#include "TarnCore/Text.h"
#include "TarnlinkDaemon/Recording.h"
#include "TarnlinkDaemon/Seal.h"

#include <cmath>
#include <exception>
#include <utility>

namespace tarn {
namespace {

constexpr const char *category = "daemon";

/// A file of the state folder as a record; what it is not is told, and a copy of it kept.
template <class Record>
std::optional<Record> load(StateFolder &folder, const std::string &name, bool mayChange,
                           std::string &damage) {
    const auto file = folder.read(name);
    if (!file.error.empty())
        damage = name + " cannot be read (" + file.error + ")";
    if (!file.contents)
        return std::nullopt;
    std::string reason;
    try {
        return Record::decode(unseal(*file.contents));
    } catch (const DecodingError &error) {
        reason = error.description();
    }
    damage = name + " is damaged (" + reason + ")";
    if (const auto kept = mayChange ? folder.keepCopy(name) : std::nullopt)
        damage += " and is kept as " + *kept;
    return std::nullopt;
}

} // namespace

Daemon::Daemon(const Services &services, Options options, std::function<void(bool)> finished)
    : services_(services), options_(std::move(options)), finished_(std::move(finished)),
      history_(services_.folder.read(History::fileName).contents.value_or("")) {}

Daemon::~Daemon() {
    services_.events.stop();
    services_.actor.cancel(timer_);
    services_.actor.cancel(aliveTimer_);
}

void Daemon::start() {
    input::Start start;
    start.config = services_.loadConfig();
    start.bootID = services_.clock.bootID();
    start.undoOnly = options_.undoOnly;
    start.nextHistoryNumber = history_.nextNumber();
    isDryRun_ = start.config.dryRun;
    start.journal = load<Journal>(services_.folder, journalName, !isDryRun_, start.damage);
    if (start.journal && services_.rememberDisabled) {
        std::vector<std::string> disabled;
        for (const auto &service : start.journal->disabledServices)
            disabled.push_back(service.serviceID);
        if (start.journal->wifi)
            for (const auto &service : start.journal->wifi->services)
                disabled.push_back(service.serviceID);
        services_.rememberDisabled(disabled);
    }
    std::string pauseDamage;
    start.pause = load<Pause>(services_.folder, pauseName, !isDryRun_, pauseDamage);
    if (!pauseDamage.empty()) {
        services_.log.write(Log::Level::error, category, pauseDamage + "; there is no pause");
        if (!isDryRun_ && services_.folder.read(pauseName).contents)
            services_.folder.remove(pauseName);
    }
    useConfig(start.config);
    if (!options_.undoOnly) {
        services_.host.start([this](HostEvents::Event event) { told(event); });
        sayAlive();
    }
    handle(std::move(start));
    services_.supervisor.ready();
}

void Daemon::told(HostEvents::Event event) {
    switch (event) {
    case HostEvents::Event::stop:
        return stop();
    case HostEvents::Event::settingsChanged:
        return reloadConfig();
    case HostEvents::Event::woke:
        return handle(input::Woke());
    case HostEvents::Event::clockSet:
        return handle(input::ClockSet());
    }
}

void Daemon::reloadConfig() {
    auto config = services_.loadConfig();
    useConfig(config);
    handle(input::SettingsChanged{std::move(config)});
}

void Daemon::stop() {
    services_.supervisor.stopping();
    services_.events.stop();
    handle(input::StopWanted());
}

Daemon::PauseResult Daemon::pause(double seconds) {
    if (!std::isfinite(seconds) || seconds <= 0)
        return PauseResult::badLength;
    handle(input::PauseWanted{fromSeconds(seconds)});
    return PauseResult::paused;
}

bool Daemon::resume() {
    const bool isPaused = guard_.pauseLeft(services_.clock.now()).has_value();
    handle(input::ResumeWanted());
    return isPaused;
}

void Daemon::handle(Input::What what) {
    inputs_.push_back({services_.clock.now(), std::move(what)});
    // What is carried out may answer at once.
    if (std::exchange(isHandling_, true))
        return;
    while (!inputs_.empty()) {
        const auto input = std::move(inputs_.front());
        inputs_.pop_front();
        if (options_.record)
            options_.record(recording::asLine(input));
        for (auto &effect : guard_.handle(input))
            std::visit([this](auto &one) { perform(one); }, effect);
    }
    isHandling_ = false;
}

void Daemon::perform(effect::Read &read) {
    const bool everything = read.everything || (readWanted_ && readWanted_->everything);
    readWanted_ = effect::Read{read.number, everything};
    if (!isReading_)
        startReading();
}

void Daemon::startReading() {
    struct Result {
        Reading reading;
        std::optional<std::string> error;
    };
    const auto wanted = *std::exchange(readWanted_, std::nullopt);
    const auto result = std::make_shared<Result>();
    isReading_ = true;
    services_.readQueue.run(
        [result, wanted, &reader = services_.reader] {
            try {
                result->reading = reader.read(wanted.everything);
            } catch (const std::exception &error) {
                result->error = error.what();
            }
        },
        [this, result, wanted, isAlive = std::weak_ptr(isAlive_)] {
            if (isAlive.expired())
                return;
            isReading_ = false;
            if (result->error)
                handle(input::ReadingFailed{wanted.number, *result->error});
            else
                handle(input::ReadingTaken{wanted.number, std::move(result->reading)});
            if (readWanted_ && !isReading_)
                startReading();
        });
}

void Daemon::perform(effect::SendProbe &wanted) {
    detach(probe(std::move(wanted), prober_, isAlive_));
}

Task<void> Daemon::probe(effect::SendProbe probe, std::shared_ptr<Probing> prober,
                         std::weak_ptr<bool> isAlive) {
    auto outcome = co_await prober->probe(probe.device, probe.server, probe.localAddress, probe.timeout);
    if (!isAlive.expired())
        handle(input::ProbeEnded{probe.number, std::move(outcome)});
}

void Daemon::perform(effect::CountBytes &count) {
    auto bytes = services_.counters.bytes(count.device);
    handle(input::BytesCounted{std::move(count.device), bytes});
}

void Daemon::perform(effect::Carry &carry) {
    const auto error = std::make_shared<std::string>();
    services_.switchQueue.run(
        [error, command = std::move(carry.command), &switcher = services_.switcher] {
            try {
                *error = switcher.carryOut(command).value_or("");
            } catch (const std::exception &exception) {
                *error = exception.what();
            }
        },
        [this, error, number = carry.number, isAlive = std::weak_ptr(isAlive_)] {
            if (!isAlive.expired())
                handle(input::CommandEnded{number, std::move(*error)});
        });
}

void Daemon::perform(effect::WriteJournal &write) {
    const auto error = std::make_shared<std::string>();
    onDisk(
        [error, journal = std::move(write.journal), &folder = services_.folder] {
            *error = (journal.isEmpty() ? folder.remove(journalName)
                                        : folder.replace(journalName, seal(journal.encoded())))
                         .value_or("");
        },
        [this, error, number = write.number] { handle(input::JournalWritten{number, std::move(*error)}); });
}

void Daemon::perform(effect::WritePause &write) {
    if (isDryRun_)
        return;
    const auto error = std::make_shared<std::string>();
    onDisk(
        [error, pause = std::move(write.pause), &folder = services_.folder] {
            *error = (pause ? folder.replace(pauseName, seal(pause->encoded())) : folder.remove(pauseName))
                         .value_or("");
        },
        [this, error] {
            if (!error->empty())
                services_.log.write(Log::Level::error, category,
                                    "the pause cannot be written down, a restart would not know of it: " +
                                        *error);
        });
}

void Daemon::perform(effect::WakeAt &wake) {
    services_.actor.cancel(std::exchange(timer_, 0));
    if (wake.sinceBoot)
        timer_ = services_.actor.postAfter(*wake.sinceBoot - services_.clock.now().sinceBoot, [this] {
            timer_ = 0;
            handle(input::TimeCame());
        });
}

void Daemon::perform(effect::Remember &remember) {
    writeHistory(history_.add(std::move(remember.entry)));
}

void Daemon::perform(effect::RememberDone &remember) {
    writeHistory(history_.addDone(remember.number, std::move(remember.what)));
}

void Daemon::perform(effect::Decided &decided) {
    if (options_.record)
        options_.record(recording::asLine(decided.decision));
}

void Daemon::perform(effect::Say &say) {
    services_.log.write(say.level, category, text::printable(say.message));
}

void Daemon::perform(effect::Finish &finish) {
    if (finish.isHung)
        return finished_(false);
    // Behind what is still to be written.
    onDisk([] {}, [this, isUndone = finish.isUndone] { finished_(isUndone); });
}

void Daemon::writeHistory(HistoryWrite write) {
    if (isDryRun_ || write.text.empty())
        return;
    // It may be lost; nobody's connection hangs on it.
    onDisk([write = std::move(write), &folder = services_.folder] {
        if (write.isWhole)
            folder.replace(History::fileName, write.text);
        else
            folder.append(History::fileName, write.text);
    });
}

void Daemon::onDisk(WorkQueue::Job work, WorkQueue::Job done) {
    services_.diskQueue.run(std::move(work), [done = std::move(done), isAlive = std::weak_ptr(isAlive_)] {
        if (!isAlive.expired())
            done();
    });
}

void Daemon::useConfig(const DaemonConfig &config) {
    if (!prober_ || probeName_ != config.probeName) {
        probeName_ = config.probeName;
        prober_ = services_.makeProber(probeName_);
    }
    if (options_.undoOnly || (isSubscribed_ && debounce_ == config.eventDebounce))
        return;
    isSubscribed_ = true;
    debounce_ = config.eventDebounce;
    services_.events.start(
        debounce_, [this](const std::vector<std::string> &keys) { handle(input::NetworkChanged{keys}); });
}

void Daemon::sayAlive() {
    const auto interval = services_.supervisor.watchdogInterval();
    if (!interval)
        return;
    services_.supervisor.alive();
    aliveTimer_ = services_.actor.postAfter(*interval, [this] { sayAlive(); });
}

} // namespace tarn
