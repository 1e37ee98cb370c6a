// The time in microseconds from the bytes of a report of 64 interfaces to the menu that shows it, as a tree.

#include "Benchmarks/Measure.h"
#include "Platform/HTTP.h"
#include "TarnSystem/DNSProbe.h"
#include "TarnSystem/SCDynamicStoreEventSource.h"
#include "TarnXPC/TarnXPCCoding.h"
#include "TarnlinkMenu/AdminPanelModel.h"
#include "TarnlinkMenu/MenuApp/TerminalDesktop.h"
#include "TarnlinkMenu/ModifierWatcher.h"
#include "TarnlinkMenu/Scenes.h"
#include "TarnlinkMenu/StatusModel.h"

#include <cstddef>
#include <utility>

namespace {

using namespace tarn;

constexpr int rounds = 20, perRound = 50, interfaces = 64;

/// Answers every call with one of two reports in turn.
class Daemon final : public RemoteConnector, public RemoteConnection {
public:
    explicit Daemon(MainActor &actor) : actor_(actor) {
        for (const std::string host : {".2", ".3"}) {
            StatusReport report;
            report.status = Status::wired("eth0", "Office");
            report.reason = "eth0 verified: link, IPv4 192.0.2" + host + ", gateway, probe ok";
            for (int i = 0; i < interfaces; ++i)
                report.interfaces.push_back({"eth" + std::to_string(i), "Office " + std::to_string(i),
                                             InterfaceKind::wired, true,
                                             "198.51." + std::to_string(i) + host});
            reports_.push_back(TarnXPCCoding::encoder().encode(report));
        }
    }
    std::shared_ptr<RemoteConnection> connect(const std::string &, const std::string &) override {
        return {std::shared_ptr<void>(), this};
    }
    void setInvalidationHandler(Handler) override {}
    void setInterruptionHandler(Handler) override {}
    void resume() override {}
    void invalidate() override {}
    bool invoke(const TarnXPCProtocol::Call &, Reply reply, ErrorHandler) override {
        actor_.post([this, reply = std::move(reply)] {
            auto bytes = reports_[++calls_ % reports_.size()];
            answered = bench::Clock::now();
            reply(std::move(bytes));
        });
        return true;
    }

    bench::Clock::time_point answered;

private:
    MainActor &actor_;
    std::vector<std::string> reports_;
    std::size_t calls_ = 0;
};

} // namespace

int main() {
    const auto platform = makePlatform();
    auto &actor = platform->mainActor();
    auto &log = platform->log();
    Daemon daemon(actor);
    TarnXPCClient client(daemon, actor);
    NullSystemStateReader reader;
    SCDynamicStoreEventSource events(
        [&](const std::string &name, DynamicStoreWatch::Callback callback) {
            return platform->watchDynamicStore(name, std::move(callback));
        },
        actor);
    WiFiController wifi(platform->wifi(), platform->processes(), platform->wifiPowerTool(), log);
    CoreWLANDetails wifiDetails(platform->wifi());
    DNSProbe prober("", {actor, platform->interfaceLookup(), platform->datagrams(), platform->random()});
    const auto http = makeHTTPClient(*platform);
    UpdateFeed feed(*http, actor);
    WorkerThread queue(actor);
    TerminalDesktop desktop;
    LocationAuthorizer location(desktop, platform->userDefaults(), actor);
    const auto makeUpdates = [&] {
        return std::make_unique<UpdateChecker>(UpdateChecker::Services{client, feed, platform->userDefaults(),
                                                                       actor, platform->clock(), log, queue},
                                               UpdateChecker::Setup{"/nonexistent", {}});
    };
    StatusModel status({client, actor, platform->clock(), log, platform->kernelTables(), reader, events, wifi,
                        prober, wifiDetails, location, platform->recentLog(), queue, platform->preferences(),
                        makeUpdates});
    AdminAuthorization authorization(platform->authorizations(), log);
    AdminPanelModel admin({client, authorization, queue, actor, platform->strings()});
    ModifierWatcher modifiers(desktop.modifiers());
    const auto now = [] {
        return std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now());
    };
    Scenes scenes({status, admin, modifiers, desktop, actor, platform->strings(), now, [](const auto &) {}});

    double time = 0;
    const auto subscription = scenes.observe([&] {
        const auto menu = scenes.menu();
        time = bench::microsecondsSince(daemon.answered);
        if (status.interfaces().size() != interfaces ||
            !std::holds_alternative<view::Column>(menu.content.node))
            bench::fail("not the menu");
        actor.stop();
    });
    const auto refresh = [&](int count, bench::Samples &samples) {
        while (count-- > 0) {
            actor.post([&] { status.refresh(); });
            actor.run();
            samples.push_back(time);
        }
    };
    bench::report("refresh", bench::medians({refresh}, rounds, perRound)[0]);
}
