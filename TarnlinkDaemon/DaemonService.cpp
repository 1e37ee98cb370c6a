#include "TarnlinkDaemon/DaemonService.h"

#include "TarnCore/AppInfo.h"
#include "TarnCore/Text.h"
#include "TarnSystem/ConfigLoader.h"
#include "TarnXPC/TarnXPCCoding.h"
#include "TarnlinkDaemon/Diagnostics.h"

#include <type_traits>
#include <utility>
#include <variant>

namespace tarn {
namespace {

using namespace std::chrono_literals;

// The list of addresses costs as much as the rest of a report. A change is told to those who show it
// after a longer time than this.
constexpr auto tunnelAge = 100ms;

bool isTooLong(const TarnXPCProtocol::Call &call) {
    const auto is = [](const auto &one) {
        using Service = DaemonService;
        bool result = false;
        if constexpr (requires { one.pkgPath; })
            result = one.pkgPath.size() > Service::mostPathBytes;
        if constexpr (requires { one.manifest; })
            result = result || one.manifest.size() > Service::mostManifestBytes ||
                     one.signature.size() > Service::mostSignatureBytes;
        return result;
    };
    return std::visit(is, call);
}

template <class Record> RemoteAnswer answer(const Record &record) {
    return {TarnXPCCoding::encoder().encode(record)};
}

std::string deniedCode(std::int32_t status) {
    return status == AuthorizationStatus::interactionNotAllowed ? "denied.noCredential" : "denied.admin";
}

std::string deniedMessage(std::int32_t status) {
    return status == AuthorizationStatus::interactionNotAllowed
               ? "No administrator has authenticated, and nobody can be asked here."
               : "This takes an administrator.";
}

} // namespace

template <class Record> Record DaemonService::denied(std::int32_t status) const {
    Record record;
    record.code = deniedCode(status);
    if constexpr (requires { record.message; })
        record.message = deniedMessage(status);
    if constexpr (requires { record.pausedUntil; })
        record.pausedUntil = pausedUntil();
    return record;
}

void DaemonService::call(const RemoteCaller &caller, const TarnXPCProtocol::Call &call, Reply reply) {
    const auto counted = underWay_.find(caller.client);
    if (counted != underWay_.end() && counted->second >= mostCalls)
        return reply({{},
                      RemoteAnswer::Refusal::busy,
                      "Too many calls of this client are under way: " + std::to_string(mostCalls) + "."});
    // These are answered at once, and not counted.
    if (std::holds_alternative<TarnXPCProtocol::Status>(call))
        return reply(answer(report()));
    if (isTooLong(call))
        return reply(answer(UpdateResult{false, "tooLong", "Path, manifest or signature is too long.", {}}));
    ++underWay_[caller.client];
    Reply ended = [this, isAlive = std::weak_ptr(isAlive_), client = caller.client,
                   reply = std::move(reply)](RemoteAnswer given) {
        if (isAlive.expired())
            return;
        if (const auto found = underWay_.find(client); --found->second == 0)
            underWay_.erase(found);
        reply(std::move(given));
    };
    const auto handle = [&]<class Method>(const Method &one) {
        if constexpr (!std::is_same_v<Method, TarnXPCProtocol::Status>)
            on(caller, one, std::move(ended));
    };
    std::visit(handle, call);
}

StatusReport DaemonService::report() {
    const auto &guard = services_.daemon.guard();
    const auto &config = guard.config();
    const auto now = services_.clock.now();
    StatusReport report;
    report.version = AppInfo::version;
    if (const auto &decision = guard.decision()) {
        report.status = decision->status;
        report.reason = decision->reason;
    } else {
        report.status.kind = Status::Kind::offline;
        report.reason = "The network has not been read yet.";
    }
    const auto control = guard.control();
    report.wifiOn = control.wifiPowerOn;
    report.wifiManuallyOff = control.wifiManuallyOff;
    report.pausedUntil = pausedUntil();
    report.enabled = config.enabled;
    for (const auto &snapshot : guard.reading().interfaces)
        if (snapshot.serviceID)
            report.interfaces.push_back(InterfaceSummary::of(snapshot));
    report.generatedAt = Date(std::chrono::floor<std::chrono::seconds>(now.sinceEpoch));
    report.tetheringWhileWiredAllowed = !config.disableTetheringWhileWired;
    report.updateCheckAllowed = config.updateCheckAllowed;
    report.updateFeedURL = config.updateFeedURL.absoluteString();
    report.tetheringDNSFix = config.fixShadowedDNS;
    if (const auto &vpn = tunnel(now)) {
        report.vpnDevice = vpn->device;
        report.vpnAddress = vpn->address;
    }
    return report;
}

const std::optional<VPNDetector::Tunnel> &DaemonService::tunnel(const Moment &now) {
    if (!tunnelSeenAt_ || now.sinceBoot - *tunnelSeenAt_ >= tunnelAge) {
        tunnel_ = VPNDetector::activeTunnel(services_.kernelTables);
        tunnelSeenAt_ = now.sinceBoot;
    }
    return tunnel_;
}

std::optional<Date> DaemonService::pausedUntil() const {
    const auto now = services_.clock.now();
    const auto left = services_.daemon.guard().pauseLeft(now);
    if (!left)
        return std::nullopt;
    return Date(std::chrono::round<std::chrono::seconds>(now.sinceEpoch + *left));
}

void DaemonService::on(const RemoteCaller &caller, const TarnXPCProtocol::Pause &call, Reply reply) {
    if (!call.authorization || call.authorization->empty())
        return reply(answer(denied<PauseResult>(AuthorizationStatus::interactionNotAllowed)));
    judgePausing(caller, *call.authorization,
                 [this, seconds = call.seconds, asked = services_.clock.now().sinceBoot,
                  reply = std::move(reply)](std::int32_t status) {
                     if (status != AuthorizationStatus::success)
                         reply(answer(denied<PauseResult>(status)));
                     else if (services_.clock.now().sinceBoot - asked > longestWait)
                         reply(answer(refused("failed", "The authorization took too long.")));
                     else
                         reply(answer(pause(seconds)));
                 });
}

PauseResult DaemonService::refused(std::string code, std::string message) const {
    return {false, std::move(code), std::move(message), pausedUntil(), {}};
}

PauseResult DaemonService::pause(double seconds) {
    if (services_.daemon.pause(seconds) == Daemon::PauseResult::badLength)
        return refused("badLength", "The length of a pause is a number of seconds above zero.");
    const auto left = services_.daemon.guard().pauseLeft(services_.clock.now());
    if (!left)
        return refused("failed",
                       "There is no pause: the daemon is about to end, or the pause was too short.");
    PauseResult result;
    result.granted = true;
    result.code = "granted";
    result.argument = std::chrono::ceil<std::chrono::minutes>(*left).count();
    result.message = "The protection is paused for " + std::to_string(*result.argument) + " min.";
    result.pausedUntil = pausedUntil();
    return result;
}

void DaemonService::on(const RemoteCaller &caller, const TarnXPCProtocol::Resume &, Reply reply) {
    manage<PauseResult>(caller, std::move(reply), [this](Reply go) {
        PauseResult result;
        result.granted = services_.daemon.resume();
        result.code = result.granted ? "resumed" : "notPaused";
        result.message =
            result.granted ? "The protection is in force again." : "The protection was not paused.";
        result.pausedUntil = pausedUntil();
        go(answer(result));
    });
}

void DaemonService::on(const RemoteCaller &caller, const TarnXPCProtocol::Diagnostics &, Reply reply) {
    judgeManaging(caller, [this, reply = std::move(reply)](std::int32_t status) {
        if (status != AuthorizationStatus::success)
            return reply({{}, RemoteAnswer::Refusal::notAuthorized, deniedMessage(status)});
        reply({text::withValidUTF8(
            diagnostics(services_.daemon.guard(), services_.daemon.history(), report()))});
    });
}

void DaemonService::on(const RemoteCaller &caller, const TarnXPCProtocol::SetTetheringWhileWired &call,
                       Reply reply) {
    manage<SettingResult>(caller, std::move(reply), [this, allow = call.allow](Reply go) {
        change(
            ConfigLoader::isTetheringWhileWiredForced, ConfigLoader::writeLocalTetheringWhileWired, allow,
            [allow](const DaemonConfig &config) { return config.disableTetheringWhileWired != allow; },
            std::move(go));
    });
}

void DaemonService::on(const RemoteCaller &caller, const TarnXPCProtocol::SetTetheringDNSFix &call,
                       Reply reply) {
    manage<SettingResult>(caller, std::move(reply), [this, enabled = call.enabled](Reply go) {
        change(
            ConfigLoader::isTetheringDNSFixForced, ConfigLoader::writeLocalTetheringDNSFix, enabled,
            [enabled](const DaemonConfig &config) { return config.fixShadowedDNS == enabled; },
            std::move(go));
    });
}

void DaemonService::change(bool (*isForced)(Preferences &), bool (*write)(Preferences &, bool), bool value,
                           std::function<bool(const DaemonConfig &)> isInForce, Reply reply) {
    if (services_.daemon.guard().config().dryRun)
        return reply(answer(SettingResult{false, "dryRun"}));
    const auto code = std::make_shared<std::string>();
    services_.settingsQueue.run(
        [code, isForced, write, value, &settings = services_.settings] {
            settings.refresh(ConfigLoader::applicationID);
            if (isForced(settings))
                *code = "managed";
            else if (!write(settings, value))
                *code = "failed";
        },
        [this, code, isInForce = std::move(isInForce), reply = std::move(reply),
         isAlive = std::weak_ptr(isAlive_)] {
            if (isAlive.expired())
                return;
            if (code->empty()) {
                services_.daemon.reloadConfig();
                *code = isInForce(services_.daemon.guard().config()) ? "saved" : "overridden";
            }
            reply(answer(SettingResult{*code == "saved", *code}));
        });
}

void DaemonService::on(const RemoteCaller &caller, const TarnXPCProtocol::InstallUpdate &call, Reply reply) {
    submit(caller, std::move(reply), call.pkgPath, std::nullopt, std::nullopt);
}

void DaemonService::on(const RemoteCaller &caller, const TarnXPCProtocol::InstallVerifiedUpdate &call,
                       Reply reply) {
    submit(caller, std::move(reply), call.pkgPath, call.manifest, call.signature);
}

void DaemonService::on(const RemoteCaller &caller, const TarnXPCProtocol::UpdateStatus &, Reply reply) {
    manage<UpdateResult>(caller, std::move(reply), [this](Reply go) {
        ask([](UpdateRequests &updates) { return updates.status(); }, std::move(go));
    });
}

void DaemonService::submit(const RemoteCaller &caller, Reply reply, std::string pkgPath,
                           std::optional<std::string> manifest, std::optional<std::string> signature) {
    manage<UpdateResult>(
        caller, std::move(reply),
        [this, pkgPath = std::move(pkgPath), manifest = std::move(manifest),
         signature = std::move(signature)](Reply go) {
            if (services_.daemon.guard().config().dryRun)
                return go(answer(UpdateResult{false, "dryRun", "This daemon changes nothing.", {}}));
            ask([=](UpdateRequests &updates) { return updates.submit(pkgPath, manifest, signature); },
                std::move(go));
        });
}

void DaemonService::ask(std::function<UpdateResult(UpdateRequests &)> question, Reply reply) {
    const auto result = std::make_shared<UpdateResult>();
    services_.settingsQueue.run([result, question = std::move(question),
                                 &updates = services_.updates] { *result = question(updates); },
                                [result, reply = std::move(reply)] { reply(answer(*result)); });
}

template <class Record>
void DaemonService::manage(const RemoteCaller &caller, Reply reply, std::function<void(Reply)> go) {
    judgeManaging(caller, [this, reply = std::move(reply), go = std::move(go)](std::int32_t status) {
        if (status == AuthorizationStatus::success)
            go(reply);
        else
            reply(answer(denied<Record>(status)));
    });
}

void DaemonService::judgePausing(const RemoteCaller &caller, const std::string &authorization,
                                 Judged judged) {
    if (authorization.size() != AuthorizationServices::externalFormLength)
        return judged(AuthorizationStatus::denied);
    if (caller.isSigned)
        return verify(services_.pausing, authorization, std::move(judged));
    // Here the form is a claim without a secret, and anybody can have copied it.
    caller.identify([this, authorization, judged = std::move(judged),
                     isAlive = std::weak_ptr(isAlive_)](std::optional<ProcessIdentity> process) {
        if (isAlive.expired())
            return;
        const auto claimed = ProcessIdentity::fromExternalForm(authorization);
        if (!process || claimed != process)
            return judged(AuthorizationStatus::denied);
        verify(services_.pausing, authorization, judged);
    });
}

void DaemonService::judgeManaging(const RemoteCaller &caller, Judged judged) {
    if (caller.isSigned)
        return judged(AuthorizationStatus::success);
    caller.identify([this, judged = std::move(judged),
                     isAlive = std::weak_ptr(isAlive_)](std::optional<ProcessIdentity> process) {
        if (isAlive.expired())
            return;
        if (!process)
            return judged(AuthorizationStatus::denied);
        verify(services_.managing, process->externalForm(), judged);
    });
}

void DaemonService::verify(Authorizing &right, std::string externalForm, Judged judged) {
    const auto status = std::make_shared<std::int32_t>(AuthorizationStatus::denied);
    services_.authorizationQueue.run(
        [status, &right, form = std::move(externalForm)] {
            if (right.verify(form))
                *status = AuthorizationStatus::success;
            else if (AdminAuthorization::lastVerifyStatus() == AuthorizationStatus::interactionNotAllowed)
                *status = AuthorizationStatus::interactionNotAllowed;
        },
        [status, judged = std::move(judged), isAlive = std::weak_ptr(isAlive_)] {
            if (!isAlive.expired())
                judged(*status);
        });
}

} // namespace tarn
