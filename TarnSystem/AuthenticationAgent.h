#pragma once

namespace tarn {

/// Asks the person for credentials on the system's behalf, for as long as it lives.
class AuthenticationAgent {
public:
    AuthenticationAgent() = default;
    AuthenticationAgent(const AuthenticationAgent &) = delete;
    AuthenticationAgent &operator=(const AuthenticationAgent &) = delete;
    virtual ~AuthenticationAgent() = default;
};

} // namespace tarn
