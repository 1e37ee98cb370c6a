// Puts every combination of up to three interfaces, their probes and the controls before the policy and
// checks what holds of every decision.

#include "TarnCore/Policy.h"
#include "TarnCore/Text.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace tarn;
using Kind = Action::Kind;

constexpr std::int64_t threshold = 3;
const std::array probeStates = {ProbeState{},           ProbeState::pending(),
                                ProbeState::ok(),       ProbeState::notApplicable(),
                                ProbeState::failing(1), ProbeState::failing(threshold)};
constexpr std::array probeWords = {"no probe", "pending", "ok", "not applicable", "failing", "broken"};
constexpr std::array pathWords = {"no link", "link", "address", "gateway", "path"};

/// What is told apart of one interface, beside its place in the order.
struct Shape {
    InterfaceKind kind;
    bool isTethering;
    int service; // none, disabled, enabled
    std::size_t path;
    std::size_t probe;
};

std::vector<Shape> shapes() {
    std::vector<Shape> list;
    for (int service = 0; service < 3; ++service)
        for (std::size_t path = 0; path < pathWords.size(); ++path) {
            // Only a path with everything is probed.
            const std::size_t probes = path == 4 ? probeStates.size() : 1;
            for (std::size_t probe = 0; probe < probes; ++probe) {
                list.push_back({InterfaceKind::wired, false, service, path, probe});
                list.push_back({InterfaceKind::wired, true, service, path, probe});
            }
            list.push_back({InterfaceKind::wifi, false, service, path, 0});
        }
    return list;
}

struct Case {
    std::vector<Shape> shapes;
    std::vector<InterfaceSnapshot> interfaces;
    ProbeStates probes;
    TarnControl control{true, false, true, false, threshold, true};
};

Case makeCase(const std::vector<Shape> &given, const std::vector<int> &places) {
    Case made;
    made.shapes = given;
    for (std::size_t i = 0; i < given.size(); ++i) {
        const Shape &shape = given[i];
        InterfaceSnapshot snapshot;
        snapshot.device = "if" + std::to_string(i);
        snapshot.kind = shape.kind;
        snapshot.isTethering = shape.isTethering;
        if (shape.service > 0)
            snapshot.serviceID = "s" + std::to_string(i);
        snapshot.serviceName = "n" + std::to_string(i);
        snapshot.serviceEnabled = shape.service != 1;
        if (places[i] >= 0)
            snapshot.serviceOrderIndex = places[i];
        snapshot.linkActive = shape.path > 0;
        if (shape.path == 2 || shape.path == 4)
            snapshot.ipv4 = {"10.0.0.2"};
        if (shape.path >= 3)
            snapshot.ipv4Router = "10.0.0.1";
        if (shape.probe > 0)
            made.probes.emplace(snapshot.device, probeStates[shape.probe]);
        made.interfaces.push_back(std::move(snapshot));
    }
    return made;
}

std::string inWords(const Case &of) {
    std::string text;
    for (std::size_t i = 0; i < of.shapes.size(); ++i) {
        const auto &[kind, isTethering, service, path, probe] = of.shapes[i];
        const auto &place = of.interfaces[i].serviceOrderIndex;
        text += of.interfaces[i].device + ": " + (isTethering ? "tethering" : std::string(rawValue(kind))) +
                (service == 0   ? ", no service"
                 : service == 1 ? ", disabled"
                                : ", enabled") +
                ", " + pathWords[path] + ", " + probeWords[probe] + ", " +
                (place ? "place " + std::to_string(*place) : "no place") + "\n";
    }
    const TarnControl &control = of.control;
    const auto word = [](bool is) { return is ? "yes" : "no"; };
    return text + "enabled " + word(control.enabled) + ", paused " + word(control.paused) + ", Wi-Fi on " +
           word(control.wifiPowerOn) + ", switched off by the user " + word(control.wifiManuallyOff) +
           ", tethering disabled while wired " + word(control.disableTetheringWhileWired) + "\n";
}

bool isWhole(const Shape &shape) {
    return shape.kind == InterfaceKind::wired && shape.service > 0 && shape.path == 4;
}

bool isVerified(const Shape &shape) {
    return isWhole(shape) && (shape.probe == 2 || shape.probe == 3);
}

bool isBroken(const Shape &shape) {
    return isWhole(shape) && shape.probe == 5;
}

bool isInOrder(const std::vector<InterfaceSnapshot> &interfaces) {
    for (const auto &wifi : interfaces)
        for (const auto &wired : interfaces)
            if (wifi.kind == InterfaceKind::wifi && wired.kind == InterfaceKind::wired && wifi.serviceID &&
                wired.serviceID && wifi.serviceOrderIndex && wired.serviceOrderIndex &&
                *wifi.serviceOrderIndex < *wired.serviceOrderIndex)
                return false;
    return true;
}

/// What is wrong with a decision; null when nothing is.
const char *fault(const Case &of, const Decision &decision) {
    const auto &[given, interfaces, probes, control] = of;
    const auto any = [&](auto is) { return std::ranges::any_of(given, is); };
    const bool isProtecting = control.enabled && !control.paused;
    const auto status = decision.status.kind;
    const Shape *named = nullptr;
    for (std::size_t i = 0; i < given.size(); ++i)
        if (Status::hasPayload(status) && decision.status.device == interfaces[i].device &&
            decision.status.name == interfaces[i].serviceName)
            named = &given[i];
    if (Status::hasPayload(status) && (!named || !isWhole(*named)))
        return "the status names no wired path";

    auto after = interfaces;
    bool power = control.wifiPowerOn;
    Kind last = Kind::reorderServices;
    const auto rankOf = [](Kind kind) {
        return kind == Kind::reorderServices ? 0
               : kind == Kind::setWiFiPower  ? 2
               : kind == Kind::probe         ? 3
                                             : 1;
    };
    for (std::size_t i = 0; i < decision.actions.size(); ++i) {
        const Action &action = decision.actions[i];
        if (rankOf(action.kind) < rankOf(last) || (i > 0 && rankOf(action.kind) != 1 && action.kind == last))
            return "actions are repeated or out of order";
        last = action.kind;
        if (!isProtecting && !(action.kind == Kind::setWiFiPower && action.power))
            return "something is done without protection";
        const auto found = std::ranges::find_if(after, [&](const InterfaceSnapshot &snapshot) {
            return action.kind == Kind::probe ? snapshot.device == action.device
                                              : snapshot.serviceID == action.serviceID;
        });
        const Shape *shape =
            found == after.end() ? nullptr : &given[static_cast<std::size_t>(found - after.begin())];
        switch (action.kind) {
        case Kind::setWiFiPower:
            if (action.power == power)
                return "Wi-Fi is switched to what it is";
            power = action.power;
            break;
        case Kind::enableService:
        case Kind::disableService:
            if (!shape || shape->kind != InterfaceKind::wired ||
                found->serviceEnabled == (action.kind == Kind::enableService))
                return "a service is switched that needs no switching";
            found->serviceEnabled = !found->serviceEnabled;
            if (!found->serviceEnabled &&
                !(shape->isTethering && control.disableTetheringWhileWired &&
                  any([](const Shape &one) { return isVerified(one) && !one.isTethering; })))
                return "a service is disabled without a verified cable, or that is no tethering";
            break;
        case Kind::reorderServices: {
            std::vector<bool> isNamed(after.size());
            for (std::size_t place = 0; place < action.order.size(); ++place) {
                const auto at = std::ranges::find(after, action.order[place], &InterfaceSnapshot::serviceID);
                if (at == after.end() || !at->serviceOrderIndex ||
                    isNamed[static_cast<std::size_t>(at - after.begin())])
                    return "the new order is no permutation";
                isNamed[static_cast<std::size_t>(at - after.begin())] = true;
                at->serviceOrderIndex = static_cast<std::int64_t>(place);
            }
            for (std::size_t k = 0; k < after.size(); ++k)
                if (after[k].serviceID && after[k].serviceOrderIndex && !isNamed[k])
                    return "the new order leaves a service out";
            if (isInOrder(interfaces) || !isInOrder(after))
                return "the order is changed needlessly or not mended";
            break;
        }
        case Kind::probe:
            if (shape != named ||
                (status != Status::Kind::wiredPending && status != Status::Kind::wiredUnreachable))
                return "another path is probed than the one that decides";
            break;
        }
    }
    if (!isProtecting)
        return power && status == (control.enabled ? Status::Kind::paused : Status::Kind::disabled)
                   ? nullptr
                   : "Wi-Fi stays off without protection";
    if (!isInOrder(after))
        return "Wi-Fi stays before a wired service";
    const bool mayBeOff = control.wifiManuallyOff && !any(isBroken);
    switch (status) {
    case Status::Kind::wired:
        if (!isVerified(*named) || power)
            return "wired without a verified path, or with Wi-Fi on";
        if (!after[static_cast<std::size_t>(named - given.data())].serviceEnabled && !named->isTethering)
            return "wired through a service that stays disabled";
        break;
    case Status::Kind::wiredPending:
        if (isVerified(*named) || isBroken(*named) || last != Kind::probe || power != control.wifiPowerOn)
            return "pending without a probe, or Wi-Fi is switched before its outcome";
        break;
    case Status::Kind::wiredUnreachable:
        if (!isBroken(*named) || last != Kind::probe || !power)
            return "unreachable without a probe, or with Wi-Fi off";
        break;
    case Status::Kind::wifiOff:
        if (power || !mayBeOff)
            return "Wi-Fi is left off though nobody wants that";
        break;
    case Status::Kind::wifi:
    case Status::Kind::offline:
        if (!power || any(isWhole))
            return "no fallback to Wi-Fi, or one past a wired path";
        break;
    default:
        return "a status that cannot be";
    }
    if (any(isVerified) &&
        !any([](const Shape &one) { return isWhole(one) && !isVerified(one) && !isBroken(one); }) &&
        status != Status::Kind::wired)
        return "a verified path is not used";

    TarnControl then = control;
    then.wifiPowerOn = power;
    for (const auto &action : Policy::decide(after, probes, then).actions)
        if (action.kind != Kind::probe)
            return "carried out, the decision is followed by another";
    return nullptr;
}

/// Places in the order for so many interfaces: each without one or all different.
std::vector<std::vector<int>> placements(std::size_t count) {
    std::vector<std::vector<int>> list = {{}};
    for (std::size_t i = 0; i < count; ++i) {
        std::vector<std::vector<int>> longer;
        for (const auto &places : list)
            for (int place = -1; place < static_cast<int>(count); ++place)
                if (place < 0 || std::ranges::find(places, place) == places.end()) {
                    longer.push_back(places);
                    longer.back().push_back(place);
                }
        list = std::move(longer);
    }
    return list;
}

} // namespace

int main(int count, char **values) {
    long long every = 0;
    if (count == 3 && std::string_view(values[1]) == "--every")
        every = text::parseInteger(values[2]).value_or(0);
    if (count != 1 && every <= 0) {
        std::fputs("Usage: TarnlinkPolicySweep [--every N]\n"
                   "Checks every N-th choice of interfaces only; all of them without.\n",
                   stderr);
        return 2;
    }
    const auto started = std::chrono::steady_clock::now();
    const auto all = shapes();
    // Which interface stands where in the input makes no difference but between equals.
    std::vector<std::vector<Shape>> choices = {{}};
    for (std::size_t a = 0; a < all.size(); ++a) {
        choices.push_back({all[a]});
        for (std::size_t b = a; b < all.size(); ++b) {
            choices.push_back({all[a], all[b]});
            for (std::size_t c = b; c < all.size(); ++c)
                choices.push_back({all[a], all[b], all[c]});
        }
    }
    const std::array places = {placements(0), placements(1), placements(2), placements(3)};

    std::atomic<std::size_t> next = 0;
    std::atomic<long long> combinations = 0;
    std::atomic<long long> violations = 0;
    const auto work = [&] {
        long long done = 0;
        const auto step = static_cast<std::size_t>(every > 0 ? every : 1);
        for (auto i = step * next++; i < choices.size(); i = step * next++)
            for (const auto &placement : places[choices[i].size()]) {
                Case one = makeCase(choices[i], placement);
                for (unsigned bits = 0; bits < 32; ++bits, ++done) {
                    one.control = {(bits & 1) == 0, (bits & 2) != 0, (bits & 4) != 0,
                                   (bits & 8) != 0, threshold,       (bits & 16) != 0};
                    const auto decision = Policy::decide(one.interfaces, one.probes, one.control);
                    const char *wrong = fault(one, decision);
                    if (wrong && violations++ == 0)
                        std::printf("%s:\n%sstatus %s %s: %s\n", wrong, inWords(one).c_str(),
                                    std::string(Status::caseName(decision.status.kind)).c_str(),
                                    decision.status.device.c_str(), decision.reason.c_str());
                }
            }
        combinations += done;
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < std::max(std::thread::hardware_concurrency(), 1U); ++i)
        threads.emplace_back(work);
    for (auto &thread : threads)
        thread.join();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    std::printf("%lld combinations, %lld violations, %.1f seconds\n", combinations.load(), violations.load(),
                took.count());
    return violations == 0 ? 0 : 1;
}
