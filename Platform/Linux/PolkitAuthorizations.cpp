#include "Platform/Linux/PolkitAuthorizations.h"

#include "Platform/Linux/BusConnection.h"
#include "Platform/Linux/ProcessStart.h"

#include <charconv>
#include <chrono>
#include <string_view>
#include <unistd.h>

namespace tarn {
namespace {

using Status = AuthorizationServices::Status;

// The interface org.freedesktop.PolicyKit1.Authority is described in polkit's reference manual.
constexpr const char *authorityPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char *authorityInterface = "org.freedesktop.PolicyKit1.Authority";
constexpr std::uint32_t allowUserInteraction = 1;
constexpr std::uint32_t administratorRetained = 4; // "auth_admin_keep"

// Twice, for the greeting and the call, and still less than clients wait for the daemon.
constexpr std::chrono::milliseconds limit{900};
constexpr std::chrono::minutes limitOfPerson{5};

/// For one call: whoever asks may do so on any thread.
class Authority {
public:
    BusMessage newCall(const char *method) {
        return bus_.update() == 0 ? bus_.newCall(polkit_, authorityPath, authorityInterface, method)
                                  : nullptr;
    }
    BusMessage send(const BusMessage &call, std::chrono::microseconds longest = limit) {
        return bus_.send(call, longest);
    }

private:
    BusService polkit_{.name = "org.freedesktop.PolicyKit1", .startsOnDemand = true};
    BusConnection bus_{{}, limit};
};

/// Reads a dictionary of strings and returns the value of one of its keys.
std::optional<std::string> readEntry(sd_bus_message *message, std::string_view wanted) {
    std::optional<std::string> found;
    const char *key = nullptr;
    const char *value = nullptr;
    sd_bus_message_enter_container(message, 'a', "{ss}");
    while (sd_bus_message_read(message, "{ss}", &key, &value) > 0)
        if (key == wanted)
            found = value;
    sd_bus_message_exit_container(message);
    return found;
}

class PolkitReference final : public AuthorizationReference {
public:
    explicit PolkitReference(const ProcessIdentity &process) : process_(process) {}

    Status copyRight(const std::string &name, std::uint32_t flags) override {
        const bool mayAsk = (flags & AuthorizationFlags::interactionAllowed) != 0;
        Authority authority;
        const auto call = authority.newCall("CheckAuthorization");
        // Whoever makes a handle of another process has compared it with the bus's word.
        if (!call ||
            sd_bus_message_append(call.get(), "(sa{sv})sa{ss}us", "unix-process", 3u, "pid", "u",
                                  static_cast<std::uint32_t>(process_.pid), "start-time", "t",
                                  process_.startTime, "uid", "i", static_cast<std::int32_t>(process_.uid),
                                  name.c_str(), 0u, mayAsk ? allowUserInteraction : 0u, "") < 0)
            return withoutPolkit();
        const auto reply = authority.send(call, mayAsk ? limitOfPerson : limit);
        int isAuthorized = 0;
        int isChallenge = 0;
        if (!reply || sd_bus_message_enter_container(reply.get(), 'r', "bba{ss}") <= 0 ||
            sd_bus_message_read(reply.get(), "bb", &isAuthorized, &isChallenge) <= 0)
            return withoutPolkit();
        if (isAuthorized)
            return AuthorizationStatus::success;
        if (readEntry(reply.get(), "polkit.dismissed"))
            return AuthorizationStatus::canceled;
        return isChallenge ? AuthorizationStatus::interactionNotAllowed : AuthorizationStatus::denied;
    }
    /// Rights come with the installation, as files.
    Status setRight(const std::string &, const Value &, const std::string &) override {
        return AuthorizationStatus::denied;
    }
    Status makeExternalForm(std::string &bytes) override {
        bytes = process_.externalForm();
        return AuthorizationStatus::success;
    }

private:
    Status withoutPolkit() const {
        return process_.uid == 0 ? AuthorizationStatus::success : AuthorizationStatus::denied;
    }

    ProcessIdentity process_;
};

} // namespace

std::optional<ProcessIdentity> currentProcess() {
    const auto start = processStart(getpid());
    return start ? std::optional(ProcessIdentity{getpid(), *start, geteuid()}) : std::nullopt;
}

Status PolkitAuthorizations::create(std::unique_ptr<AuthorizationReference> &reference) {
    const auto process = currentProcess();
    if (!process)
        return AuthorizationStatus::internal;
    reference = std::make_unique<PolkitReference>(*process);
    return AuthorizationStatus::success;
}

Status PolkitAuthorizations::createFromExternalForm(const std::string &bytes,
                                                    std::unique_ptr<AuthorizationReference> &reference) {
    const auto process = ProcessIdentity::fromExternalForm(bytes);
    if (!process)
        return AuthorizationStatus::invalidRef;
    reference = std::make_unique<PolkitReference>(*process);
    return AuthorizationStatus::success;
}

std::optional<Value> PolkitAuthorizations::rightDefinition(const std::string &name) {
    Authority authority;
    const auto call = authority.newCall("EnumerateActions");
    if (!call || sd_bus_message_append(call.get(), "s", "") < 0)
        return std::nullopt;
    const auto reply = authority.send(call);
    if (!reply || sd_bus_message_enter_container(reply.get(), 'a', "(ssssssuuua{ss})") <= 0)
        return std::nullopt;
    while (sd_bus_message_enter_container(reply.get(), 'r', "ssssssuuua{ss}") > 0) {
        const char *action = "";
        std::uint32_t active = 0;
        sd_bus_message_read(reply.get(), "s", &action);
        sd_bus_message_skip(reply.get(), "sssssuu");
        sd_bus_message_read(reply.get(), "u", &active);
        const auto version = readEntry(reply.get(), "com.veltrion.tarnlink.version");
        if (action == name) {
            Value definition = Value::Dictionary{{"class", "user"}, {"group", "admin"}};
            // What an administrator allowed holds for five minutes (polkit(8)).
            if (active == administratorRetained)
                definition.set("timeout", 300);
            std::int64_t number = 0;
            if (version &&
                std::from_chars(version->data(), version->data() + version->size(), number).ec == std::errc())
                definition.set("version", number);
            return definition;
        }
        sd_bus_message_exit_container(reply.get());
    }
    return std::nullopt;
}

} // namespace tarn
