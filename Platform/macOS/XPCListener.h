#pragma once

#include "TarnSystem/Log.h"
#include "TarnSystem/MainActor.h"
#include "TarnXPC/RemoteListener.h"

#include <memory>

namespace tarn {

/// The Mach service of this program, which launchd's property list must name. launchd holds it while the
/// program does not run, and nothing tells when it is not ours; so there is no second try.
///
/// Who fulfils the requirement is let in. Calls come on the connections' queues and go to the main actor; a
/// refusal ends the connection, because the protocol's answers carry no errors.
///
/// Thread: main thread. Ownership: actor and log must outlive this.
class XPCListener final : public RemoteListener {
public:
    XPCListener(MainActor &actor, Log &log);
    ~XPCListener() override;

    void start(const std::string &serviceName, const std::string &requirement,
               RemoteService &service) override;

private:
    struct State;

    MainActor &actor_;
    Log &log_;
    std::unique_ptr<State> state_;
};

} // namespace tarn
