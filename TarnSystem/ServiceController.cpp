#include "TarnSystem/ServiceController.h"

#include "TarnSystem/ServiceErrors.h"

#include <algorithm>
#include <utility>

namespace tarn {
namespace {

using Result = NetworkPreferencesEditor::Result;
using Kind = Result::Kind;

void require(const Result &result) {
    if (result.kind != Kind::done)
        throw ServiceControlError(result.kind, result.message);
}

std::vector<std::string> completedOrder(const std::vector<std::string> &wanted,
                                        const std::vector<std::string> &present) {
    std::vector<std::string> order;
    const auto add = [&](const std::string &service) {
        if (std::ranges::find(order, service) == order.end())
            order.push_back(service);
    };
    for (const auto &service : wanted)
        if (std::ranges::find(present, service) != present.end())
            add(service);
    std::ranges::for_each(present, add);
    return order;
}

} // namespace

std::string ServiceControlError::description() const {
    switch (kind_) {
    case Kind::busy:
        return "The network preferences are in use by another program.";
    case Kind::stale:
        return "The network preferences were changed by another program.";
    case Kind::notFound:
        return "There is no such network service or protocol.";
    case Kind::denied:
        return "This program may not change the network preferences.";
    case Kind::unavailable:
        return "The network preferences are not available.";
    case Kind::done:
    case Kind::failed:
        break;
    }
    return "The network preferences could not be changed.";
}

void ServiceController::setEnabled(const std::string &serviceID, bool enabled) {
    const auto service = session().copyService(serviceID);
    if (!service)
        require(noSuchService(serviceID));
    if (service->enabled == enabled)
        return carryOut({});
    carryOut([&](auto &editor) { return editor.setServiceEnabled(serviceID, enabled); });
}

void ServiceController::reorder(const std::vector<std::string> &serviceIDs) {
    const auto present = session().currentServiceOrder();
    if (!present)
        require({Kind::notFound, {}});
    const auto order = completedOrder(serviceIDs, *present);
    if (order == *present)
        return carryOut({});
    carryOut([&](auto &editor) { return editor.setServiceOrder(order); });
}

ProtocolConfiguration ServiceController::configuration(const std::string &serviceID, IPProtocol protocol) {
    auto configuration = session().copyProtocol(serviceID, protocol);
    if (!configuration)
        require(noSuchService(serviceID));
    return *std::move(configuration);
}

void ServiceController::setConfiguration(const std::string &serviceID, IPProtocol protocol,
                                         const ProtocolConfiguration &configuration) {
    if (session().copyProtocol(serviceID, protocol) == configuration)
        return carryOut({});
    carryOut([&](auto &editor) { return editor.setProtocol(serviceID, protocol, configuration); });
}

NetworkPreferencesEditor &ServiceController::session() {
    if (!session_)
        session_ = open_();
    if (!session_)
        require({Kind::unavailable, {}});
    session_->synchronize();
    return *session_;
}

void ServiceController::carryOut(const Change &change) {
    // A change that was committed but not applied is found as wanted the next time.
    if (!change && !isApplyDue_)
        return;
    require(session_->lock());
    const auto steps = [&]() -> Result {
        if (change) {
            if (auto result = change(*session_); result.kind != Kind::done)
                return result;
            if (auto result = session_->commitChanges(); result.kind != Kind::done)
                return result;
        }
        isApplyDue_ = true;
        auto result = session_->applyChanges();
        isApplyDue_ = result.kind != Kind::done;
        return result;
    };
    struct Unlock {
        NetworkPreferencesEditor &editor;
        ~Unlock() { editor.unlock(); }
    };
    const auto result = [&] {
        const Unlock unlock{*session_};
        return steps();
    }();
    require(result);
}

} // namespace tarn
