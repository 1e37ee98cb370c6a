#include "Platform/Platform.h"
#include "TarnCore/AppInfo.h"
#include "TarnSystem/ConfigLoader.h"
#include "TarnSystem/DNSProbe.h"
#include "TarnSystem/SystemStateReader.h"
#include "TarnlinkDaemon/Evaluation.h"
#include "TarnlinkDaemon/Report.h"

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

constexpr const char *help =
    R"(Usage: TarnlinkDaemon --once --dry-run [OPTION]...
Shows what Tarnlink would do on this machine now, and why. Changes nothing.

  --once              a single evaluation
  --dry-run           decide, but carry nothing out
  --json              print one JSON object instead of text
  --disabled          as if the protection were switched off
  --probe-mode MODE   "dns": ask a name server through each wired interface that needs it;
                      "off": take every wired path with an address and a router as good
  --probe-name NAME   the name to ask for
  --help, --version

Exit status: 0 done, 1 the network could not be read or the report not
written, 2 wrong use.
)";

bool print(const std::string &text) {
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    return std::fflush(stdout) == 0 && isWritten;
}

void complain(const std::string &message) {
    std::fprintf(stderr, "TarnlinkDaemon: %s\n", message.c_str());
}

/// Runs one evaluation and ends the main actor's loop; a failure is left in `error`.
tarn::Task<void> runOnce(tarn::Platform &platform, tarn::SystemStateReading &reader, tarn::Probing &prober,
                         tarn::Evaluation &evaluation, std::exception_ptr &error) {
    try {
        const tarn::DaemonConfig config = evaluation.config;
        evaluation = co_await tarn::evaluateOnce(reader, prober, config);
        // Of the reading that was judged: the name servers open one of their own.
        evaluation.visibility = platform.visibility();
        evaluation.wifi = tarn::CoreWLANDetails(platform.wifi()).current();
        evaluation.vpn = tarn::VPNDetector::activeTunnel(platform.kernelTables());
        evaluation.shadowedResolvers = tarn::VPNSplitDNS::suspects(tarn::VPNSplitDNS::scopedResolvers(
            [&](const std::string &client) { return platform.openDynamicStore(client); }));
    } catch (...) {
        error = std::current_exception();
    }
    platform.mainActor().post([&platform] { platform.mainActor().stop(); });
}

int evaluate(const std::vector<std::string> &arguments, bool wantsJson) {
    const auto platform = tarn::makePlatform();
    tarn::Evaluation evaluation;
    evaluation.config = tarn::ConfigLoader::load(platform->preferences(), arguments);
    if (!evaluation.config.once || !evaluation.config.dryRun) {
        complain("this version watches and switches nothing yet; run it as TarnlinkDaemon --once --dry-run");
        return exitUsage;
    }
    const std::string client = tarn::SystemStateReader::clientName;
    tarn::SystemStateReader reader(platform->openDynamicStore(client),
                                   platform->openNetworkPreferences(client), platform->wifi());
    tarn::DNSProbe prober(evaluation.config.probeName, {platform->mainActor(), platform->interfaceLookup(),
                                                        platform->datagrams(), platform->random()});
    std::exception_ptr error;
    tarn::detach(runOnce(*platform, reader, prober, evaluation, error));
    platform->mainActor().run();
    if (error)
        std::rethrow_exception(error);
    if (!print(wantsJson ? tarn::report::asJson(evaluation) : tarn::report::asText(evaluation))) {
        complain("the report could not be written");
        return exitFailed;
    }
    return 0;
}

} // namespace

int main(int count, char **values) {
    const std::vector<std::string> arguments(values, values + count);
    const auto has = [&](const char *option) {
        for (std::size_t i = 1; i < arguments.size(); ++i) {
            if (arguments[i] == option)
                return true;
            // The next word is its value, whatever it looks like.
            if (arguments[i] == "--probe-name")
                ++i;
        }
        return false;
    };
    if (has("--help"))
        return print(help) ? 0 : exitFailed;
    if (has("--version")) {
        const std::string version(tarn::AppInfo::version);
        return print("TarnlinkDaemon " + version + " (" + std::to_string(tarn::AppInfo::build) + ")\n")
                   ? 0
                   : exitFailed;
    }
    try {
        return evaluate(arguments, has("--json"));
    } catch (const std::exception &error) {
        complain(error.what());
        return exitFailed;
    }
}
