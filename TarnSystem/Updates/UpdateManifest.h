#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// What the vendor offers.
struct UpdateManifest {
    /// For people, such as "2.0.3".
    std::string version;
    /// What versions are compared by.
    std::int64_t build = 0;
    /// Oldest system that it runs on, such as "13.0"; on Linux the kernel's release.
    std::string minOS;
    /// Address of the installer package, https.
    std::string url;
    /// Of the package, 64 hexadecimal digits of either case.
    std::string sha256;
    /// Of the package, in bytes.
    std::optional<std::int64_t> size = {};
    /// Date of publication, as text.
    std::string published = {};
    /// Address of the release notes.
    std::optional<std::string> notes = {};

    std::string fullVersion() const { return version + "." + std::to_string(build); }

    /// Reads a JSON object; null counts as absent, unknown keys are passed over. Throws DecodingError.
    static UpdateManifest decode(std::string_view json);

    friend bool operator==(const UpdateManifest &, const UpdateManifest &) = default;
};

} // namespace tarn
