#include "TarnCore/Policy.h"

#include "Support/Words.h"
#include "TarnCore/ServiceOrder.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <random>

namespace tarn {
namespace {

using Snapshots = std::vector<InterfaceSnapshot>;

/// "en7@1:phone,unplugged": a device with link, address and router, whose service has the identifier
/// S-en7, the name N-en7 and the place 1 in the order; a cable unless a trait says otherwise.
InterfaceSnapshot snapshot(const std::string &text) {
    const auto has = [&](const char *trait) { return text.find(trait) != std::string::npos; };
    InterfaceSnapshot s;
    s.device = text.substr(0, 3);
    s.kind = has("wifi") ? InterfaceKind::wifi : has("other") ? InterfaceKind::other : InterfaceKind::wired;
    if (!has("serviceless"))
        s.serviceID = "S-" + s.device;
    s.serviceName = "N-" + s.device;
    s.serviceEnabled = !has("disabled");
    if (has("@"))
        s.serviceOrderIndex = std::stoi(text.substr(4));
    s.linkActive = !has("unplugged");
    s.ipv4 = {has("unaddressed") ? "169.254.1.2" : "192.168.1.20"};
    s.ipv6 = {{"fe80::1%en7", 0}, {"2001:db8::dead", 0x02}, {has("ipv6") ? "2001:db8::5" : "fe80::2", 0}};
    if (!has("routerless"))
        s.ipv4Router = "192.168.1.1";
    s.hasDHCPLease = has("leased");
    s.isTethering = has("phone");
    return s;
}

Snapshots snapshots(const std::string &text) {
    Snapshots list;
    std::ranges::transform(words(text), std::back_inserter(list), snapshot);
    return list;
}

/// "en7=ok en8=3": three failures in a row.
ProbeStates probeStates(const std::string &text) {
    const ProbeStates named = {
        {"ok", ProbeState::ok()}, {"n/a", ProbeState::notApplicable()}, {"pending", ProbeState::pending()}};
    ProbeStates states;
    for (const auto &word : words(text)) {
        const auto state = word.substr(4);
        states[word.substr(0, 3)] =
            named.contains(state) ? named.at(state) : ProbeState::failing(std::stoi(state));
    }
    return states;
}

/// "ACTION, ACTION | STATUS | REASON".
std::string describe(const Decision &decision) {
    constexpr const char *names[] = {"power", "enable", "disable", "order", "probe"};
    std::string text;
    for (const auto &action : decision.actions) {
        text += (text.empty() ? "" : ", ") + std::string(names[static_cast<int>(action.kind)]);
        if (action.kind == Action::Kind::setWiFiPower)
            text += action.power ? " on" : " off";
        for (const auto &part : {action.serviceID, action.name, action.device})
            text += part.empty() ? "" : " " + part;
        for (const auto &service : action.order)
            text += " " + service;
    }
    const auto &[kind, device, name] = decision.status;
    return text + " | " + std::string(Status::caseName(kind)) + " " + device + " " + name + " | " +
           decision.reason;
}

TarnControl inForce(bool power, bool manuallyOff = false, std::int64_t failures = 3,
                    bool tetheringRule = true) {
    return {true, false, power, manuallyOff, failures, tetheringRule};
}

const TarnControl wifiOn = inForce(true), wifiOff = inForce(false), userOff = inForce(false, true);

struct Case {
    std::string text, devices, probes;
    TarnControl control;
    std::string actions, status, reason;
};

void check(const std::vector<Case> &cases) {
    for (const auto &[text, devices, probes, control, actions, status, reason] : cases)
        EXPECT_EQ(describe(Policy::decide(snapshots(devices), probeStates(probes), control)),
                  actions + " | " + status + (status.find(' ') < status.size() ? "" : "  ") + " | " + reason)
            << text;
}

const std::string verified = "en7 verified: link, IPv4 192.168.1.20, gateway, probe ok";
const std::string pending = "en7 addressed, probe pending";
const std::string broken = "en7 has link and address but no traffic path; Wi-Fi kept on";
const std::string noLink = "no wired link, no Wi-Fi connection";
const std::string unready = "en7 linked but not addressed; waiting";
const std::string leftAlone = "no wired path; Wi-Fi switched off by the user, left alone";
const std::string wired7 = "wired en7 N-en7";
const std::string pending7 = "wiredPending en7 N-en7";
const std::string broken7 = "wiredUnreachable en7 N-en7";

TEST(Policy, WithoutProtectionWiFiComesOnAndNothingElseHappens) {
    const std::string busy = "en0@0:wifi en7@1:disabled en8@2:phone,unplugged,disabled",
                      off = "guard disabled by policy";
    for (const bool on : {false, true}) {
        const TarnControl disabled{false, false, on, true, 3, true}, paused{true, true, on, true, 3, true};
        const TarnControl both{false, true, on, true, 3, true};
        const std::string power = on ? "" : "power on";
        check({{"disabled", busy, "en7=ok", disabled, power, "disabled", off},
               {"both", busy, "en7=ok", both, power, "disabled", off},
               {"paused", busy, "en7=ok", paused, power, "paused", "guard paused"}});
    }
}

TEST(Policy, VerifiedPathSwitchesWiFiOff) {
    check({{"Wi-Fi on", "en7@0 en0@1:wifi", "en7=ok", wifiOn, "power off", wired7, verified},
           {"Wi-Fi off", "en7@0 en0@1:wifi", "en7=ok", wifiOff, "", wired7, verified},
           {"a lease is a gateway", "en7@0:routerless,leased", "en7=ok", userOff, "", wired7, verified},
           {"probing switched off", "en7@0", "en7=n/a", wifiOn, "power off", wired7, verified.substr(0, 46)},
           {"both families", "en7@0:ipv6", "en7=ok", wifiOff, "", wired7,
            "en7 verified: link, IPv4 192.168.1.20 + IPv6 2001:db8::5, gateway, probe ok"},
           {"IPv6 alone", "en7@0:ipv6,unaddressed", "en7=ok", wifiOff, "", wired7,
            "en7 verified: link, IPv6 2001:db8::5, gateway, probe ok"}});
}

TEST(Policy, UnprovenPathIsProbedAndWiFiStaysAsItIs) {
    const std::string failing = "en7 addressed, probe failing ";
    check({{"no entry", "en7@0", "en8=ok", wifiOn, "probe en7", pending7, pending},
           {"pending", "en7@0", "en7=pending", wifiOff, "probe en7", pending7, pending},
           {"off by the user", "en7@0", "", userOff, "probe en7", pending7, pending},
           {"failing, Wi-Fi off", "en7@0", "en7=2", wifiOff, "probe en7", pending7, failing + "(2/3)"},
           {"signed", "en7@0", "en7=-5", inForce(true, false, -4), "probe en7", pending7,
            failing + "(-5/-4)"}});
}

TEST(Policy, BrokenPathBringsWiFiBackAndIsProbedOn) {
    check(
        {{"at the limit", "en7@0", "en7=3", wifiOn, "probe en7", broken7, broken},
         {"Wi-Fi off", "en7@0", "en7=3", wifiOff, "power on, probe en7", broken7, broken},
         {"off by the user", "en7@0", "en7=4", userOff, "power on, probe en7", broken7, broken},
         {"limit 0", "en7@0", "en7=0", inForce(true, false, 0), "probe en7", broken7, broken},
         {"the first of two", "en8@2 en7@1 en0@3:wifi", "en7=3 en8=9", wifiOn, "probe en7", broken7, broken},
         {"a phone beside it", "en8@0:phone en7@1", "en7=3 en8=3", wifiOn, "probe en7", broken7, broken}});
}

TEST(Policy, FirstCandidateWithAnOutcomeWins) {
    check({{"pending before ok", "en8@1 en7@0", "en8=ok", wifiOn, "probe en7", pending7, pending},
           {"broken before ok", "en8@0 en7@1", "en8=3 en7=ok", wifiOn, "power off", wired7, verified},
           {"broken before pending", "en8@0 en7@1", "en8=3", wifiOff, "probe en7", pending7, pending},
           {"no place comes last", "en8 en7@99", "", wifiOn, "probe en7", pending7, pending},
           {"equal places keep their order", "en7@4 en8@4", "", wifiOn, "probe en7", pending7, pending},
           {"a phone comes last", "en8@0:phone en7", "en8=ok", wifiOn, "probe en7", pending7, pending},
           {"not addressed", "en4@0:unplugged en5@1:unaddressed en6@2:routerless en7@3",
            "en4=ok en5=ok en6=ok en7=ok", wifiOn, "power off", wired7, verified},
           {"a phone alone", "en7@0:phone", "en7=ok", wifiOn, "power off", wired7, verified},
           {"a phone behind", "en8@0 en7@1:phone", "en8=3 en7=ok", wifiOn, "power off", wired7, verified}});
}

TEST(Policy, TetheringIsSuppressedWhileACableIsVerified) {
    const auto allowed = inForce(false, false, 3, false);
    const std::string disable = "disable S-en8 N-en8", enable = "enable S-en8 N-en8";
    check(
        {{"with link", "en7@0 en8@1:phone", "en7=ok", wifiOn, disable + ", power off", wired7, verified},
         {"without link", "en7@0 en8@1:phone,unplugged", "en7=ok", wifiOff, "", wired7, verified},
         {"disabled already", "en7@0 en8@1:phone,disabled", "en7=ok", wifiOff, "", wired7, verified},
         {"not wanted", "en7@0 en8@1:phone", "en7=ok", allowed, "", wired7, verified},
         {"no more", "en7@0 en8@1:phone,disabled,unplugged", "en7=ok", allowed, enable, wired7, verified},
         {"cable lost", "en7@0:unplugged en8@1:phone,disabled,unplugged", "en7=ok", wifiOn, enable, "offline",
          noLink},
         {"a later cable", "en7@0 en6@1 en8@2:phone", "en6=ok", wifiOn, disable + ", probe en7", pending7,
          pending},
         {"a phone suppresses nobody", "en7@0:phone en8@1:phone", "en7=ok", wifiOff, "", wired7, verified}});
}

TEST(Policy, LinkedServicesAreEnabled) {
    check({{"by preference, others untouched",
            "en9@0:phone,disabled en7@2:disabled en6:disabled en5@1:unplugged,disabled en0@9:wifi,disabled",
            "en7=ok", inForce(false, false, 3, false),
            "enable S-en7 N-en7, enable S-en6 N-en6, enable S-en9 N-en9", wired7, verified},
           {"order, services, power, probe", "en0@0:wifi en7@1:disabled en8@2:phone,disabled,unplugged",
            "en7=3", userOff,
            "order S-en7 S-en8 S-en0, enable S-en7 N-en7, enable S-en8 N-en8, power on, probe en7", broken7,
            broken}});
}

TEST(Policy, WithoutAWiredPathWiFiComesBackUnlessTheUserSwitchedItOff) {
    check({{"nothing at all", "", "", wifiOn, "", "offline", noLink},
           {"Wi-Fi off", "", "", wifiOff, "power on", "offline", noLink},
           {"off by the user", "", "", userOff, "", "wifiOff", leftAlone},
           {"wish without effect", "", "", inForce(true, true), "", "offline", noLink},
           {"Wi-Fi connected", "en0@0:wifi,routerless", "", wifiOn, "", "wifi", "no wired link"},
           {"Wi-Fi without address", "en0@0:wifi,unaddressed", "", wifiOn, "", "offline", noLink},
           {"Wi-Fi without link", "en0@0:wifi,unplugged", "", wifiOn, "", "offline", noLink},
           {"cable unplugged", "en7@0:unplugged en0@1:wifi", "en7=ok", wifiOn, "", "wifi", "no wired link"},
           {"no router", "en7@0:routerless en0@1:wifi", "en7=ok", wifiOn, "", "wifi", unready},
           {"no address", "en7@0:unaddressed", "en7=ok", wifiOff, "power on", "offline", unready},
           {"no address, user", "en7@0:unaddressed", "", userOff, "", "wifiOff", leftAlone},
           {"preferred", "en8@2:unaddressed en7@1:unaddressed en6@0:unplugged", "", wifiOn, "", "offline",
            unready},
           {"no service", "en7@0:serviceless", "en7=ok", wifiOn, "", "offline", noLink},
           {"another kind", "en7@0:other", "en7=ok", wifiOn, "", "offline", noLink}});
}

TEST(ServiceOrder, WiredServicesMoveBeforeWiFi) {
    for (const auto &row : rows(" > ; br0@0:other en7@1 > ; en0@0:wifi br0@1:other > ; en0@1:wifi en7@0 > ; "
                                "en7@1 en0@1:wifi > ; en0@0:wifi en7 > ; en0@0:wifi en7@1:serviceless > ; "
                                "en0@0:wifi en7@1 en8@2:phone > S-en7 S-en8 S-en0; "
                                "en7@5 en0@3:wifi en8@4 > S-en8 S-en7 S-en0; "
                                "en8@0 en0@1:wifi en7@2 > S-en8 S-en7 S-en0; "
                                "br0@0:other en0@1:wifi en7@2 > S-en7 S-br0 S-en0; "
                                "en0@0:wifi en7@1:unplugged,disabled > S-en7 S-en0; "
                                "en0@1:wifi en8@1 en7@1 > S-en8 S-en7 S-en0")) {
        const auto &[devices, order] = sides(row);
        EXPECT_EQ(ServiceOrder::reorderIfNeeded(snapshots(devices)).value_or(words("")), words(order)) << row;
    }
}

/// Inputs of every sort; every device has a place of its own in the service order.
struct Inputs {
    Snapshots interfaces;
    ProbeStates probes;
    TarnControl given{};

    explicit Inputs(std::mt19937_64 &random) {
        const auto pick = [&](std::uint64_t count) { return random() % count; };
        const auto traits =
            words("wifi other phone disabled unplugged ipv6 leased unaddressed routerless serviceless");
        const auto states = words("ok ok n/a pending 0 1 2 3 4");
        for (auto i = pick(6); i-- > 0;) {
            const auto name = "en" + std::to_string(i);
            auto text = name + "@" + std::to_string(i) + ":";
            for (const auto &trait : traits)
                text += pick(5) == 0 ? trait : "";
            interfaces.push_back(snapshot(text));
            if (pick(6) > 0)
                probes.merge(probeStates(name + "=" + states[pick(states.size())]));
        }
        std::ranges::shuffle(interfaces, random);
        const auto failures = static_cast<std::int64_t>(pick(4));
        given = {pick(10) > 0, pick(10) == 0, pick(2) > 0, pick(2) > 0, failures, pick(3) > 0};
    }
    const InterfaceSnapshot &find(const std::string &name) const {
        return *std::ranges::find(interfaces, name, &InterfaceSnapshot::serviceName);
    }
};

/// Each sort of action at most once, services aside, and in the fixed order; tells Wi-Fi's power after them.
bool powerAfterActions(const Inputs &in, const Decision &decision) {
    constexpr int ranks[] = {2, 1, 1, 0, 3};
    int last = -1;
    bool power = in.given.wifiPowerOn;
    for (const auto &action : decision.actions) {
        const int rank = ranks[static_cast<int>(action.kind)];
        EXPECT_TRUE(rank > last || (rank == 1 && last == 1));
        last = rank;
        const bool enables = action.kind == Action::Kind::enableService;
        EXPECT_TRUE(rank != 1 || in.find(action.name).serviceEnabled != enables);
        EXPECT_TRUE(rank != 1 || enables || in.find(action.name).isTethering);
        EXPECT_TRUE(rank != 2 || std::exchange(power, action.power) != action.power);
        EXPECT_TRUE(rank != 3 || action.device == decision.status.device);
    }
    const auto status = decision.status.kind;
    EXPECT_EQ(last == 3, status == Status::Kind::wiredPending || status == Status::Kind::wiredUnreachable);
    return power;
}

TEST(PolicyProperties, HoldForManyInputs) {
    using Kind = Status::Kind;
    std::mt19937_64 random(20);
    std::map<Kind, int> seen;
    for (int round = 0; round < 20000 && !testing::Test::HasFailure(); ++round) {
        Inputs in(random);
        const auto decision = Policy::decide(in.interfaces, in.probes, in.given);
        SCOPED_TRACE(describe(decision));
        const bool power = powerAfterActions(in, decision);
        const auto status = decision.status.kind;
        ++seen[status];
        // Off by us for a verified path alone; left off only there, while one is being proven, or by wish.
        if (status == Kind::wired) {
            const auto &path = in.find(decision.status.name);
            EXPECT_TRUE(path.isWiredCandidate() && path.hasRoutableAddress() && path.hasGateway());
            EXPECT_TRUE(in.probes.at(path.device).isVerified() && !power);
        } else {
            const bool isWish = status == Kind::wifiOff && in.given.wifiManuallyOff;
            EXPECT_TRUE(power || (!in.given.wifiPowerOn && (isWish || status == Kind::wiredPending)));
        }
        const bool isInForce = in.given.enabled && !in.given.paused;
        EXPECT_TRUE(isInForce || decision.actions.size() == (in.given.wifiPowerOn ? 0 : 1));

        EXPECT_EQ(Policy::decide(in.interfaces, in.probes, in.given), decision);
        std::ranges::shuffle(in.interfaces, random);
        EXPECT_EQ(Policy::decide(in.interfaces, in.probes, in.given), decision) << "another order of input";
    }
    for (const auto kind : Status::allKinds)
        EXPECT_GT(seen[kind], 100) << Status::caseName(kind) << " was hardly tried";
}

TEST(ServiceOrderProperties, WiredFirstElseAsBeforeAndOnlyOnce) {
    std::mt19937_64 random(21);
    int reorders = 0;
    for (int round = 0; round < 20000 && !testing::Test::HasFailure(); ++round) {
        auto list = Inputs(random).interfaces;
        std::erase_if(list, [](const auto &entry) { return !entry.serviceID; });
        const auto order = ServiceOrder::reorderIfNeeded(list);
        if (!order)
            continue;
        ++reorders;
        std::ranges::sort(list, {}, [](const auto &entry) {
            return std::pair(entry.kind != InterfaceKind::wired, entry.serviceOrderIndex);
        });
        ASSERT_EQ(order->size(), list.size());
        for (std::size_t i = 0; i < list.size(); ++i) {
            EXPECT_EQ((*order)[i], list[i].serviceID);
            list[i].serviceOrderIndex = static_cast<std::int64_t>(i);
        }
        EXPECT_EQ(ServiceOrder::reorderIfNeeded(list), std::nullopt) << "again";
    }
    EXPECT_GT(reorders, 1000);
}

} // namespace
} // namespace tarn
