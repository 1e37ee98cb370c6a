#include "TarnlinkMenu/AdminPanelModel.h"

#include "TarnlinkMenu/Format.h"

#include <exception>
#include <string_view>
#include <utility>

namespace tarn {
namespace {

constexpr double pauseTimeout = 5;
constexpr double resumeTimeout = 2;
constexpr double statusTimeout = 1.5;

constexpr double secondsPerMinute = 60;

/// What came of asking the person.
struct Consent {
    std::optional<std::string> externalForm = {};
    bool isCancelled = false;
    std::string failure = {};
};

Consent ask(Authorizing &authorization) {
    try {
        return {.externalForm = authorization.acquireInteractively()};
    } catch (const AdminAuthorizationError &error) {
        return {.isCancelled = error.kind() == AdminAuthorizationError::Kind::cancelled,
                .failure = error.description()};
    } catch (const std::exception &error) {
        return {.failure = error.what()};
    }
}

} // namespace

// Every task below has a name: g++ 12 destroys twice what a temporary in a co_await expression holds.

void AdminPanelModel::begin() {
    publish(busy_, true);
    publish(message_, std::nullopt);
}

void AdminPanelModel::end(std::string text, bool isWarning) {
    publish(messageIsWarning_, isWarning);
    publish(message_, std::move(text));
    publish(busy_, false);
}

void AdminPanelModel::end(const PauseResult &result) {
    const bool isNotPaused = result.code == "notPaused";
    publish(pausedUntil_, result.pausedUntil);
    end(localizedMessage(result), !result.granted && !isNotPaused);
}

void AdminPanelModel::pauseAsAdmin() {
    if (busy_)
        return;
    begin();
    detach(runPause(selectedMinutes_, isAlive_));
}

Task<void> AdminPanelModel::runPause(std::int64_t minutes, IsAlive isAlive) {
    Callback<Consent> asking(services_.actor, [this](Callback<Consent>::Resume resume) {
        const auto consent = std::make_shared<Consent>();
        services_.queue.run(
            [consent, &authorization = services_.authorization] { *consent = ask(authorization); },
            [consent, resume = std::move(resume)] { resume(*consent); });
    });
    const auto consent = co_await asking;
    if (isAlive.expired())
        co_return;
    if (!consent.externalForm) {
        end(consent.isCancelled ? services_.strings.localized("admin.cancelled") : consent.failure,
            !consent.isCancelled);
        co_return;
    }
    auto pausing = finish(services_.client.pause(static_cast<double>(minutes) * secondsPerMinute,
                                                 consent.externalForm, pauseTimeout),
                          isAlive);
    co_await pausing;
}

void AdminPanelModel::resume() {
    if (busy_)
        return;
    begin();
    detach(finish(services_.client.resume(resumeTimeout), isAlive_));
}

Task<void> AdminPanelModel::finish(Task<PauseResult> call, IsAlive isAlive) {
    std::optional<PauseResult> result;
    std::string failure;
    try {
        result = co_await call;
    } catch (const TarnXPCClientError &error) {
        failure = error.description();
    }
    if (isAlive.expired())
        co_return;
    result ? end(*result) : end(failure, true);
}

void AdminPanelModel::refreshStatus() {
    detach(runStatus(isAlive_));
}

Task<void> AdminPanelModel::runStatus(IsAlive isAlive) {
    try {
        auto call = services_.client.status(statusTimeout);
        const auto report = co_await call;
        if (!isAlive.expired())
            publish(pausedUntil_, report.pausedUntil);
    } catch (const TarnXPCClientError &) {
        // The panel stays as it is.
    }
}

std::string AdminPanelModel::localizedMessage(const PauseResult &result) const {
    const auto &strings = services_.strings;
    if (result.code == "granted") {
        const auto text = strings.localized("pause.granted");
        return format(text, result.argument ? std::vector{std::to_string(*result.argument)}
                                            : std::vector<std::string>());
    }
    for (const std::string_view key :
         {"pause.resumed", "pause.notPaused", "pause.denied.admin", "pause.denied.noCredential"})
        if (key.substr(key.find('.') + 1) == result.code)
            return strings.localized(key);
    return result.message;
}

} // namespace tarn
