#pragma once

#include "TarnSystem/Updates/HTTPClient.h"

namespace tarn {

/// Sessions of the URL loading system, with the system's proxies and its trust in certificates. Handlers run
/// in the main queue, which the main run loop drains.
class MacHTTPClient final : public HTTPClient {
public:
    std::unique_ptr<HTTPSession> ephemeral(double timeout) override;
};

} // namespace tarn
