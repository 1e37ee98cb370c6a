#pragma once

#include "TarnSystem/URL.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tarn {

/// Why a fetch has no response.
struct HTTPError {
    /// "NSURLErrorDomain" for what the URL loading system tells; adapters over other libraries use its
    /// domain and codes where one says the same.
    std::string domain;
    std::int64_t code = 0;
    /// The system's words for people.
    std::string localizedDescription;
    /// What the server showed when its certificate was the reason, in DER, the server's own first.
    std::vector<std::string> peerCertificates = {};
};

/// Fetches over HTTPS. Sends no cookies, keeps none, uses no cache and no credentials.
///
/// Thread: main thread, handlers included; none is called inside get().
/// Ownership: destroying it ends every fetch under way; no handler is called after that. A handler may
///   destroy it.
class HTTPSession {
public:
    /// The status code, 0 for a response that is no HTTP.
    using Result = std::variant<std::int64_t, HTTPError>;

    virtual ~HTTPSession() = default;
    /// Gets one address. `received` takes the body piece by piece, whatever the status; when it returns
    /// false the fetch ends there and `ended` is not called. Redirects are followed, a few and to https
    /// only: another one is itself the response, of which the body may be missing.
    virtual void get(const URL &url, std::function<bool(std::string_view piece)> received,
                     std::function<void(Result)> ended) = 0;
};

class HTTPClient {
public:
    virtual ~HTTPClient() = default;
    /// A session of its own. A fetch fails when nothing comes for `timeout` seconds.
    virtual std::unique_ptr<HTTPSession> ephemeral(double timeout) = 0;
};

} // namespace tarn
