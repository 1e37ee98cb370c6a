#pragma once

/// Who is at the two ends of the link.
namespace tarn::TarnXPC {

/// The Mach service that the daemon publishes; its name on the system bus where there is one.
inline constexpr const char *machServiceName = "com.veltrion.tarnlink.daemon";
/// Code-signing identifiers.
inline constexpr const char *daemonIdentifier = "com.veltrion.tarnlink.daemon";
inline constexpr const char *clientIdentifier = "com.veltrion.tarnlink.menu";
/// What the daemon requires of a client's signature, and a client of the daemon's, in the code-signing
/// requirement language.
inline constexpr const char *clientRequirement = "identifier \"com.veltrion.tarnlink.menu\"";
inline constexpr const char *daemonRequirement = "identifier \"com.veltrion.tarnlink.daemon\"";

} // namespace tarn::TarnXPC
