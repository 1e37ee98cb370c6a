#pragma once

#include "TarnSystem/AuthenticationAgent.h"

#include <memory>
#include <sys/types.h>

namespace tarn {

/// polkit's own agent for terminals, pkttyagent(1), which asks for this process only where no other agent
/// would.
///
/// Thread: that of open() must live at least as long as the agent, which ends with it.
class TerminalAgent final : public AuthenticationAgent {
public:
    /// Null for root, whom polkit asks nothing, when the standard input is no terminal, and when the agent
    /// does not get ready in time. One that fails is not told from one that is ready: who needs it is told
    /// that nobody can be asked.
    static std::unique_ptr<AuthenticationAgent> open();

    explicit TerminalAgent(pid_t process) : process_(process) {}
    ~TerminalAgent() override;

private:
    pid_t process_;
};

} // namespace tarn
