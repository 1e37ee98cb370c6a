#pragma once

#include "TarnSystem/DaemonRegistration.h"
#include "TarnSystem/LoginItem.h"
#include "TarnSystem/WorkQueue.h"
#include "TarnlinkMenu/Desktop.h"
#include "TarnlinkMenu/Observable.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tarn {

/// What the system starts by itself: the daemon, and this application at login. The system keeps both states
/// and others change them, so they are read anew whenever they are looked at, and never remembered.
///
/// Thread: main thread; the system is asked on `queue`. Ownership: the services must outlive this and every
///   job under way; the model may go at any time. Errors: none; what fails is a field.
class StartupModel final : public Observable {
public:
    struct Services {
        DaemonRegistration &daemon;
        LoginItem &loginItem;
        ModifierEvents &windows;
        WorkQueue &queue;
    };

    explicit StartupModel(const Services &services) : services_(services) {}

    // Published. The states are absent until they were read, and where the system cannot be asked.
    const std::optional<RegistrationState> &daemon() const { return daemon_; }
    const std::optional<RegistrationState> &loginItem() const { return loginItem_; }
    /// As DaemonRegistration has it, for the present state.
    const std::optional<std::string> &administratorCommand() const { return command_; }
    /// Whether registerDaemon() is of use on this system.
    bool canRegisterDaemon() const { return services_.daemon.canRegister(); }
    /// Why the latest attempt to change one of them did not work, in the system's words.
    const std::optional<std::string> &daemonError() const { return daemonError_; }
    const std::optional<std::string> &loginItemError() const { return loginItemError_; }
    /// A change is under way; further ones are dropped.
    bool busy() const { return busy_; }

    /// Reads both states now, and from now on whenever a window of the application comes to the front.
    void watch();
    void registerDaemon();
    void setOpensAtLogin(bool opens);
    void openSystemSettings() { services_.daemon.openSystemSettings(); }

private:
    struct Reading;
    /// Returns why it failed.
    using Change = std::function<std::optional<std::string>()>;

    void read();
    void run(Change change, void (StartupModel::*end)(std::optional<std::string> error));
    void endRegistering(std::optional<std::string> error);
    void endLoginItem(std::optional<std::string> error);

    Services services_;
    std::optional<RegistrationState> daemon_;
    std::optional<RegistrationState> loginItem_;
    std::optional<std::string> command_;
    std::optional<std::string> daemonError_;
    std::optional<std::string> loginItemError_;
    bool busy_ = false;
    bool isReading_ = false;
    bool isOpeningWanted_ = false;
    ModifierEvents::Token activation_;
    std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

} // namespace tarn
