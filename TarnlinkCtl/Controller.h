#pragma once

#include "TarnSystem/Doctor.h"
#include "TarnSystem/WorkQueue.h"
#include "TarnXPC/TarnXPCClient.h"
#include "TarnlinkCtl/CommandLine.h"

#include <functional>
#include <optional>
#include <string>

namespace tarn {

/// Carries out one command.
///
/// Thread: main thread. Ownership: everything must outlive the command.
class Controller {
public:
    struct Services {
        TarnXPCClient &client;
        MainActor &actor;
        /// Where `authorize` runs.
        WorkQueue &queue;
        /// Asks the person for a right, which may take as long as a person takes, and returns the external
        /// form. Throws AdminAuthorizationError.
        std::function<std::string(const std::string &right)> authorize;
        std::function<Date()> now;
        /// Writes to the standard output at once; false when that failed.
        std::function<bool(const std::string &text)> print;
        /// Tells the person of a problem: one line that cannot disturb a terminal, without a line feed.
        std::function<void(const std::string &line)> complain;
        /// Gathers what the doctor judges by.
        std::function<Task<doctor::Facts>()> examine = {};
    };
    enum ExitStatus : int { done = 0, failed = 1, wrongUse = 2, noDaemon = 3 };

    explicit Controller(Services services) : services_(std::move(services)) {}

    /// The exit status. Watching ends only when nothing can be written any more; help and version are not
    /// for here.
    Task<int> run(CtlCommand command);

private:
    Task<int> carryOut(CtlCommand command);
    Task<int> status(bool asJson);
    Task<int> watch(bool asJson);
    Task<int> pause(double minutes);
    Task<int> resume();
    Task<int> diagnostics(bool onlyHistory);
    Task<int> doctor(bool asJson);
    Task<int> set(CtlCommand command);

    /// The external form of a right; none when nobody can be asked here. Throws what else went wrong.
    Task<std::optional<std::string>> authorize(std::string right);

    std::string shown(const StatusReport &report, bool asJson) const;
    int print(const std::string &text) const;
    int complain(const std::string &problem, int status = failed) const;
    /// For an answer that is a refusal.
    int refuse(const std::string &subject, const std::string &code, const std::string &message) const;

    Services services_;
};

} // namespace tarn
