#include "TarnlinkDaemon/Switcher.h"

#include "TarnCore/Text.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string_view>

namespace tarn {
namespace {

/// Tries one step after the other and keeps what failed first.
class Steps {
public:
    void attempt(const std::function<void()> &step) {
        auto failure = failureOf(step);
        if (!first_)
            first_ = std::move(failure);
    }
    std::optional<std::string> take() { return std::move(first_); }

private:
    static std::optional<std::string> failureOf(const std::function<void()> &step) {
        try {
            step();
            return std::nullopt;
        } catch (const ServiceControlError &error) {
            const auto message = error.message();
            return error.description() + (message.empty() ? "" : ": " + message);
        } catch (const WiFiControlError &error) {
            return error.description();
        } catch (const DNSCacheFlushError &error) {
            return error.description();
        } catch (const std::exception &error) {
            return error.what();
        }
    }

    std::optional<std::string> first_;
};

/// What is gone needs no bringing back.
void unlessGone(const std::function<void()> &step) {
    try {
        step();
    } catch (const ServiceControlError &error) {
        if (error.kind() != NetworkPreferencesEditor::Result::Kind::notFound)
            throw;
    }
}

void flush(DNSCacheFlushing &cache) {
    try {
        cache.flush();
    } catch (const DNSCacheFlushError &error) {
        if (error.kind() != DNSCacheFlushError::Kind::notFound)
            throw;
    }
}

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const auto &word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string names(const std::vector<ServiceName> &services) {
    std::vector<std::string> list;
    for (const auto &[serviceID, name] : services)
        list.push_back(name.empty() ? serviceID : name);
    return joined(list);
}

std::string phrase(const Command &command) {
    using Kind = Command::Kind;
    switch (command.kind) {
    case Kind::wifiOff:
        return "Wi-Fi off (" + std::string(rawValue(command.mode)) + ")";
    case Kind::wifiOn:
        return "Wi-Fi on";
    case Kind::enableService:
        return "enable " + names(command.services);
    case Kind::disableService:
        return "disable " + names(command.services);
    case Kind::reorderServices:
        return "order " + joined(command.order);
    case Kind::setServers:
        return "servers of " + command.key + ": " + joined(command.order);
    case Kind::flushCache:
        break;
    }
    return "flush the DNS cache";
}

} // namespace

std::string describe(const Command &command) {
    // Names come from outside.
    return text::printable(phrase(command));
}

std::optional<std::string> Switcher::carryOut(const Command &command) {
    using Kind = Command::Kind;
    Steps steps;
    const auto setPower = [&](bool on) { steps.attempt([&] { wifi_.setPower(on); }); };
    const auto enableAll = [&] {
        for (const auto &service : command.services)
            steps.attempt([&] { unlessGone([&] { services_.setEnabled(service.serviceID, true); }); });
    };
    const auto disableAll = [&] {
        for (const auto &service : command.services)
            steps.attempt([&] { services_.setEnabled(service.serviceID, false); });
    };
    const auto changeAll = [&] {
        for (const auto &protocol : command.protocols)
            steps.attempt([&] { change(protocol); });
    };

    switch (command.kind) {
    case Kind::wifiOff:
        if (command.mode == WiFiOffMode::radio)
            setPower(false);
        else if (command.mode == WiFiOffMode::service)
            disableAll();
        else
            changeAll();
        break;
    case Kind::wifiOn:
        if (command.power)
            setPower(true);
        enableAll();
        changeAll();
        break;
    case Kind::enableService:
        enableAll();
        break;
    case Kind::disableService:
        disableAll();
        break;
    case Kind::reorderServices:
        steps.attempt([&] { services_.reorder(command.order); });
        break;
    case Kind::setServers:
        steps.attempt([&] { setServers(command.key, command.order); });
        break;
    case Kind::flushCache:
        steps.attempt([&] { flush(cache_); });
        break;
    }
    return steps.take();
}

void Switcher::change(const Command::ProtocolChange &change) {
    // Also where it is so already: an earlier change may have been committed without taking effect.
    const auto set = [&] { services_.setConfiguration(change.serviceID, change.protocol, change.wanted); };
    if (!change.expected)
        return unlessGone(set);
    const auto present = services_.configuration(change.serviceID, change.protocol);
    if (present != *change.expected && present != change.wanted)
        throw ServiceControlError(ServiceControlError::Kind::stale, {});
    set();
}

void Switcher::setServers(const std::string &key, const std::vector<std::string> &servers) {
    const auto store = openStore_(VPNSplitDNS::clientName);
    if (!store)
        throw std::runtime_error("the dynamic store is not available");
    auto resolver = store->copyValue(key);
    const auto present = resolver ? resolver->stringList(VPNSplitDNS::serversKey) : std::nullopt;
    // Gone, or given other servers by now: that order is nobody's any more.
    if (!present || !std::ranges::is_permutation(*present, servers))
        return;
    resolver->set(VPNSplitDNS::serversKey, Value::strings(servers));
    if (const auto failure = store->setValue(key, *resolver))
        throw std::runtime_error(*failure);
}

} // namespace tarn
