#pragma once

#include <optional>
#include <string>
#include <variant>

/// The daemon's nine methods. The answer to each is one piece of bytes: a record as TarnXPCCoding writes
/// it, or plain text.
namespace tarn::TarnXPCProtocol {

/// Answer: StatusReport.
struct Status {};
/// Answer: PauseResult.
struct Pause {
    double seconds = 0;
    /// External form of an authorization (AdminAuthorization), 32 bytes.
    std::optional<std::string> authorization;
};
/// Answer: PauseResult.
struct Resume {};
/// Answer: text for people (DiagnosticsText.h).
struct Diagnostics {};
/// Answer: SettingResult.
struct SetTetheringWhileWired {
    bool allow = false;
};
/// Answer: SettingResult.
struct SetTetheringDNSFix {
    bool enabled = false;
};
/// Answer: UpdateResult.
struct InstallUpdate {
    /// Of a package that was downloaded.
    std::string pkgPath;
};
/// Answer: UpdateResult.
struct InstallVerifiedUpdate {
    std::string pkgPath;
    /// The bytes exactly as fetched.
    std::string manifest;
    /// In base64, as fetched.
    std::string signature;
};
/// Answer: UpdateResult.
struct UpdateStatus {};

/// In the order of the methods.
using Call = std::variant<Status, Pause, Resume, Diagnostics, SetTetheringWhileWired, SetTetheringDNSFix,
                          InstallUpdate, InstallVerifiedUpdate, UpdateStatus>;

} // namespace tarn::TarnXPCProtocol
