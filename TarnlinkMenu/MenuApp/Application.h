#pragma once

#include "Platform/Platform.h"
#include "TarnSystem/AdminAuthorization.h"
#include "TarnSystem/DNSProbe.h"
#include "TarnSystem/SCDynamicStoreEventSource.h"
#include "TarnSystem/Updates/HTTPClient.h"
#include "TarnSystem/Updates/UpdateFeed.h"
#include "TarnlinkMenu/AdminPanelModel.h"
#include "TarnlinkMenu/MenuApp/GuestDefaults.h"
#include "TarnlinkMenu/ModifierWatcher.h"
#include "TarnlinkMenu/Scenes.h"
#include "TarnlinkMenu/StartupModel.h"
#include "TarnlinkMenu/StatusModel.h"

#include <functional>
#include <memory>
#include <string>

namespace tarn {

/// The application but for its windows: the models, and the scenes that show them, on one platform.
///
/// Thread: main thread. Ownership: what is handed over must outlive this and every task under way.
class Application {
public:
    enum class Role {
        owner, ///< The user's one instance.
        guest, ///< A process beside it, which changes nothing that it remembers.
    };

    /// `openWindow` is what Scenes takes. Updates come through the system's HTTPS unless `http` is given, and
    /// are signed with `feedKey`; other than the built-in ones are for tests.
    Application(Platform &platform, Desktop &desktop, Role role,
                std::function<void(const std::string &id)> openWindow,
                std::unique_ptr<HTTPClient> http = nullptr,
                std::string feedKey = std::string(UpdateFeed::publicKeyBase64));
    Application(const Application &) = delete;
    Application &operator=(const Application &) = delete;

    Scenes &scenes() { return scenes_; }
    StatusModel &status() { return status_; }

private:
    std::unique_ptr<UpdateChecker> makeUpdates();

    Platform &platform_;
    MainActor &actor_;
    const Role role_;
    std::unique_ptr<SystemStateReading> reader_;
    SCDynamicStoreEventSource events_;
    WiFiController wifi_;
    CoreWLANDetails wifiDetails_;
    DNSProbe prober_;
    std::unique_ptr<HTTPClient> http_;
    UpdateFeed feed_;
    GuestDefaults guestDefaults_;
    UserDefaults &defaults_;
    AdminAuthorization authorization_;
    WorkerThread logQueue_;
    WorkerThread hashQueue_;
    /// Held up by the prompt for a password.
    WorkerThread promptQueue_;
    TarnXPCClient client_;
    LocationAuthorizer location_;
    StatusModel status_;
    AdminPanelModel admin_;
    /// Held up by the system when it is asked what it starts.
    WorkerThread startupQueue_;
    StartupModel startup_;
    ModifierWatcher modifiers_;
    Scenes scenes_;
    Observable::Subscription pauseSubscription_;
    Observable::Subscription startupSubscription_;
};

} // namespace tarn
