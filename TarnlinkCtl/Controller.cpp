#include "TarnlinkCtl/Controller.h"

#include "TarnCore/Text.h"
#include "TarnSystem/AdminAuthorization.h"
#include "TarnXPC/DiagnosticsText.h"
#include "TarnXPC/TarnXPCCoding.h"
#include "TarnlinkCtl/FindingsText.h"
#include "TarnlinkCtl/StatusText.h"

#include <cmath>
#include <exception>
#include <optional>
#include <utility>

namespace tarn {
namespace {

using namespace std::chrono_literals;

constexpr auto watchInterval = 1s;

constexpr const char *noCredential = "denied.noCredential";

// In seconds. Pausing waits for the daemon to ask for the authorization itself.
constexpr double statusLimit = 1.5;
constexpr double pauseLimit = 5;
constexpr double resumeLimit = 2;
constexpr double diagnosticsLimit = 3;
constexpr double settingLimit = 3;

int exitStatus(const TarnXPCClientError &error) {
    return error.kind() == TarnXPCClientError::Kind::unavailable ? Controller::noDaemon : Controller::failed;
}

/// Such as "15 minutes" and "1.5 minutes".
std::string minutesText(double minutes) {
    auto number = text::fromDouble(minutes);
    if (number.ends_with(".0"))
        number.resize(number.size() - 2);
    return number + (minutes == 1 ? " minute" : " minutes");
}

} // namespace

Task<int> Controller::run(CtlCommand command) {
    try {
        co_return co_await carryOut(std::move(command));
    } catch (const TarnXPCClientError &error) {
        co_return complain(error.description(), exitStatus(error));
    } catch (const std::exception &error) {
        co_return complain(error.what());
    }
}

Task<int> Controller::carryOut(CtlCommand command) {
    using Verb = CtlCommand::Verb;
    switch (command.verb) {
    case Verb::pause:
        return pause(command.minutes);
    case Verb::resume:
        return resume();
    case Verb::diagnostics:
        return diagnostics(false);
    case Verb::history:
        return diagnostics(true);
    case Verb::doctor:
        return doctor(command.asJson);
    case Verb::setWhileWired:
    case Verb::setDNSFix:
        return set(std::move(command));
    case Verb::help:
    case Verb::version:
    case Verb::status:
        break;
    }
    return command.isWatching ? watch(command.asJson) : status(command.asJson);
}

Task<int> Controller::status(bool asJson) {
    const auto report = co_await services_.client.status(statusLimit);
    co_return print(shown(report, asJson));
}

Task<int> Controller::watch(bool asJson) {
    std::optional<StatusReport> last;
    std::string problem;
    for (;;) {
        std::optional<StatusReport> report;
        std::string newProblem;
        try {
            report = co_await services_.client.status(statusLimit);
        } catch (const TarnXPCClientError &error) {
            newProblem = error.description();
        }
        if (std::exchange(problem, newProblem) != newProblem)
            complain(problem.empty() ? "The daemon answers again." : problem);
        if (report) {
            auto compared = *report;
            compared.generatedAt = last ? last->generatedAt : compared.generatedAt;
            const bool isChanged = compared != last;
            // Blocks of lines need something between them.
            const bool isApart = last && !asJson;
            if (isChanged && print((isApart ? "\n" : "") + shown(*report, asJson)) != done)
                co_return failed;
            last = std::move(report);
        }
        co_await Callback<bool>(services_.actor, [&](const Callback<bool>::Resume &go) {
            services_.actor.postAfter(watchInterval, [go] { go(true); });
        });
    }
}

Task<int> Controller::pause(double minutes) {
    // Nobody is to be asked for a password in vain.
    co_await services_.client.status(statusLimit);
    // Where nobody can be asked, what the daemon says to that is what counts.
    const auto form = co_await authorize(AdminAuthorization::pauseRight);
    const auto wish = minutes * 60;
    const auto answer = co_await services_.client.pause(wish, form, pauseLimit);
    if (!answer.granted)
        co_return refuse("The pause", answer.code, answer.message);
    std::string said = "Paused";
    if (answer.pausedUntil) {
        const auto now = services_.now();
        // The daemon may have allowed less; what it says comes in whole seconds, and came some time ago.
        const auto left = std::chrono::duration<double>(*answer.pausedUntil - now).count();
        said += " for " + minutesText(std::fabs(left - wish) < 3 ? minutes : std::ceil(left / 60)) +
                ", until " + statusText::localTime(*answer.pausedUntil, now);
    }
    co_return print(said + ".\n");
}

Task<std::optional<std::string>> Controller::authorize(std::string right) {
    std::optional<std::string> form;
    std::exception_ptr error;
    const auto ask = [&] {
        try {
            form = services_.authorize(right);
        } catch (const AdminAuthorizationError &denied) {
            if (denied.status() != AuthorizationStatus::interactionNotAllowed)
                error = std::current_exception();
        } catch (...) {
            error = std::current_exception();
        }
    };
    co_await Callback<bool>(services_.actor, [&](const Callback<bool>::Resume &go) {
        services_.queue.run(ask, [go] { go(true); });
    });
    if (error)
        std::rethrow_exception(error);
    co_return form;
}

Task<int> Controller::resume() {
    auto answer = co_await services_.client.resume(resumeLimit);
    if (answer.code == noCredential && co_await authorize(AdminAuthorization::manageRight))
        answer = co_await services_.client.resume(resumeLimit);
    // It is as was wanted, whoever brought that about.
    if (answer.code == "notPaused")
        co_return print("There was no pause.\n");
    if (!answer.granted)
        co_return refuse("The end of the pause", answer.code, answer.message);
    co_return print("The protection is in force again.\n");
}

Task<int> Controller::diagnostics(bool onlyHistory) {
    std::optional<std::string> given;
    try {
        given = co_await services_.client.diagnostics(diagnosticsLimit);
    } catch (const TarnXPCClientError &error) {
        if (!error.remoteName().ends_with(".NotAuthorized"))
            throw;
    }
    if (!given) {
        co_await authorize(AdminAuthorization::manageRight);
        given = co_await services_.client.diagnostics(diagnosticsLimit);
    }
    auto text = *std::move(given);
    if (onlyHistory)
        text = DiagnosticsText::linesOf(text, DiagnosticsText::history);
    co_return print(statusText::printableLines(text));
}

Task<int> Controller::doctor(bool asJson) {
    auto examination = services_.examine();
    const auto facts = co_await std::move(examination);
    const auto findings = doctor::diagnose(facts);
    const auto notSeen = doctor::notSeen(facts);
    const auto text =
        asJson ? findingsText::encode(findings, notSeen) : findingsText::describe(findings, notSeen);
    const int status = print(text);
    co_return findings.empty() ? status : failed;
}

Task<int> Controller::set(CtlCommand command) {
    const bool isDNSFix = command.verb == CtlCommand::Verb::setDNSFix;
    const std::string name = isDNSFix ? "Tethering DNS fix" : "Tethering while wired";
    const auto change = [&client = services_.client, isDNSFix, isOn = command.isOn] {
        return isDNSFix ? client.setTetheringDNSFix(isOn, settingLimit)
                        : client.setTetheringWhileWired(isOn, settingLimit);
    };
    auto first = change();
    auto answer = co_await first;
    if (answer.code == noCredential && co_await authorize(AdminAuthorization::manageRight)) {
        auto second = change();
        answer = co_await second;
    }
    if (!answer.ok)
        co_return refuse(name, answer.code, {});
    co_return print(name + " is " + (command.isOn ? "on" : "off") + ".\n");
}

std::string Controller::shown(const StatusReport &report, bool asJson) const {
    return asJson ? TarnXPCCoding::encoder().encode(report) + "\n"
                  : statusText::describe(report, services_.now());
}

int Controller::print(const std::string &text) const {
    return services_.print(text) ? done : complain("the answer could not be written");
}

int Controller::complain(const std::string &problem, int status) const {
    services_.complain(text::printable(problem));
    return status;
}

int Controller::refuse(const std::string &subject, const std::string &code,
                       const std::string &message) const {
    if (code == "managed")
        return complain(subject + " is set by management.");
    if (code == "overridden")
        return complain(subject + " is written down, but another setting counts more.");
    // What failed otherwise, the daemon says itself.
    if (code == "failed" && message.empty())
        return complain(subject + " could not be written down.");
    if (code == "dryRun")
        return complain("The daemon only watches: nothing is carried out.");
    if (code == "denied.admin")
        return complain("Only an administrator may do that.");
    if (code == noCredential)
        return complain("An administrator has to agree to that, and nobody can be asked here.");
    return complain(subject + " was refused: " + code + (message.empty() ? "" : " (" + message + ")"));
}

} // namespace tarn
