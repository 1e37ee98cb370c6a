#include "TarnlinkDaemon/Guard.h"

#include "TarnSystem/MainActor.h"
#include "TarnSystem/TrafficCounters.h"
#include "TarnlinkDaemon/Evaluation.h"
#include "TarnlinkDaemon/Report.h"

#include <algorithm>
#include <string_view>

namespace tarn {
namespace {

using namespace std::chrono_literals;

// A setting of nothing, or of what is no time, must not keep the processor busy.
constexpr Guard::Duration shortestInterval = 50ms;
// A probe that has not ended this long after its time is over: nobody will tell any more.
constexpr Guard::Duration probeGrace = 5s;
constexpr Guard::Duration longestReading = 30s;
// Far beyond what the systems allow themselves for one change.
constexpr Guard::Duration longestCommand = 120s;
// How long what other programs told is good enough to judge a failure by.
constexpr Guard::Duration readingLife = 60s;
constexpr Guard::Duration longestPause = 60s;
// This many readings in a row that fail, and the network counts as one without a cable.
constexpr unsigned failuresUntilBlind = 3;

std::vector<std::string> identityOf(const InterfaceSnapshot &snapshot) {
    std::vector<std::string> identity = {snapshot.dnsServers.empty() ? "" : snapshot.dnsServers.front(),
                                         snapshot.ipv4Router.value_or(""), snapshot.ipv6Router.value_or("")};
    if (auto address = probeSource(snapshot))
        identity.push_back(*std::move(address));
    return identity;
}

bool isAddressed(const InterfaceSnapshot &snapshot) {
    return snapshot.isWiredCandidate() && snapshot.linkActive && snapshot.hasRoutableAddress() &&
           snapshot.hasGateway();
}

/// 1 s, 2 s, 4 s and so on up to a minute.
Guard::Duration pauseAfter(unsigned failures) {
    return std::min<Guard::Duration>(1s * (1 << std::min(failures - 1, 6U)), longestPause);
}

bool switchesSomething(const Decision &decision) {
    return std::ranges::any_of(decision.actions,
                               [](const Action &action) { return action.kind != Action::Kind::probe; });
}

std::string causeOf(const std::vector<std::string> &keys) {
    constexpr std::string_view interfaces = "State:/Network/Interface/";
    std::set<std::string_view> names;
    for (const std::string_view key : keys)
        if (key.starts_with(interfaces))
            names.insert(key.substr(interfaces.size(), key.rfind('/') - interfaces.size()));
    if (names.empty())
        return "services, routers or name servers changed";
    std::string text;
    for (const auto name : names)
        text.append(text.empty() ? "" : ", ").append(name);
    return text + " changed";
}

std::string causeOf(const std::string &device, const ProbeOutcome &outcome) {
    switch (outcome.kind) {
    case ProbeOutcome::Kind::reachable:
        return device + " answered";
    case ProbeOutcome::Kind::timeout:
        return device + " did not answer";
    case ProbeOutcome::Kind::error:
        break;
    }
    return device + " could not be asked: " + outcome.message;
}

} // namespace

std::vector<Effect> Guard::handle(const Input &input) {
    effects_.clear();
    at_ = input.at;
    if (!isFinished_) {
        std::visit([this](const auto &what) { on(what); }, input.what);
        checkTimes();
    }
    if (!isFinished_) {
        proceed();
        finishIfDone();
        setTimer();
    }
    return std::move(effects_);
}

ProbeStates Guard::probeStates() const {
    ProbeStates states;
    for (const auto &[device, path] : paths_)
        states.emplace(device, path.state);
    return states;
}

std::optional<Guard::Duration> Guard::pauseLeft(const Moment &now) const {
    if (!pause_)
        return std::nullopt;
    const auto left = pause_->remaining(now, bootID_);
    return left > 0s ? std::optional(left) : std::nullopt;
}

void Guard::on(const input::Start &start) {
    config_ = start.config;
    bootID_ = start.bootID;
    nextHistoryNumber_ = start.nextHistoryNumber;
    journal_ = start.journal.value_or(Journal());
    written_ = journal_;
    say(Log::Level::info, config_.describe());
    if (!journal_.isEmpty())
        say(Log::Level::info,
            "an earlier run left changes behind; they are kept or undone as the network is");
    if (!start.damage.empty()) {
        say(Log::Level::error, start.damage + "; Wi-Fi is switched on");
        // Written down in place of what is damaged, or it would be forgotten with this run.
        journal_.wifi = Journal::WiFi{};
        journal_.wifi->isUnknown = true;
        isFileDamaged_ = true;
    }
    if (start.pause) {
        pause_ = start.pause;
        if (const auto left = pauseLeft(at_); !left)
            forgetPause();
        else if (pause_->bootID != bootID_)
            keepPause(*left);
    }
    isStopping_ = start.undoOnly;
    if (!isStopping_ || mustSwitchOn())
        look("start", true);
}

void Guard::on(const input::NetworkChanged &change) {
    if (isStopping_)
        return;
    const bool isSetUp =
        std::ranges::any_of(change.keys, [](const auto &key) { return key.starts_with("Setup:"); });
    look(causeOf(change.keys), isSetUp);
}

void Guard::on(const input::ReadingTaken &taken) {
    readingsFailed_ = 0;
    isLate_ = false;
    readRetry_.reset();
    readShown_ = taken.number;
    readDeadline_ = taken.number < readsAsked_ ? std::optional(now() + longestReading) : std::nullopt;
    // Older than what was switched since: it would pass our own doing off as somebody else's.
    if (taken.number < readNeeded_)
        return;
    if (!hasReading_ || reading_ != taken.reading) {
        for (auto &[key, attempt] : attempts_)
            if (attempt.isGivenUp && !config_.dryRun) {
                attempt.isGivenUp = false;
                attempt.retryAt = now() + pauseAfter(attempt.failures);
            }
        reading_ = taken.reading;
        hasReading_ = true;
        updatePaths();
    }
    const auto on = attempts_.find(wifiOnKey);
    if (on != attempts_.end() && on->second.shownBy && taken.number >= *on->second.shownBy &&
        reading_.canWiFiCarry()) {
        mustSwitchOn_ = false;
        if (journal_.wifi && journal_.wifi->isUnknown)
            journal_.wifi.reset();
    }
    readAt_ = now();
    if (!isStopping_)
        evaluate();
}

void Guard::on(const input::ReadingFailed &failed) {
    if (failed.number >= readsAsked_)
        readDeadline_.reset();
    readingLost(failed.message);
}

void Guard::on(const input::ProbeEnded &ended) {
    const auto found = std::ranges::find_if(
        paths_, [&](const auto &entry) { return entry.second.probe == ended.number && ended.number != 0; });
    if (found != paths_.end())
        probeEnded(found->first, found->second, ended.outcome);
}

void Guard::probeEnded(const std::string &device, Path &path, const ProbeOutcome &outcome) {
    path.probe = 0;
    path.state = stateAfter(outcome, path.state);
    const auto stall = fromSeconds(config_.trafficStallSeconds);
    path.stallCheck.reset();
    // Where probes are as frequent, the next one finds out by itself.
    if (stall > 0s && now() + stall < path.next) {
        path.stallCheck = now() + stall;
        path.bytes.reset();
        effects_.push_back(effect::CountBytes{device});
    }
    // An answer proves the path as it is known. A failure makes everything doubtful that is not fresh.
    if (outcome.kind != ProbeOutcome::Kind::reachable)
        look(causeOf(device, outcome), now() - readAt_ >= readingLife);
    else
        causes_.push_back(causeOf(device, outcome));
    evaluateIfCurrent();
}

void Guard::on(const input::BytesCounted &counted) {
    const auto found = paths_.find(counted.device);
    if (found == paths_.end())
        return;
    auto &path = found->second;
    if (path.bytes && counted.bytes) {
        const auto growth = TrafficCounters::delta(*path.bytes, *counted.bytes);
        if (growth.tx > 0 && growth.rx == 0) {
            say(Log::Level::info, counted.device + " sends but receives nothing; probed at once");
            path.next = now();
        }
    }
    path.bytes = counted.bytes;
}

void Guard::on(const input::CommandEnded &ended) {
    if (!carrying_ || ended.number != commands_)
        return;
    const auto wish = *std::exchange(carrying_, std::nullopt);
    auto &attempt = attempts_[wish.key];
    auto what = describe(wish.command);
    if (ended.error.empty()) {
        what += ": done";
        effects_.push_back(effect::RememberDone{carryingFor_, what});
        const bool isWiFi =
            wish.command.kind == Command::Kind::wifiOn || wish.command.kind == Command::Kind::wifiOff;
        if (isWiFi && decision_ && !isStopping_)
            what += ", because: " + decision_->reason;
        say(wish.command.kind == Command::Kind::flushCache ? Log::Level::debug : Log::Level::info, what);
        attempt.shownBy = readsAsked_ + 1;
        attempt.retryAt = now() + longestPause;
        settle(wish.command);
    } else {
        const auto pause = pauseAfter(++attempt.failures);
        attempt.retryAt = now() + pause;
        what += " failed: " + ended.error;
        // The same again and again is no news.
        const bool isKnown = std::exchange(attempt.lastError, ended.error) == ended.error;
        if (!isKnown)
            effects_.push_back(effect::RememberDone{carryingFor_, what});
        say(isKnown ? Log::Level::debug : Log::Level::error,
            what + "; next try in " + std::to_string(pause / 1s) + " s");
    }
    // The end need not wait for names that time sets right as well.
    isFlushDue_ = isFlushDue_ && !(isStopping_ && wish.command.kind == Command::Kind::flushCache);
    if (wish.command.kind == Command::Kind::flushCache)
        return;
    readNeeded_ = readsAsked_ + 1;
    if (wish.command.kind == Command::Kind::wifiOn || wish.command.kind == Command::Kind::wifiOff)
        wifiReadNeeded_ = readNeeded_;
    if (!isStopping_)
        look("what was switched", true);
}

void Guard::settle(const Command &command) {
    if (command.kind == Command::Kind::wifiOn || command.kind == Command::Kind::wifiOff)
        isFlushDue_ = config_.flushDNSCacheOnSwitch;
    if (command.kind == Command::Kind::flushCache) {
        isFlushDue_ = false;
        attempts_.erase(flushKey);
    }
    // What was reported as done need not be so: the next reading tells. At the end there is none.
    if (!isStopping_)
        return;
    switch (command.kind) {
    case Command::Kind::wifiOn:
        if (mustSwitchOn() && !hasReading_) {
            // Its services have never been seen: more than the radio may be off.
            attempts_[wifiOnKey].failures = mostUndoTries;
            break;
        }
        journal_.wifi.reset();
        mustSwitchOn_ = false;
        break;
    case Command::Kind::enableService:
        for (const auto &service : command.services)
            std::erase_if(journal_.disabledServices,
                          [&](const auto &entry) { return entry.serviceID == service.serviceID; });
        break;
    case Command::Kind::reorderServices:
        if (command.order == journal_.order)
            journal_.order.reset();
        break;
    case Command::Kind::setServers:
        std::erase_if(journal_.resolvers, [&](const auto &entry) {
            return entry.key == command.key && entry.before == command.order;
        });
        break;
    case Command::Kind::wifiOff:
    case Command::Kind::disableService:
    case Command::Kind::flushCache:
        break;
    }
}

void Guard::on(const input::JournalWritten &written) {
    if (!writing_ || written.number != writes_)
        return;
    auto journal = *std::exchange(writing_, std::nullopt);
    if (written.error.empty()) {
        written_ = std::move(journal);
        isFileDamaged_ = false;
        if (isWritingForWish_)
            journal_ = written_;
        if (std::exchange(isWriteFailureSaid_, false))
            say(Log::Level::info, "the journal can be written again");
        writeAttempt_ = {};
        return;
    }
    ++writeAttempt_.failures;
    writeAttempt_.retryAt = now() + pauseAfter(writeAttempt_.failures);
    if (!std::exchange(isWriteFailureSaid_, true))
        say(Log::Level::error,
            "the journal cannot be written (" + written.error + "); until it can, nothing is switched off");
}

void Guard::on(const input::TimeCame &) {
    // What is due is looked for after every input.
    wakeAt_.reset();
}

void Guard::on(const input::PauseWanted &wanted) {
    keepPause(std::min<Duration>(wanted.length, std::chrono::minutes(config_.maxPauseMinutes)));
    say(Log::Level::info,
        "paused for " + std::to_string(std::chrono::ceil<std::chrono::seconds>(pause_->length).count()) +
            " s");
    causes_.emplace_back("pause");
    // Whoever pauses waits for no reading.
    if (hasReading_ && !isStopping_)
        evaluate();
}

void Guard::on(const input::ResumeWanted &) {
    if (!pause_)
        return;
    forgetPause();
    causes_.emplace_back("end of the pause, as asked for");
    evaluateIfCurrent();
}

void Guard::on(const input::SettingsChanged &change) {
    if (change.config == config_ || isStopping_)
        return;
    config_ = change.config;
    say(Log::Level::info, config_.describe());
    // What failed may do now; what was done and waits to be seen is done.
    std::erase_if(attempts_, [](const auto &entry) { return !entry.second.shownBy; });
    for (auto &[device, path] : paths_)
        path.next = now();
    updatePaths();
    look("settings", true);
    if (hasReading_)
        evaluate();
}

void Guard::on(const input::Woke &) {
    // The timer that runs does not count the time asleep, and nobody worked meanwhile.
    wakeAt_.reset();
    if (readDeadline_)
        readDeadline_ = now() + longestReading;
    carryDeadline_ = now() + longestCommand;
    // Whatever was known is from before: the cable may lead elsewhere now.
    for (auto &[device, path] : paths_) {
        path = {.identity = std::move(path.identity)};
        path.next = now();
    }
    updatePaths();
    if (!isStopping_)
        look("waking up", true);
}

void Guard::on(const input::ClockSet &) {
    if (const auto left = pauseLeft(at_)) {
        pause_->end.sinceEpoch = at_.sinceEpoch + *left;
        effects_.push_back(effect::WritePause{pause_});
    }
    if (!isStopping_)
        look("the clock was set", true);
}

void Guard::on(const input::StopWanted &) {
    if (std::exchange(isStopping_, true))
        return;
    say(Log::Level::info, "stopping; what was changed is undone");
    attempts_.clear();
    paths_.clear();
    causes_.clear();
    if (!isAwaitingReading()) {
        readDeadline_.reset();
        readRetry_.reset();
    }
    writeAttempt_ = {};
}

void Guard::say(Log::Level level, std::string message) {
    effects_.push_back(effect::Say{level, std::move(message)});
}

void Guard::keepPause(Duration length) {
    const bool isNew = !pause_ || pause_->bootID == bootID_;
    pause_ = Pause{{now() + length, at_.sinceEpoch + length}, bootID_, isNew ? length : pause_->length};
    effects_.push_back(effect::WritePause{pause_});
}

void Guard::forgetPause() {
    pause_.reset();
    effects_.push_back(effect::WritePause{});
}

void Guard::look(std::string cause, bool everything) {
    if (std::ranges::find(causes_, cause) == causes_.end())
        causes_.push_back(std::move(cause));
    effects_.push_back(effect::Read{++readsAsked_, everything});
    if (!readDeadline_)
        readDeadline_ = now() + longestReading;
    readRetry_.reset();
}

void Guard::readingLost(const std::string &message) {
    ++readingsFailed_;
    // What is waited for may never come; what is known has to do for decisions.
    isLate_ = true;
    const auto pause = pauseAfter(readingsFailed_);
    readRetry_ = now() + pause;
    say(Log::Level::error,
        "the network cannot be read: " + message + "; next try in " + std::to_string(pause / 1s) + " s");
    if (readingsFailed_ < failuresUntilBlind || isStopping_)
        return;
    if (!hasReading_ || !reading_.interfaces.empty())
        say(Log::Level::error, "without a reading, no cable counts");
    mustSwitchOn_ = mustSwitchOn_ || journal_.wifi.has_value();
    hasReading_ = true;
    reading_.interfaces.clear();
    updatePaths();
    evaluate();
}

void Guard::evaluateIfCurrent() {
    // A reading on its way will do it; one that does not come is noticed.
    if (hasReading_ && (isReadingCurrent() || isLate_) && !isStopping_)
        evaluate();
}

void Guard::evaluate() {
    std::string cause;
    for (const auto &one : std::exchange(causes_, {}))
        cause += (cause.empty() ? "" : "; ") + one;
    if (cause.empty())
        cause = "a newer reading";
    auto decision = Policy::decide(reading_.interfaces, probeStates(), control());
    const bool isOther =
        !decision_ || decision_->status != decision.status || decision_->reason != decision.reason;
    const bool isNew = !decision_ || *decision_ != decision;
    decision_ = std::move(decision);
    if (isNew)
        effects_.push_back(effect::Decided{*decision_});
    // The same again with nothing left to do is what comes of carrying it out.
    if (isOther || (isNew && switchesSomething(*decision_))) {
        decisionNumber_ = nextHistoryNumber_++;
        effects_.push_back(effect::Remember{{decisionNumber_,
                                             at_.sinceEpoch,
                                             cause,
                                             std::string(Status::caseName(decision_->status.kind)),
                                             decision_->reason,
                                             {}}});
        say(Log::Level::info,
            report::describe(decision_->status) + ": " + decision_->reason + " [" + cause + "]");
    }
    for (auto &[device, path] : paths_) {
        const bool isWanted =
            (decision_->status.kind == Status::Kind::wired && decision_->status.device == device) ||
            std::ranges::any_of(decision_->actions, [&](const Action &action) {
                return action.kind == Action::Kind::probe && action.device == device;
            });
        if (isWanted && !path.isWanted)
            path.next = std::min(path.next, now());
        path.isWanted = isWanted;
    }
}

TarnControl Guard::control() const {
    return {config_.enabled,
            isPaused(),
            reading_.canWiFiCarry(),
            config_.respectManualWiFiOff && isOffByOthers(),
            config_.probeFailuresBeforeFallback,
            config_.disableTetheringWhileWired};
}

bool Guard::isOffByOthers() const {
    if (reading_.canWiFiCarry())
        return false;
    // Would it still be off once we have undone what we did?
    const auto &ours = journal_.wifi;
    if (mustSwitchOn())
        return false;
    if (reading_.wifiPower == false && !(ours && ours->mode == WiFiOffMode::radio))
        return true;
    return !reading_.wifiServices.empty() &&
           std::ranges::none_of(reading_.wifiServices, [&](const Reading::WiFiService &service) {
               const auto isIt = [&](const auto &entry) { return entry.serviceID == service.serviceID; };
               return (service.enabled || (ours && std::ranges::any_of(ours->services, isIt))) &&
                      (!service.isAddressLess() || (ours && std::ranges::any_of(ours->protocols, isIt)));
           });
}

void Guard::updatePaths() {
    std::map<std::string, Path> paths;
    for (const auto &snapshot : reading_.interfaces) {
        if (!isAddressed(snapshot))
            continue;
        auto identity = identityOf(snapshot);
        const auto known = paths_.find(snapshot.device);
        Path path;
        path.next = now();
        if (known != paths_.end()) {
            path = std::move(known->second);
            // Another server or another address: what was found out may be over. The count of
            // failures stays, or a path that keeps changing would never count as broken.
            if (path.identity != identity)
                path.next = now();
        }
        path.identity = std::move(identity);
        path.server = snapshot.dnsServers.empty() ? "" : snapshot.dnsServers.front();
        path.source = probeSource(snapshot);
        if (config_.probeMode == ProbeMode::off || path.server.empty()) {
            path.state = ProbeState::notApplicable();
            path.probe = 0;
        } else if (path.state.kind == ProbeState::Kind::notApplicable) {
            path.state = ProbeState::pending();
            path.next = now();
        }
        paths.emplace(snapshot.device, std::move(path));
    }
    paths_ = std::move(paths);
}

void Guard::checkTimes() {
    if (carrying_ && now() >= carryDeadline_) {
        say(Log::Level::error, describe(carrying_->command) + " does not end; the daemon has to start anew");
        isFinished_ = true;
        effects_.push_back(effect::Finish{false, true});
        return;
    }
    if (pause_ && !isPaused()) {
        forgetPause();
        causes_.emplace_back("end of the pause");
        if (hasReading_ && !isStopping_)
            evaluate();
    }
    if (readDeadline_ && now() >= *readDeadline_) {
        readDeadline_ = now() + longestReading;
        readingLost("it does not answer");
    }
    if (readRetry_ && now() >= *readRetry_)
        look("another try to read", true);
    if (isStopping_)
        return;
    for (auto &[device, path] : paths_)
        if (path.probe != 0 && now() >= path.deadline)
            probeEnded(device, path, ProbeOutcome::timeout());
    for (auto &[device, path] : paths_) {
        if (path.stallCheck && now() >= *path.stallCheck) {
            path.stallCheck.reset();
            effects_.push_back(effect::CountBytes{device});
        }
        if (path.isWanted && path.probe == 0 && now() >= path.next && isProbed(path))
            sendProbe(device, path);
    }
}

void Guard::sendProbe(const std::string &device, Path &path) {
    path.probe = ++probesSent_;
    path.deadline = now() + fromSeconds(config_.probeTimeout) + probeGrace;
    path.next = now() + std::max(fromSeconds(config_.probeInterval), shortestInterval);
    path.stallCheck.reset();
    path.bytes.reset();
    effects_.push_back(effect::SendProbe{path.probe, device, path.server, path.source, config_.probeTimeout});
}

void Guard::proceed() {
    auto list = wishes();
    std::erase_if(attempts_, [&](const auto &entry) {
        return !(carrying_ && carrying_->key == entry.first) &&
               std::ranges::find(list, entry.first, &Wish::key) == list.end();
    });
    if (carrying_)
        return;
    for (const auto &wish : list) {
        auto &attempt = attempts_[wish.key];
        if (attempt.shownBy && readShown_ >= *attempt.shownBy) {
            attempt.shownBy.reset();
            attempt.retryAt = now() + pauseAfter(++attempt.failures);
            // Nobody is left offline for having tried in vain.
            attempt.isGivenUp = ++attempt.fruitless >= mostFruitless && wish.key != wifiOnKey;
        }
        // Where nobody can see it, Wi-Fi on is said again.
        const bool isAwaited = attempt.shownBy && !(isLate_ && wish.key == wifiOnKey);
        if (isAwaited || attempt.isGivenUp || now() < attempt.retryAt)
            continue;
        if (config_.dryRun) {
            attempt.isGivenUp = true;
            say(Log::Level::info, "dry run, not carried out: " + describe(wish.command));
            continue;
        }
        // What is being written may be without it.
        if (wish.journal && (writing_ || !isWritten(*wish.journal))) {
            write(*wish.journal, true);
            continue;
        }
        if (wish.journal)
            journal_ = *wish.journal;
        if (wish.key == wifiOnKey)
            forgetConfigured();
        carrying_ = wish;
        carryDeadline_ = now() + longestCommand;
        carryingFor_ = decisionNumber_;
        effects_.push_back(effect::Carry{++commands_, wish.command});
        return;
    }
    if (!isMissingWiFiSaid_ && hasReading_ && !reading_.wifiPower && reading_.wifiServices.empty() &&
        decision_ && decision_->status.kind == Status::Kind::wired) {
        isMissingWiFiSaid_ = true;
        say(Log::Level::info, "there is no Wi-Fi to switch");
    }
    if (config_.dryRun)
        return;
    if (isStopping_ && !isAwaitingReading() && std::ranges::find(list, wifiOnKey, &Wish::key) == list.end())
        journal_.wifi.reset();
    else if (!isStopping_ && isReadingCurrent() && !isLate_)
        journal_ = tidied(list);
    if (!isWritten(journal_))
        write(journal_, false);
}

void Guard::write(const Journal &journal, bool isForWish) {
    if (writing_ || now() < writeAttempt_.retryAt)
        return;
    writing_ = journal;
    isWritingForWish_ = isForWish;
    effects_.push_back(effect::WriteJournal{++writes_, journal});
}

bool Guard::isAwaitingReading() const {
    return mustSwitchOn() && !hasReading_ && readingsFailed_ < failuresUntilBlind;
}

void Guard::finishIfDone() {
    if (!isStopping_ || carrying_ || writing_)
        return;
    if (isAwaitingReading())
        return;
    const auto list = wishes();
    const bool isDone = list.empty() && (isWritten(journal_) || config_.dryRun);
    const bool isHopeless =
        std::ranges::all_of(
            list, [&](const Wish &wish) { return attempts_[wish.key].failures >= mostUndoTries; }) &&
        (isWritten(journal_) || writeAttempt_.failures >= mostUndoTries);
    if (!isDone && !isHopeless && !config_.dryRun)
        return;
    isFinished_ = true;
    if (!isDone && !config_.dryRun)
        say(Log::Level::error, list.empty()
                                   ? "everything is undone, but the journal cannot be removed"
                                   : "not everything could be undone; the journal keeps what is left");
    effects_.push_back(effect::Finish{isDone || config_.dryRun});
}

void Guard::setTimer() {
    std::optional<Duration> next;
    const auto at = [&](std::optional<Duration> time) {
        if (time && (!next || *time < *next))
            next = time;
    };
    at(readDeadline_);
    at(readRetry_);
    if (carrying_)
        at(carryDeadline_);
    if (const auto left = pauseLeft(at_))
        at(now() + *left);
    for (const auto &[device, path] : paths_) {
        at(path.stallCheck);
        if (path.probe != 0)
            at(path.deadline);
        else if (path.isWanted && isProbed(path))
            at(path.next);
    }
    for (const auto &[key, attempt] : attempts_)
        if ((!attempt.shownBy || isLate_) && !attempt.isGivenUp && attempt.retryAt > now())
            at(attempt.retryAt);
    if (writeAttempt_.retryAt > now())
        at(writeAttempt_.retryAt);
    if (isFinished_)
        next.reset();
    if (next == wakeAt_)
        return;
    wakeAt_ = next;
    effects_.push_back(effect::WakeAt{next});
}

} // namespace tarn
