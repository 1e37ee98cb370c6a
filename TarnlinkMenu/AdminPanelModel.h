#pragma once

#include "TarnCore/DateText.h"
#include "TarnCore/LocalizedStrings.h"
#include "TarnSystem/AdminAuthorization.h"
#include "TarnSystem/MainActor.h"
#include "TarnSystem/WorkQueue.h"
#include "TarnXPC/TarnXPCClient.h"
#include "TarnlinkMenu/Observable.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tarn {

/// The pause panel: an administrator pauses the protection for a while, or ends a pause.
///
/// Thread: main thread; the prompt for a password blocks `queue`. Ownership: the services
///   must outlive this and every task under way; the model may go at any time. Errors: none; what fails is
///   the message.
class AdminPanelModel final : public Observable {
public:
    struct Services {
        TarnXPCClient &client;
        Authorizing &authorization;
        /// Where the person is asked.
        WorkQueue &queue;
        MainActor &actor;
        const LocalizedStrings &strings;
    };
    struct Duration {
        std::int64_t minutes;
        const char *titleKey;
    };
    static constexpr std::array<Duration, 3> durations = {
        {{15, "admin.duration.15m"}, {60, "admin.duration.1h"}, {240, "admin.duration.4h"}}};

    explicit AdminPanelModel(const Services &services) : services_(services) {}

    // Published.
    std::int64_t selectedMinutes() const { return selectedMinutes_; }
    void setSelectedMinutes(std::int64_t minutes) { publish(selectedMinutes_, minutes); }
    const std::optional<std::string> &message() const { return message_; }
    bool messageIsWarning() const { return messageIsWarning_; }
    bool busy() const { return busy_; }
    const std::optional<Date> &pausedUntil() const { return pausedUntil_; }

    /// Asks for an administrator and then for the pause. Does nothing while busy; nor does resume().
    void pauseAsAdmin();
    void resume();
    /// Asks the daemon whether there is a pause; a failure leaves all as it is.
    void refreshStatus();

    std::string localizedMessage(const PauseResult &result) const;

private:
    using IsAlive = std::weak_ptr<bool>;

    Task<void> runPause(std::int64_t minutes, IsAlive isAlive);
    Task<void> finish(Task<PauseResult> call, IsAlive isAlive);
    Task<void> runStatus(IsAlive isAlive);
    void begin();
    void end(const PauseResult &result);
    void end(std::string text, bool isWarning);

    Services services_;
    std::int64_t selectedMinutes_ = 15;
    std::optional<std::string> message_;
    bool messageIsWarning_ = false;
    bool busy_ = false;
    std::optional<Date> pausedUntil_;
    std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

} // namespace tarn
