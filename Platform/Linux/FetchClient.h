#pragma once

#include "Platform/Linux/EventLoop.h"
#include "TarnSystem/Updates/HTTPClient.h"

#include <memory>
#include <string>

namespace tarn {

/// HTTPS by TarnlinkFetch, a process for each session: what libcurl needs is there only while something is
/// fetched, and what a server sends is taken apart by a process that has nothing else. The program is found
/// from where this one is, beside it or in "../libexec/tarnlink", whatever the environment says.
///
/// Thread: the loop's. Ownership: the loop must outlive it and its sessions; a session's process ends with
///   it. Errors: none; without the process each fetch ends in an HTTPError that says why.
class FetchClient final : public HTTPClient {
public:
    /// No process is started before `begin`. `authorities` is a file of certificates in PEM to trust in place
    /// of the system's; for tests.
    explicit FetchClient(EventLoop &loop, std::string authorities = {}, MainActor::TimePoint begin = {});

    /// The path of TarnlinkFetch.
    static std::string program();

    std::unique_ptr<HTTPSession> ephemeral(double timeout) override;

private:
    EventLoop &loop_;
    std::string authorities_;
    MainActor::TimePoint begin_;
};

} // namespace tarn
