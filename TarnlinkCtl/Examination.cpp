#include "TarnlinkCtl/Examination.h"

#include "TarnSystem/AdminAuthorization.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/Files.h"
#include "TarnSystem/ResolverFiles.h"
#include "TarnSystem/UpdateDefaults.h"
#include "TarnlinkCtl/BuildDate.h"

#include <chrono>
#include <cstdlib>
#include <optional>
#include <sys/stat.h>
#include <utility>

namespace tarn {
namespace {

// A daemon that hangs must not keep a person waiting. In seconds.
constexpr double statusLimit = 1;

constexpr std::size_t largestFile = 1 << 20;

} // namespace

Task<doctor::Facts> Examination::run() {
    doctor::Facts facts;
    auto answer = askDaemon(facts);
    co_await std::move(answer);
    askSystem(facts);
    readNetwork(facts);
    readFiles(facts);
    co_return facts;
}

Task<void> Examination::askDaemon(doctor::Facts &facts) {
    using Daemon = doctor::Facts::Daemon;
    facts.updateFeedURL = DaemonConfig::defaultUpdateFeedURL().absoluteString();
    try {
        const auto report = co_await client.status(statusLimit);
        facts.fixesShadowedDNS = report.tetheringDNSFix;
        facts.checksForUpdates = report.updateCheckAllowed;
        facts.updateFeedURL = report.updateFeedURL.value_or(facts.updateFeedURL);
    } catch (const TarnXPCClientError &error) {
        using Kind = TarnXPCClientError::Kind;
        facts.daemon = error.kind() == Kind::unavailable ? Daemon::absent
                       : error.kind() == Kind::timeout   ? Daemon::silent
                                                         : Daemon::failing;
        facts.daemonError = error.description();
    }
}

void Examination::askSystem(doctor::Facts &facts) {
    facts.system = host.system();
    facts.hasBus = host.hasBus();
    facts.isRegistered = host.isRegistered();
    facts.isPublished = host.isPublished();
    for (auto &process : tables.processes())
        facts.processes.push_back(std::move(process.command));
    if (facts.hasBus) {
        // Asked twice: the first time may be what starts it, and slow.
        const auto isKnown = [&] {
            return authorizations.rightDefinition(AdminAuthorization::pauseRight).has_value();
        };
        facts.knowsRights = isKnown() || isKnown();
        facts.hasAgent = host.hasAuthenticationAgent();
    }
    const auto now = clock.now();
    facts.now = Date(now.sinceEpoch);
    facts.booted = Date(now.sinceEpoch - now.sinceBoot);
    facts.built = dates::parse(buildDate).value_or(Date());
}

void Examination::readNetwork(doctor::Facts &facts) {
    try {
        facts.interfaces = openReader()->readInterfaces();
    } catch (const SystemStateError &) {
        facts.isNetworkHidden = true;
        return;
    }
    facts.visibility = visibility();
    if (const auto store = openStore(VPNSplitDNS::clientName))
        facts.resolvers = VPNSplitDNS::resolvers(*store);
    facts.tunnel = VPNDetector::activeTunnel(tables);
    for (const auto &snapshot : facts.interfaces) {
        if (snapshot.kind == InterfaceKind::wifi)
            facts.radios.push_back({snapshot.device, host.isManaged(snapshot.device)});
        if (host.isReversePathStrict(snapshot.device))
            facts.strictDevices.push_back(snapshot.device);
    }
}

void Examination::readFiles(doctor::Facts &facts) {
    if (const auto file = files::read("/etc/resolv.conf", largestFile); file.contents)
        facts.resolverFile = resolvConfServers(*file.contents);

    const auto path = stateFolder + "/journal.json";
    const auto journal = files::read(path, largestFile);
    struct stat info{};
    facts.isJournalHidden = !journal.contents && !journal.failure.isMissing;
    if (journal.contents && stat(path.c_str(), &info) == 0)
        facts.journal = {Date(std::chrono::seconds(info.st_mtime)),
                         doctor::servicesInJournal(*journal.contents)};

    facts.isSudo = std::getenv("SUDO_UID") != nullptr;
    facts.checksForUpdates =
        facts.checksForUpdates && defaults.boolean(updateDefaults::automatic).value_or(true);
    facts.lastUpdateCheck = defaults.date(updateDefaults::lastCheck);
    facts.updateTroubleSince = defaults.date(updateDefaults::troubleSince);
}

} // namespace tarn
