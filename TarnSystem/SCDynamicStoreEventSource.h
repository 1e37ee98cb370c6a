#pragma once

#include "TarnSystem/DynamicStoreWatch.h"
#include "TarnSystem/MainActor.h"
#include "TarnSystem/NetworkEventSource.h"

#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace tarn {

/// Changes of the dynamic store's keys for links, addresses, routers, leases, name servers and
/// configured services. Changes of devices that carry no traffic of their own are left out.
///
/// Ownership: holds the session that start() opens and the handler, until stop() or destruction.
/// Errors: none. A source that cannot subscribe stays idle.
class SCDynamicStoreEventSource final : public NetworkEventSource {
public:
    /// The client name under which the session is opened.
    static constexpr const char *clientName = "tarnlink.daemon";

    /// `actor` must outlive the source.
    SCDynamicStoreEventSource(DynamicStoreWatch::Open open, MainActor &actor);
    SCDynamicStoreEventSource(const SCDynamicStoreEventSource &) = delete;
    SCDynamicStoreEventSource &operator=(const SCDynamicStoreEventSource &) = delete;
    ~SCDynamicStoreEventSource() override;

    void start(double debounce, Handler handler) override;
    void stop() override;

private:
    static bool isIgnored(std::string_view key);
    void storeChanged(const std::vector<std::string> &keys);
    void handleChangedKeys(const std::vector<std::string> &keys);
    void deliverBatch();

    DynamicStoreWatch::Open open_;
    MainActor &actor_;
    std::unique_ptr<DynamicStoreWatch> store_;
    Handler handler_;
    double debounceInterval_ = 0;
    std::unordered_set<std::string> pendingKeys_;
    /// The timer of the open batch; 0 when none is open.
    MainActor::TimerID pendingWork_ = 0;
};

} // namespace tarn
