#include "TarnSystem/SCDynamicStoreEventSource.h"

#include "TarnCore/Text.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tarn {
namespace {

const std::vector<std::string> &watchedPatterns() {
    static const std::vector<std::string> patterns = {
        "State:/Network/Interface/[^/]+/(Link|IPv4|IPv6)",
        "State:/Network/Service/[^/]+/(IPv4|IPv6|DHCP|DNS)",
        "State:/Network/Global/(IPv4|IPv6)",
        "Setup:/Network/Service/[^/]+",
    };
    return patterns;
}

constexpr std::array<std::string_view, 6> ignoredPrefixes = {"awdl", "llw", "utun", "anpi", "anri", "ap"};

} // namespace

SCDynamicStoreEventSource::SCDynamicStoreEventSource(DynamicStoreWatch::Open open, MainActor &actor)
    : open_(std::move(open)), actor_(actor) {}

SCDynamicStoreEventSource::~SCDynamicStoreEventSource() {
    stop();
}

void SCDynamicStoreEventSource::start(double debounce, Handler handler) {
    stop();
    handler_ = std::move(handler);
    debounceInterval_ = debounce;
    store_ = open_(clientName, [this](const std::vector<std::string> &keys) { storeChanged(keys); });
    if (!store_)
        return;
    store_->setNotificationKeys(watchedPatterns());
    store_->schedule();
}

void SCDynamicStoreEventSource::stop() {
    actor_.cancel(std::exchange(pendingWork_, 0));
    pendingKeys_.clear();
    store_.reset();
    handler_ = nullptr;
}

bool SCDynamicStoreEventSource::isIgnored(std::string_view key) {
    while (const auto component = text::nextPiece(key, '/')) {
        if (*component != "Interface")
            continue;
        const auto name = text::nextPiece(key, '/');
        // Unlike in a reading, a device such as "lo01" counts here.
        return name && (*name == "lo0" || std::ranges::any_of(ignoredPrefixes, [&](auto prefix) {
                   return name->starts_with(prefix);
               }));
    }
    return false;
}

void SCDynamicStoreEventSource::storeChanged(const std::vector<std::string> &keys) {
    // Everything is void, as after a restart of the store: this key passes every filter.
    handleChangedKeys(keys.empty() ? std::vector<std::string>{"State:/Network/Global/IPv4"} : keys);
}

void SCDynamicStoreEventSource::handleChangedKeys(const std::vector<std::string> &keys) {
    bool isRelevant = false;
    for (const auto &key : keys)
        if (!isIgnored(key)) {
            pendingKeys_.insert(key);
            isRelevant = true;
        }
    // The first change fixes the moment of delivery: a steady stream must not put it off for ever.
    if (isRelevant && pendingWork_ == 0)
        pendingWork_ = actor_.postAfter(fromSeconds(debounceInterval_), [this] { deliverBatch(); });
}

void SCDynamicStoreEventSource::deliverBatch() {
    pendingWork_ = 0;
    const auto gathered = std::exchange(pendingKeys_, {});
    // The handler may stop, restart or destroy this source.
    const Handler handler = handler_;
    if (handler)
        handler({gathered.begin(), gathered.end()});
}

} // namespace tarn
