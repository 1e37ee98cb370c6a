#pragma once

#include "TarnCore/Value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace tarn {

/// What the daemon asks of the updater: one file in the daemon's state folder. Nothing in it is trusted but
/// the signature.
struct UpdateRequest {
    static constexpr const char *fileName = "update-request.json";
    /// A longer file is none.
    static constexpr std::size_t mostBytes = std::size_t{1} << 18;

    /// Differs from one request to the next.
    std::string id;
    /// Of a package that a client has downloaded.
    std::string pkgPath;
    /// Both or neither: without them the updater fetches the manifest itself.
    std::optional<std::string> manifest = {};
    /// In base64.
    std::optional<std::string> signature = {};

    Value encoded() const;
    /// Throws DecodingError.
    static UpdateRequest decode(const Value &value);

    friend bool operator==(const UpdateRequest &, const UpdateRequest &) = default;
};

/// How far the updater is, in a folder that only root can write.
struct UpdateOutcome {
    static constexpr const char *fileName = "update-outcome.json";
    static constexpr std::size_t mostBytes = std::size_t{1} << 16;

    /// Of the request.
    std::string id;
    /// So far nothing has failed.
    bool ok = false;
    /// "copying", "verifying", "installing", "installed", or why not, such as "refused.signature".
    std::string code;
    std::string message = {};
    /// Of the manifest, once it is known to be the vendor's.
    std::optional<std::int64_t> build = {};

    /// The updater is still at it.
    bool isUnderWay() const;

    Value encoded() const;
    /// Throws DecodingError.
    static UpdateOutcome decode(const Value &value);

    friend bool operator==(const UpdateOutcome &, const UpdateOutcome &) = default;
};

} // namespace tarn
