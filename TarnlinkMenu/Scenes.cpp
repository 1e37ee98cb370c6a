#include "TarnlinkMenu/Scenes.h"

#include "TarnCore/AppInfo.h"
#include "TarnCore/StatusPresentation.h"
#include "TarnCore/Text.h"
#include "TarnlinkMenu/AdminPanelModel.h"
#include "TarnlinkMenu/Format.h"
#include "TarnlinkMenu/ModifierWatcher.h"
#include "TarnlinkMenu/StartupModel.h"
#include "TarnlinkMenu/StatusModel.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <functional>
#include <iterator>
#include <utility>

namespace tarn {
namespace {

using namespace view;
using namespace std::chrono_literals;
using tarn::text::printable;

constexpr auto copiedFor = 2s;
constexpr int settingsBarWidth = 100;
constexpr const char *locationSettings =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_LocationServices";

View label(std::string words, Font font = Font::body, Tone tone = Tone::primary) {
    return Text{std::move(words), font, tone};
}

View caption(std::string words) {
    return label(std::move(words), Font::caption, Tone::secondary);
}

std::string localTime(Date date, const char *pattern) {
    const auto seconds = std::chrono::system_clock::to_time_t(
        std::chrono::time_point_cast<std::chrono::system_clock::duration>(date));
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 64> buffer{};
    return {buffer.data(), std::strftime(buffer.data(), buffer.size(), pattern, &parts)};
}

/// Such as 14:05; with the day before it unless that is today.
std::string timeOfDay(Date date, Date now) {
    constexpr const char *day = "%Y-%m-%d";
    return localTime(date, localTime(date, day) == localTime(now, day) ? "%H:%M" : "%Y-%m-%d %H:%M");
}

std::string age(Date date, Date now) {
    const auto seconds =
        std::max<std::int64_t>(0, std::chrono::floor<std::chrono::seconds>(now - date).count());
    return seconds < 60     ? std::to_string(seconds) + " s"
           : seconds < 3600 ? std::to_string(seconds / 60) + " min"
                            : std::to_string(seconds / 3600) + " h";
}

std::string addressText(const InterfaceSnapshot &interface) {
    if (const auto *address = interface.firstRoutableIPv4())
        return printable(*address);
    const auto *address = interface.firstRoutableIPv6();
    return address ? printable(address->address) : "–";
}

Tone toneOf(const StatusPresentation &shown) {
    return shown.isWarning ? Tone::warning : Tone::primary;
}

const char *bandKey(WiFiDetails::Band band) {
    switch (band) {
    case WiFiDetails::Band::ghz2_4:
        return "wifi.band.2_4";
    case WiFiDetails::Band::ghz5:
        return "wifi.band.5";
    case WiFiDetails::Band::ghz6:
        break;
    }
    return "wifi.band.6";
}

template <class... Kinds> struct Overloaded : Kinds... {
    using Kinds::operator()...;
};
template <class... Kinds> Overloaded(Kinds...) -> Overloaded<Kinds...>;

} // namespace

struct Scenes::State final : Observable, std::enable_shared_from_this<State> {
    /// A button that copies the diagnostics and says so for a while.
    struct Copying {
        bool isUnderWay = false;
        bool isDone = false;
        MainActor::TimerID timer = 0;
    };

    explicit State(Services given) : services(std::move(given)) {}

    Services services;
    Copying menuCopying;
    Copying helpCopying;
    /// Published.
    std::uint64_t changes = 0;
    bool isChangePosted = false;
    MainActor::TimerID pauseEnd = 0;
    std::vector<Subscription> subscriptions;

    /// An action on this, as long as it is there.
    template <class Do> auto doing(Do what) {
        return [weak = weak_from_this(), what](auto... values) {
            if (const auto state = weak.lock())
                std::invoke(what, *state, values...);
        };
    }

    void start() {
        const auto changed = [weak = weak_from_this()] {
            if (const auto state = weak.lock())
                state->noteChange();
        };
        auto &status = services.status;
        subscriptions = {status.observe(changed), status.updates().observe(changed),
                         status.location().observe(changed), services.admin.observe(changed),
                         services.modifiers.observe(changed)};
        if (services.startup)
            subscriptions.push_back(services.startup->observe(changed));
    }
    void noteChange() {
        if (std::exchange(isChangePosted, true))
            return;
        services.actor.post(doing([](State &state) {
            state.isChangePosted = false;
            state.awaitPauseEnd();
            state.publish(state.changes, state.changes + 1);
        }));
    }
    /// Nothing else tells that a pause is over.
    void awaitPauseEnd() {
        services.actor.cancel(std::exchange(pauseEnd, 0));
        std::optional<Date> next;
        for (const auto &end : {services.status.pausedUntil(), services.admin.pausedUntil()})
            if (isAhead(end) && (!next || *end < *next))
                next = end;
        if (next)
            pauseEnd = services.actor.postAfter(*next - services.now(), doing(&State::noteChange));
    }
    bool isAhead(const std::optional<Date> &date) const { return date && *date > services.now(); }

    static Task<void> copyDiagnostics(std::weak_ptr<State> weak, Copying State::*which) {
        auto state = weak.lock();
        if (!state || std::exchange((*state.*which).isUnderWay, true))
            co_return;
        auto gathering = state->services.status.diagnostics();
        state.reset();
        const auto diagnostics = co_await gathering;
        state = weak.lock();
        if (!state)
            co_return;
        state->services.desktop.copy(diagnostics);
        auto &copying = *state.*which;
        state->services.actor.cancel(copying.timer);
        copying = {false, true, state->services.actor.postAfter(copiedFor, state->doing([which](State &self) {
                       self.*which = {};
                       self.noteChange();
                   }))};
        state->noteChange();
    }

    std::string say(const std::string &key) const { return services.strings.localized(key); }
    std::string say(const std::string &key, const std::vector<std::string> &arguments) const {
        return format(say(key), arguments);
    }
    template <class Do> Button button(const char *key, Do what, const char *symbol = "") {
        return {.id = key, .title = say(key), .symbol = symbol, .action = doing(what)};
    }
    Button copyButton(const char *key, const char *copiedKey, Copying State::*which) {
        auto made =
            button(key, [which](State &state) { detach(copyDiagnostics(state.weak_from_this(), which)); });
        if ((this->*which).isDone)
            made.title = say(copiedKey);
        return made;
    }
    Button windowButton(const char *key, const char *symbol, const char *id) {
        return button(key, [id](State &state) { state.open(id); }, symbol);
    }
    Button quitButton() {
        return button("menu.button.quit", [](State &state) { state.services.desktop.quit(); });
    }
    View link(const char *key, std::string url) {
        auto action = doing([url](State &state) { state.services.desktop.open(url); });
        return Link{key, say(key), std::move(url), std::move(action)};
    }

    void open(const std::string &id) {
        if (id == "admin")
            services.admin.refreshStatus();
        if (id == "settings" && services.startup)
            services.startup->watch();
        services.openWindow(id);
    }

    std::string detailText(const StatusPresentation &shown) const {
        const auto &model = services.status;
        if (model.status().kind == Status::Kind::paused && isAhead(model.pausedUntil()))
            return say("status.paused.until", {localTime(*model.pausedUntil(), "%H:%M")});
        std::vector<std::string> arguments;
        for (const auto &argument : shown.detailArguments)
            arguments.push_back(printable(argument));
        return arguments.empty() ? say(shown.detailKey) : say(shown.detailKey, arguments);
    }

    std::optional<std::string> wifiDetailLine() const {
        const auto &details = services.status.wifiDetails();
        if (services.status.status().kind != Status::Kind::wifi || !details)
            return std::nullopt;
        std::string line = details->ssid ? printable(*details->ssid) : say("wifi.unknownName");
        if (details->band)
            line += " · " + say(bandKey(*details->band));
        if (details->channel)
            line += " · " + say("wifi.channel", {std::to_string(*details->channel)});
        return line;
    }

    Views header() {
        const auto &model = services.status;
        const StatusPresentation shown(model.status());
        const auto tone = toneOf(shown);
        Views lines = {label(say(shown.titleKey), Font::headline, tone),
                       label(detailText(shown), Font::body, Tone::secondary)};
        if (auto line = wifiDetailLine())
            lines.push_back(caption(*std::move(line)));
        return {Row{{label("Tarnlink", Font::title), Spacer{},
                     caption(say("header.version", {std::string(AppInfo::version)}))}},
                Row{{Symbol{shown.symbolName, tone, shown.accessibilityLabel(services.strings), true},
                     Column{std::move(lines), true}}}};
    }

    /// What there is to say beside the status.
    Views notes() {
        auto &model = services.status;
        Views notes;
        if (model.status().kind == Status::Kind::wifi) {
            const auto permission = model.location().status();
            if (permission == LocationStatus::denied || permission == LocationStatus::restricted)
                notes.push_back(Column{
                    {caption(say("wifi.locationHint")),
                     Row{{Spacer{},
                          button("wifi.openLocationSettings",
                                 [](State &state) { state.services.desktop.open(locationSettings); })}}},
                    true});
            // Once the name is known, there is nothing to ask for.
            else if (permission == LocationStatus::notDetermined &&
                     !(model.wifiDetails() && model.wifiDetails()->ssid))
                notes.push_back(Row{{Spacer{}, button("wifi.requestLocation", [](State &state) {
                                         state.services.status.location().requestIfNeeded();
                                     })}});
        }
        if (const auto &vpn = model.vpn())
            notes.push_back(
                Row{{Symbol{"lock.shield.fill", Tone::accent},
                     label(vpn->address.empty()
                               ? say("vpn.activeOn", {printable(vpn->device)})
                               : say("vpn.active", {printable(vpn->device), printable(vpn->address)}))}});
        if (model.xpcError()) {
            Views lines = {label(say("menu.xpcError"), Font::body, Tone::warning)};
            if (services.modifiers.revealed())
                lines.push_back(caption(printable(*model.xpcError())));
            notes.push_back(Column{std::move(lines), true});
        }
        if (model.errorText())
            notes.push_back(
                label(say("menu.errorText", {printable(*model.errorText())}), Font::body, Tone::warning));
        return notes;
    }

    std::optional<View> probeText(const std::string &device) const {
        const auto &probes = services.status.probes();
        const auto found = probes.find(device);
        if (!services.modifiers.revealed() || services.status.source() != StatusModel::Source::local ||
            found == probes.end())
            return std::nullopt;
        switch (found->second.kind) {
        case ProbeState::Kind::failing:
            return caption(say("menu.probe.failing", {std::to_string(found->second.consecutive)}));
        case ProbeState::Kind::notApplicable:
            return caption(say("menu.probe.notApplicable"));
        case ProbeState::Kind::pending:
            return caption(say("menu.probe.pending"));
        case ProbeState::Kind::ok:
            break;
        }
        return caption(say("menu.probe.ok"));
    }

    View interfaceRow(const InterfaceSnapshot &interface) const {
        const auto dot = !interface.linkActive             ? Dot{Color::gray, say("menu.dot.noLink")}
                         : !interface.hasRoutableAddress() ? Dot{Color::yellow, say("menu.dot.noAddress")}
                                                           : Dot{Color::green, say("menu.dot.address")};
        const auto device = printable(interface.device);
        const auto name = interface.serviceName.empty() ? device : printable(interface.serviceName);
        Views cells = {dot, label(name)};
        if (name != device)
            cells.push_back(caption(device));
        cells.push_back(Spacer{});
        cells.push_back(label(addressText(interface)));
        Views lines = {Row{std::move(cells)}};
        if (auto probe = probeText(interface.device))
            lines.push_back(Row{{Dot{Color::clear, {}}, *std::move(probe)}});
        return lines.size() == 1 ? lines.front() : Column{std::move(lines), true};
    }

    View interfaceRows() const {
        Views rows;
        for (const auto &interface : services.status.interfaces())
            rows.push_back(interfaceRow(interface));
        if (rows.empty())
            rows.push_back(caption(say("menu.noInterfaces")));
        return Column{std::move(rows), true};
    }

    /// What the Option key shows.
    View revealed() const {
        const auto &model = services.status;
        Views lines;
        if (!model.reason().empty())
            lines.push_back(caption(printable(model.reason())));
        lines.push_back(caption(printable(model.describe())));
        lines.push_back(caption(say("menu.age", {localTime(model.lastUpdate(), "%H:%M:%S"),
                                                 age(model.lastUpdate(), services.now())})));
        return Column{std::move(lines), true};
    }

    Button dismissButton(const char *key) {
        return button(key, [](State &state) { state.services.status.updates().dismiss(); });
    }

    /// Empty when there is nothing to tell.
    Views updateRows(std::optional<int> barWidth = {}) {
        using Update = UpdateChecker;
        auto &updates = services.status.updates();
        const auto bar = [barWidth](std::optional<double> fraction, const std::string &words) -> View {
            const Progress made{fraction, words, barWidth};
            return barWidth ? View(Row{{made, Spacer{}}}) : made;
        };
        const auto version = [](const UpdateManifest &manifest) { return printable(manifest.version); };
        Views rows = std::visit(
            Overloaded{[&](const Update::Available &offer) -> Views {
                           Views controls;
                           if (const auto notes =
                                   UpdateFeed::notesURL(offer.manifest, UpdateFeed::notesHosts()))
                               controls.push_back(link("update.notes", notes->absoluteString()));
                           controls.push_back(Spacer{});
                           controls.push_back(dismissButton("update.later"));
                           controls.push_back(button("update.install", [](State &state) {
                               state.services.status.updates().downloadAndInstall();
                           }));
                           return {label(say("update.available", {version(offer.manifest)})),
                                   Row{std::move(controls)}};
                       },
                       [&](const Update::Downloading &now) -> Views {
                           const auto words = say("update.downloading", {version(now.manifest)});
                           const bool isMeasured = now.manifest.size.value_or(0) > 0;
                           return {Row{{label(words), Spacer{}, dismissButton("update.cancel")}},
                                   bar(isMeasured ? std::optional(now.fraction) : std::nullopt, words)};
                       },
                       [&](const Update::Installing &now) -> Views {
                           if (now.isInPlace)
                               return {label(say("update.inPlace", {version(now.manifest)})),
                                       Row{{Spacer{}, dismissButton("update.dismiss"), quitButton()}}};
                           const auto words = say("update.installing", {version(now.manifest)});
                           return {Row{{label(words), Spacer{}, dismissButton("update.dismiss")}},
                                   bar(std::nullopt, words)};
                       },
                       [&](const Update::Installed &done) -> Views {
                           const auto notes = done.notes.value_or(UpdateFeed::defaultNotesURL());
                           return {label(say("update.installed", {printable(done.version)})),
                                   Row{{link("update.notes", notes.absoluteString()), Spacer{},
                                        dismissButton("update.dismiss")}}};
                       },
                       [&](const Update::Failed &failed) -> Views {
                           return {label(say(failed.key, {printable(updates.interceptor().value_or("?"))}),
                                         Font::body, Tone::warning),
                                   Row{{Spacer{}, dismissButton("update.dismiss")}}};
                       },
                       [](const auto &) -> Views { return {}; }},
            updates.state());
        if (updates.notice() != Update::Notice::none)
            rows.push_back(
                label(say(updates.notice() == Update::Notice::feedStale ? "update.notice.feedStale"
                                                                        : "update.notice.feedSilent"),
                      Font::caption, Tone::warning));
        return rows;
    }

    View menu() {
        const bool isLocal = services.status.source() == StatusModel::Source::local;
        Views content = header();
        for (auto &note : notes())
            content.push_back(std::move(note));
        content.insert(content.end(), {Separator{}, interfaceRows()});
        if (services.modifiers.revealed())
            content.insert(content.end(), {Separator{}, revealed()});
        if (auto rows = updateRows(); !rows.empty())
            content.insert(content.end(), {Separator{}, Column{std::move(rows), true}});
        content.insert(
            content.end(),
            {Separator{},
             Row{{windowButton("menu.openAdmin", "lock.fill", "admin"),
                  windowButton("menu.settings", "gearshape", "settings"),
                  windowButton("menu.help", "questionmark.circle", "help")}},
             Separator{},
             Row{{caption(
                      say("menu.footer.source", {say(isLocal ? "menu.source.local" : "menu.source.daemon")})),
                  Spacer{}, refreshButton()}},
             Row{{copyButton("menu.button.copyDiagnostics", "menu.button.copied", &State::menuCopying),
                  Spacer{}, quitButton()}}});
        return Column{std::move(content)};
    }

    Button refreshButton() {
        return button("menu.button.refresh", [](State &state) { state.services.status.refresh(); });
    }

    View admin() {
        auto &model = services.admin;
        const auto &end = model.pausedUntil();
        Views content = {
            Row{{Symbol{"lock.fill", Tone::primary, {}, true},
                 Column{{label(say("admin.title"), Font::headline), caption(say("admin.caption"))}, true}}},
            Separator{}};
        const auto mainButton = [&](const char *key, void (AdminPanelModel::*action)()) {
            auto made = button(key, [action](State &state) { (state.services.admin.*action)(); });
            made.isEnabled = !model.busy();
            made.isDefault = true;
            return made;
        };
        if (isAhead(end)) {
            content.push_back(Row{{label(say("admin.pausedUntil", {timeOfDay(*end, services.now())})),
                                   Spacer{}, mainButton("admin.resume", &AdminPanelModel::resume)}});
        } else {
            Picker picker{.id = "admin.duration.label",
                          .title = say("admin.duration.label"),
                          .choices = {},
                          .selected = model.selectedMinutes(),
                          .isEnabled = !model.busy(),
                          .changed = doing([](State &state, std::int64_t minutes) {
                              state.services.admin.setSelectedMinutes(minutes);
                          })};
            for (const auto &[minutes, titleKey] : AdminPanelModel::durations)
                picker.choices.emplace_back(say(titleKey), minutes);
            content.push_back(std::move(picker));
            content.push_back(
                Row{{Spacer{}, mainButton("admin.pauseAsAdmin", &AdminPanelModel::pauseAsAdmin)}});
        }
        if (model.message())
            content.push_back(label(printable(*model.message()), Font::body,
                                    model.messageIsWarning() ? Tone::warning : Tone::secondary));
        return Column{std::move(content)};
    }

    Toggle settingRow(const char *key, const char *detailKey, bool isOn, bool isForced,
                      void (StatusModel::*set)(bool)) {
        return {.id = key,
                .title = say(key),
                .detail = say(detailKey) + (isForced ? " " + say("settings.managed") : ""),
                .isOn = isOn,
                .isEnabled = !isForced && services.status.source() == StatusModel::Source::daemon,
                .changed =
                    doing([set](State &state, bool isWanted) { (state.services.status.*set)(isWanted); })};
    }

    std::string lastCheckText() {
        auto &updates = services.status.updates();
        if (std::holds_alternative<UpdateChecker::Checking>(updates.state()))
            return say("update.status.checking");
        if (!updates.lastCheck())
            return say("update.status.never");
        const auto line = say("update.status.lastCheck", {timeOfDay(*updates.lastCheck(), services.now())});
        return std::holds_alternative<UpdateChecker::UpToDate>(updates.state())
                   ? say("update.status.upToDate") + " " + line
                   : line;
    }

    Views updateSettings() {
        using Update = UpdateChecker;
        auto &updates = services.status.updates();
        Views content;
        if (updates.updatesAllowed())
            content.push_back(Toggle{.id = "settings.updates.title",
                                     .title = say("settings.updates.title"),
                                     .detail = say("settings.updates.detail"),
                                     .isOn = updates.automaticChecks(),
                                     .changed = doing([](State &state, bool isWanted) {
                                         state.services.status.updates().setAutomaticChecks(isWanted);
                                     })});
        else
            content.push_back(
                Column{{label(say("settings.updates.title")), caption(say("settings.updates.detail")),
                        caption(say("settings.updates.off"))},
                       true});
        auto checkNow = button("settings.updates.checkNow",
                               [](State &state) { state.services.status.updates().check(true); });
        const auto &state = updates.state();
        checkNow.isEnabled = !std::holds_alternative<Update::Checking>(state) &&
                             !std::holds_alternative<Update::Downloading>(state) &&
                             !std::holds_alternative<Update::Installing>(state);
        content.push_back(Row{{caption(lastCheckText()), Spacer{}, std::move(checkNow)}});
        if (auto rows = updateRows(settingsBarWidth); !rows.empty())
            content.push_back(Column{std::move(rows), true});
        return content;
    }

    View warningRow(std::string words, Button control) {
        return Row{{label(std::move(words), Font::caption, Tone::warning), Spacer{}, std::move(control)}};
    }
    Button systemSettingsButton(const char *id) {
        auto made =
            button("settings.openSystem", [](State &state) { state.services.startup->openSystemSettings(); });
        made.id = id;
        return made;
    }

    /// Empty while the daemon answers, however it was started, or is started as it should be.
    Views serviceRows() {
        const auto *startup = services.startup;
        const auto state = startup ? startup->daemon() : std::nullopt;
        if (!state || state == RegistrationState::enabled ||
            services.status.source() == StatusModel::Source::daemon)
            return {};
        if (const auto &command = startup->administratorCommand())
            return {label(say("settings.service.command", {*command}), Font::caption, Tone::warning)};
        if (state == RegistrationState::requiresApproval)
            return {
                warningRow(say("settings.service.requiresApproval"), systemSettingsButton("allowService"))};
        auto words = say(state == RegistrationState::notFound ? "settings.service.notFound"
                                                              : "settings.service.notRegistered");
        if (!startup->canRegisterDaemon())
            return {label(std::move(words), Font::caption, Tone::warning)};
        auto set =
            button("settings.service.register", [](State &self) { self.services.startup->registerDaemon(); });
        set.isEnabled = !startup->busy();
        Views rows = {warningRow(std::move(words), std::move(set))};
        if (const auto &error = startup->daemonError())
            rows.push_back(
                label(say("settings.service.error", {printable(*error)}), Font::caption, Tone::warning));
        return rows;
    }

    /// Empty where the system does not tell.
    Views loginRows() {
        const auto *startup = services.startup;
        const auto state = startup ? startup->loginItem() : std::nullopt;
        if (!state)
            return {};
        Views rows = {Toggle{.id = "settings.login.title",
                             .title = say("settings.login.title"),
                             .detail = say("settings.login.detail"),
                             .isOn = state == RegistrationState::enabled,
                             .isEnabled = !startup->busy(),
                             .changed = doing([](State &self, bool isWanted) {
                                 self.services.startup->setOpensAtLogin(isWanted);
                             })}};
        if (state == RegistrationState::requiresApproval)
            rows.push_back(
                warningRow(say("settings.login.requiresApproval"), systemSettingsButton("allowLogin")));
        if (const auto &error = startup->loginItemError())
            rows.push_back(
                label(say("settings.login.error", {printable(*error)}), Font::caption, Tone::warning));
        return rows;
    }

    View settings() {
        const auto &model = services.status;
        const auto &error = model.settingError();
        Views content = {
            settingRow("settings.tethering.title", "settings.tethering.detail", model.tetheringAllowed(),
                       model.isTetheringForced(), &StatusModel::setTetheringAllowed),
            settingRow("settings.tetheringDNS.title", "settings.tetheringDNS.detail", model.tetheringDNSFix(),
                       model.isTetheringDNSFixForced(), &StatusModel::setTetheringDNSFix)};
        // A setting that did not reach the daemon needs no other words.
        if (model.source() == StatusModel::Source::local || error == "xpc")
            content.push_back(Row{
                {label(say("settings.noDaemon"), Font::caption, Tone::warning), Spacer{}, refreshButton()}});
        if (error && *error != "xpc")
            content.push_back(
                label(say("settings.error", {printable(*error)}), Font::caption, Tone::warning));
        std::ranges::move(serviceRows(), std::back_inserter(content));
        if (auto rows = loginRows(); !rows.empty()) {
            content.push_back(Separator{});
            std::ranges::move(rows, std::back_inserter(content));
        }
        content.push_back(Separator{});
        for (auto &view : updateSettings())
            content.push_back(std::move(view));
        return Column{std::move(content)};
    }

    View section(const char *titleKey, const std::vector<const char *> &bodyKeys, Views more = {}) {
        Views lines = {label(say(titleKey), Font::headline)};
        for (const auto *key : bodyKeys)
            lines.push_back(label(say(key)));
        std::ranges::move(more, std::back_inserter(lines));
        return Column{std::move(lines), true};
    }

    View help() {
        Views symbols;
        for (const auto &[key, name] : {std::pair("help.symbols.wired", "cable.connector"),
                                        {"help.symbols.wifi", "antenna.radiowaves.left.and.right"},
                                        {"help.symbols.wifiOff", "wifi.slash"},
                                        {"help.symbols.offline", "antenna.radiowaves.left.and.right.slash"},
                                        {"help.symbols.unreachable", "exclamationmark.triangle"},
                                        {"help.symbols.paused", "pause.circle"}})
            symbols.push_back(Row{{Symbol{name}, label(say(key))}});
        Views steps;
        for (const auto *key : {"help.recover.1", "help.recover.2", "help.recover.3"})
            steps.push_back(Row{{label(std::to_string(steps.size() + 1) + "."), label(say(key))}, true});
        return Scroll{{
            Row{{label("Tarnlink", Font::title), Spacer{},
                 caption(
                     say("help.version", {std::string(AppInfo::version), std::to_string(AppInfo::build)}))}},
            section("help.what.title", {"help.what.body", "help.what.continuity"}),
            section("help.symbols.title", {}, std::move(symbols)),
            section("help.vpn.title", {"help.vpn.body", "help.vpn.dns"}),
            section("help.recover.title", {}, std::move(steps)),
            section(
                "help.diag.title", {"help.diag.body"},
                {Row{{copyButton("help.diag.button", "help.diag.copied", &State::helpCopying), Spacer{}}}}),
            section("help.support.title", {},
                    {link("help.support.link", std::string(AppInfo::supportURL)),
                     label(say("help.support.body"))}),
        }};
    }
};

Scenes::Scenes(Services services) : state_(std::make_shared<State>(std::move(services))) {
    state_->start();
}

Symbol Scenes::menuBarItem() const {
    const auto &model = state_->services.status;
    const StatusPresentation shown(model.status());
    return {StatusPresentation::menuBarSymbol(model.status(), model.wifiOn()), toneOf(shown),
            shown.accessibilityLabel(state_->services.strings)};
}

WindowContent Scenes::menu() {
    state_->services.modifiers.start();
    return {"menu", "Tarnlink", 340, {}, state_->menu()};
}

WindowContent Scenes::admin() {
    return {"admin", state_->say("admin.window.title"), 380, {}, state_->admin()};
}

WindowContent Scenes::settings() {
    return {"settings", state_->say("settings.window.title"), 400, {}, state_->settings()};
}

WindowContent Scenes::help() {
    return {"help", state_->say("help.window.title"), 460, 520, state_->help()};
}

WindowContent Scenes::window(const std::string &id) {
    return id == "admin" ? admin() : id == "settings" ? settings() : id == "help" ? help() : menu();
}

std::vector<Button> Scenes::plainMenu() {
    return {state_->windowButton("menu.open", "", "menu"),
            state_->windowButton("menu.openAdmin", "lock.fill", "admin"),
            state_->windowButton("menu.settings", "gearshape", "settings"),
            state_->windowButton("menu.help", "questionmark.circle", "help"), state_->quitButton()};
}

void Scenes::open(const std::string &id) {
    state_->open(id);
}

bool Scenes::isSettled() const {
    const auto &model = state_->services.status;
    return model.source() == StatusModel::Source::daemon || model.xpcError() || model.errorText();
}

Observable::Subscription Scenes::observe(std::function<void()> changed) {
    return state_->observe(std::move(changed));
}

} // namespace tarn
