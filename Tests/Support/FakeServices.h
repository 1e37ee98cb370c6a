#pragma once

#include "TarnSystem/DynamicStore.h"
#include "TarnSystem/Json.h"
#include "TarnSystem/ServiceController.h"
#include "TarnSystem/WiFiController.h"

#include <map>

namespace tarn {

/// The radio and the services of a machine: how they are, and what was asked of them.
struct FakeServices final : WiFiControlling, ServiceControlling {
    using Kind = ServiceControlError::Kind;

    std::optional<bool> power = true;
    std::map<std::string, bool> enabled;
    std::vector<std::string> order;
    std::map<std::string, ProtocolConfiguration> protocols; ///< By names such as "a.ipv4".
    /// What was asked, each with ";": "power off", "+a", "-a", "order", "ask a.ipv4", "set a.ipv4".
    std::string calls;
    /// Those that fail, and how; of the radio in one way only.
    std::map<std::string, Kind> failing;

    void setPower(bool on) override {
        const std::string call = on ? "power on" : "power off";
        calls += call + ";";
        if (failing.contains(call))
            throw WiFiControlError::networkManager("no radio");
        power = on;
    }
    std::optional<bool> powerOn() override { return power; }
    void setEnabled(const std::string &id, bool on) override {
        attempt((on ? "+" : "-") + id, enabled.contains(id));
        enabled[id] = on;
    }
    void reorder(const std::vector<std::string> &ids) override {
        attempt("order", true);
        order = ids;
    }
    ProtocolConfiguration configuration(const std::string &id, IPProtocol protocol) override {
        return at("ask ", id, protocol);
    }
    void setConfiguration(const std::string &id, IPProtocol protocol,
                          const ProtocolConfiguration &configuration) override {
        at("set ", id, protocol) = configuration;
    }

private:
    ProtocolConfiguration &at(const std::string &verb, const std::string &id, IPProtocol protocol) {
        const auto name = id + (protocol == IPProtocol::ipv4 ? ".ipv4" : ".ipv6");
        attempt(verb + name, protocols.contains(name));
        return protocols[name];
    }
    void attempt(const std::string &call, bool isThere) {
        calls += call + ";";
        if (failing.contains(call) || !isThere)
            throw ServiceControlError(isThere ? failing[call] : Kind::notFound, "words");
    }
};

inline ProtocolConfiguration configured(const std::string &entries) {
    return {std::get<Value>(json::parse(entries)), true};
}

} // namespace tarn
