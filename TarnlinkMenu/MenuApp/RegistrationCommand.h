#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tarn {

class DaemonRegistration;
class LoginItem;

/// Carries out "--registration", "--register" and "--unregister", which installers and administrators use:
/// shows whether the system starts the daemon and the application, has the daemon started, and ends both.
/// Prints what is so then and returns the exit status; absent when the command line (without the program's
/// name) asks for none of them.
std::optional<int> runRegistrationCommand(const std::vector<std::string> &words);

/// The same on these services.
int runRegistrationCommand(const std::string &word, DaemonRegistration &daemon, LoginItem &item);

} // namespace tarn
