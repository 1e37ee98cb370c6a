#pragma once

#include "Platform/Linux/EventLoop.h"
#include "TarnSystem/Updates/HTTPClient.h"

#include <memory>
#include <string>

namespace tarn {

/// HTTPS by libcurl (libcurl-multi(3)) on the event loop. TLS 1.2 or later; servers are verified against the
/// system's certification authorities, whatever the environment says, and reached through its proxies.
///
/// Thread: the loop's. Ownership: the loop must outlive it and its sessions. Errors: std::runtime_error when
///   libcurl lacks what this needs.
class CurlClient final : public HTTPClient {
public:
    /// `authorities` is a file of certificates in PEM to trust in place of the system's; for tests.
    explicit CurlClient(EventLoop &loop, std::string authorities = {});

    std::unique_ptr<HTTPSession> ephemeral(double timeout) override;

private:
    EventLoop &loop_;
    std::string authorities_;
};

} // namespace tarn
