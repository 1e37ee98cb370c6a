// Policy::decide at growing numbers of interfaces: nanoseconds per interface.

#include "Benchmarks/Measure.h"
#include "TarnCore/Policy.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <random>

namespace {

using namespace tarn;

constexpr std::array sizes = {4, 64, 1024, 16384};
constexpr int rounds = 31;

struct Input {
    std::vector<InterfaceSnapshot> interfaces;
    ProbeStates probes;
};

InterfaceSnapshot cable(int number) {
    const std::string low = std::to_string(number % 250 + 1);
    const std::string high = std::to_string(number / 250);
    std::array<char, 64> identifier{};
    std::snprintf(identifier.data(), identifier.size(), "%08X-0000-4000-8000-00000000BEEF",
                  static_cast<unsigned>(number));
    InterfaceSnapshot snapshot;
    snapshot.device = "en" + std::to_string(number);
    snapshot.kind = InterfaceKind::wired;
    snapshot.serviceID = identifier.data();
    snapshot.serviceName = "Ethernet Adapter " + std::to_string(number);
    snapshot.serviceOrderIndex = number;
    snapshot.linkActive = true;
    snapshot.ipv4 = {"10." + high + "." + low + ".2"};
    snapshot.ipv6 = {{"fe80::" + low}, {"2001:db8:" + high + ":" + low + "::2"}};
    snapshot.ipv4Router = "10." + high + "." + low + ".1";
    snapshot.dnsServers = {"10." + high + "." + low + ".1"};
    return snapshot;
}

Input cables(const std::vector<int> &numbers, const ProbeState &state) {
    Input input;
    for (const int number : numbers) {
        input.interfaces.push_back(cable(number));
        input.probes.emplace(input.interfaces.back().device, state);
    }
    return input;
}

std::vector<int> upTo(int count) {
    std::vector<int> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

Input verified(int count) {
    return cables(upTo(count), ProbeState::ok());
}

/// Every candidate is looked at, and none wins.
Input failing(int count) {
    return cables(upTo(count), ProbeState::failing(5));
}

/// The same, in an order that has nothing to do with the services'.
Input unordered(int count) {
    auto numbers = upTo(count);
    std::mt19937 generator(1);
    std::ranges::shuffle(numbers, generator);
    return cables(numbers, ProbeState::failing(5));
}

/// Wi-Fi stands first and every other cable is a phone: the longest list of actions.
Input reordered(int count) {
    Input input = verified(count);
    input.interfaces.front().kind = InterfaceKind::wifi;
    for (std::size_t i = 2; i < input.interfaces.size(); i += 2)
        input.interfaces[i].isTethering = true;
    return input;
}

constexpr std::array<std::pair<const char *, Input (*)(int)>, 4> shapes = {
    {{"verified", verified}, {"failing", failing}, {"unordered", unordered}, {"reordered", reordered}}};

constexpr TarnControl control{.enabled = true,
                              .paused = false,
                              .wifiPowerOn = true,
                              .wifiManuallyOff = false,
                              .probeFailuresBeforeFallback = 3,
                              .disableTetheringWhileWired = true};

} // namespace

int main() {
    for (const auto &[name, make] : shapes) {
        std::vector<Input> inputs;
        std::vector<bench::Batch> batches;
        for (const int size : sizes)
            inputs.push_back(make(size));
        // Each sample covers equally many interfaces, so that the clock weighs alike.
        for (const auto &input : inputs)
            batches.push_back(bench::timed([&input] {
                for (auto left = sizes.back(); left > 0; left -= static_cast<int>(input.interfaces.size())) {
                    const auto decision = Policy::decide(input.interfaces, input.probes, control);
                    asm volatile("" : : "r"(&decision) : "memory");
                }
            }));
        const auto medians = bench::medians(batches, rounds, 1);
        for (std::size_t i = 0; i < sizes.size(); ++i)
            bench::report(std::string(name) + "-" + std::to_string(sizes[i]),
                          medians[i] * 1000 / sizes.back());
    }
}
