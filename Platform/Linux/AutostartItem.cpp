#include "Platform/Linux/AutostartItem.h"

#include "TarnSystem/AutostartEntry.h"
#include "TarnSystem/Files.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace tarn {
namespace {

constexpr std::size_t mostBytes = std::size_t{1} << 16;

/// Of the first that is there.
files::ReadResult readFirst(const std::vector<std::string> &paths) {
    files::ReadResult result{std::nullopt, {true, std::generic_category().message(ENOENT)}};
    for (const auto &path : paths)
        if (!path.empty() && result.failure.isMissing)
            if (result = files::read(path, mostBytes); result.contents)
                break;
    return result;
}

} // namespace

std::optional<RegistrationState> AutostartItem::state() {
    auto found = files::read(own_, mostBytes);
    if (found.failure.isMissing || own_.empty())
        found = readFirst(others_);
    if (found.contents)
        return autostart::isEnabled(*found.contents) ? RegistrationState::enabled
                                                     : RegistrationState::notRegistered;
    return found.failure.isMissing ? std::optional(RegistrationState::notFound) : std::nullopt;
}

std::optional<std::string> AutostartItem::set(bool opensAtLogin) {
    if (own_.empty())
        return std::generic_category().message(ENOENT);
    const auto others = readFirst(others_);
    auto found = files::read(own_, mostBytes);
    if (found.failure.isMissing)
        found = others;
    if (!found.contents)
        return found.failure.message;
    if (autostart::isEnabled(*found.contents) == opensAtLogin)
        return std::nullopt;
    auto wanted = autostart::switched(*found.contents, opensAtLogin);
    if (opensAtLogin && !autostart::isEnabled(wanted)) {
        // An own file without a command only hides the system's.
        if (!others.contents)
            return others.failure.message;
        wanted = autostart::switched(*others.contents, true);
        if (!autostart::isEnabled(wanted))
            return std::generic_category().message(ENOEXEC);
    }
    if (wanted == others.contents) {
        // A copy would hide what a later version of the package brings.
        std::error_code error;
        std::filesystem::remove(own_, error);
        return error ? std::optional(error.message()) : std::nullopt;
    }
    const auto failure = files::replace(own_, wanted);
    return failure ? std::optional(failure->message) : std::nullopt;
}

} // namespace tarn
