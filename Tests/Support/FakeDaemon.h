#pragma once

#include "TarnXPC/RemoteConnection.h"

#include <algorithm>
#include <list>
#include <utility>

namespace tarn {

/// The daemon's end of the link: what was called waits until the test answers it.
struct FakeDaemon final : RemoteConnector, RemoteConnection {
    struct Pending {
        std::string name;
        Reply reply;
        ErrorHandler failed;
    };
    std::list<Pending> pending;
    /// Each with ";", such as "status", "pause 900 FORM", "tethering 1".
    std::string calls;

    /// Ends the oldest call of that name, if there is one; no bytes: it fails.
    void answer(const std::string &name, const std::string &bytes) {
        const auto found = std::ranges::find(pending, name, &Pending::name);
        if (found == pending.end())
            return;
        // What ends may call again.
        const auto one = std::move(*found);
        pending.erase(found);
        bytes.empty() ? one.failed({"org.freedesktop.DBus.Error.NoReply", 0, "words"}) : one.reply(bytes);
    }
    std::shared_ptr<RemoteConnection> connect(const std::string &, const std::string &) override {
        return {std::shared_ptr<void>(), this};
    }
    void setInvalidationHandler(Handler) override {}
    void setInterruptionHandler(Handler) override {}
    void resume() override {}
    void invalidate() override {}
    bool invoke(const TarnXPCProtocol::Call &call, Reply reply, ErrorHandler failed) override {
        constexpr const char *names[] = {"status", "pause", "resume", "diagnostics", "tethering", "dns"};
        const auto details = []<class Kind>(const Kind &one) -> std::string {
            if constexpr (requires { one.seconds; })
                return " " + std::to_string(int(one.seconds)) + " " + one.authorization.value_or("none");
            else if constexpr (requires { one.allow; })
                return one.allow ? " 1" : " 0";
            else if constexpr (requires { one.enabled; })
                return one.enabled ? " 1" : " 0";
            return "";
        };
        const std::string name = names[call.index()];
        calls += name + std::visit(details, call) + ";";
        pending.push_back({name, std::move(reply), std::move(failed)});
        return true;
    }
};

} // namespace tarn
