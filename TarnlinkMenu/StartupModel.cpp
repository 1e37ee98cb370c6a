#include "TarnlinkMenu/StartupModel.h"

#include <utility>

namespace tarn {

/// Made on the queue, taken on the main thread.
struct StartupModel::Reading {
    std::optional<RegistrationState> daemon;
    std::optional<RegistrationState> loginItem;
    std::optional<std::string> command;
    std::optional<std::string> error;
};

void StartupModel::watch() {
    if (!activation_)
        activation_ = services_.windows.observeWindowBecameKey([this] { read(); });
    read();
}

void StartupModel::read() {
    // What is under way ends with a reading.
    if (isReading_ || busy_)
        return;
    isReading_ = true;
    run({}, nullptr);
}

void StartupModel::registerDaemon() {
    if (busy_)
        return;
    publish(busy_, true);
    run([&daemon = services_.daemon] { return daemon.registerDaemon(); }, &StartupModel::endRegistering);
}

void StartupModel::setOpensAtLogin(bool opens) {
    if (busy_)
        return;
    publish(busy_, true);
    isOpeningWanted_ = opens;
    run([&item = services_.loginItem, opens] { return item.set(opens); }, &StartupModel::endLoginItem);
}

void StartupModel::run(Change change, void (StartupModel::*end)(std::optional<std::string> error)) {
    const auto reading = std::make_shared<Reading>();
    services_.queue.run(
        [reading, change = std::move(change), &daemon = services_.daemon, &item = services_.loginItem] {
            if (change)
                reading->error = change();
            reading->daemon = daemon.state();
            reading->loginItem = item.state();
            if (reading->daemon)
                reading->command = daemon.administratorCommand(*reading->daemon);
        },
        [this, reading, end, weak = std::weak_ptr<bool>(isAlive_)] {
            if (weak.expired())
                return;
            publish(daemon_, reading->daemon);
            publish(loginItem_, reading->loginItem);
            publish(command_, std::move(reading->command));
            if (!end) {
                isReading_ = false;
                return;
            }
            (this->*end)(std::move(reading->error));
            publish(busy_, false);
        });
}

// What was refused only because somebody has to allow it first is told by the state, and what was so already
// is no failure.

void StartupModel::endRegistering(std::optional<std::string> error) {
    const bool isDone =
        daemon_ == RegistrationState::enabled || daemon_ == RegistrationState::requiresApproval;
    publish(daemonError_, isDone ? std::nullopt : std::move(error));
}

void StartupModel::endLoginItem(std::optional<std::string> error) {
    const bool isOn = loginItem_ == RegistrationState::enabled;
    const bool isDone =
        isOn == isOpeningWanted_ || (isOpeningWanted_ && loginItem_ == RegistrationState::requiresApproval);
    publish(loginItemError_, isDone ? std::nullopt : std::move(error));
}

} // namespace tarn
