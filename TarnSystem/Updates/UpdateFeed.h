#pragma once

#include "TarnSystem/MainActor.h"
#include "TarnSystem/SystemVersion.h"
#include "TarnSystem/Task.h"
#include "TarnSystem/Updates/HTTPClient.h"
#include "TarnSystem/Updates/UpdateManifest.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace tarn {

/// Why there is no manifest or package. The words are fixed.
class UpdateFeedError : public std::exception {
public:
    enum class Kind { badManifest, http, transport, badSignature, unsupportedURL };

    static UpdateFeedError badManifest(const std::string &text);
    static UpdateFeedError http(std::int64_t status);
    /// `cause` is what the system told, where it did.
    static UpdateFeedError transport(const std::string &text, std::optional<HTTPError> cause = {});
    static UpdateFeedError badSignature();
    static UpdateFeedError unsupportedURL();

    Kind kind() const { return kind_; }
    const std::string &description() const { return description_; }
    const std::optional<HTTPError> &cause() const { return cause_; }
    const char *what() const noexcept override { return description_.c_str(); }

private:
    UpdateFeedError(Kind kind, std::string description, std::optional<HTTPError> cause = {})
        : kind_(kind), description_(std::move(description)), cause_(std::move(cause)) {}

    Kind kind_;
    std::string description_;
    std::optional<HTTPError> cause_;
};

/// The vendor's signed update feed: a manifest and, at the same address with ".sig", its signature.
///
/// Thread: main actor. Ownership: what is handed over must outlive this and every task under way. These
///   tasks may, unlike others, be destroyed under way, with the coroutine that waits: that ends the fetch.
class UpdateFeed {
public:
    struct SignedManifest {
        UpdateManifest manifest;
        /// The bytes exactly as fetched.
        std::string data;
        /// In base64, as fetched, without blanks and line breaks around it.
        std::string signature;

        friend bool operator==(const SignedManifest &, const SignedManifest &) = default;
    };

    /// Ed25519, 32 bytes.
    static constexpr std::string_view publicKeyBase64 = "k9vR4BD6P2dKSvUsp4gwJKpYdXV9f48To1JuPmFO7cc=";
    /// A manifest or a signature with more bytes is an error, and what goes beyond is dropped. The fetch of
    /// anything ends when it brings as many again beyond its limit: until then the answer may still turn out
    /// to be an error page, whose status says more.
    static constexpr std::uint64_t mostManifestBytes = 64 * 1024;
    /// Of a package whose size is not announced.
    static constexpr std::uint64_t mostPackageBytes = std::uint64_t{2} << 30;

    static URL defaultManifestURL();
    static URL defaultNotesURL();
    /// From which a manifest's `notes` are accepted.
    static const std::set<std::string> &notesHosts();

    /// Nothing looks at the content before the signature is known to be good (RFC 8032, Ed25519). Key and
    /// signature are in strict base64; what is not, or has another length, is a bad signature. Any thread.
    /// Throws UpdateFeedError.
    static UpdateManifest verifyAndDecode(std::string_view data, std::string_view signatureBase64,
                                          std::string_view keyBase64);

    /// `key` is in base64; another than the built-in one is for tests: nothing outside the program can choose
    /// it.
    UpdateFeed(HTTPClient &http, MainActor &actor, std::string key = std::string(publicKeyBase64))
        : http_(http), actor_(actor), key_(std::move(key)) {}

    const std::string &publicKey() const { return key_; }

    /// Two requests in one session, each with a time limit of `timeout` seconds for the whole of it. Throws
    /// UpdateFeedError.
    Task<SignedManifest> fetchSigned(URL manifestURL, double timeout);
    Task<UpdateManifest> fetch(URL manifestURL, double timeout);

    /// Downloads a package into a new file, which nobody else can read; `progress` takes the bytes so far,
    /// and may throw UpdateFeedError, which ends the download with it. A package longer than `size`
    /// (`mostPackageBytes` without), or shorter, is an error, and so is one that brings less than 1 KiB a
    /// second over `timeout` seconds. Throws UpdateFeedError, and then, or when the waiting coroutine is
    /// destroyed, there is no file; one that was there before stays as it is.
    Task<void> download(URL url, std::optional<std::int64_t> size, std::string path, double timeout,
                        std::function<void(std::uint64_t)> progress);

    /// Of a file, read in pieces, in lowercase hexadecimal digits. Any thread; blocks. Throws
    /// std::system_error.
    static std::string sha256(const std::string &path);

    /// Whether it is newer than what is installed, and this system new enough for it.
    static bool isApplicable(const UpdateManifest &manifest, std::int64_t installedBuild,
                             const SystemVersion &running);
    /// The manifest's, when it is https and its host is one of these, letter by letter.
    static std::optional<URL> notesURL(const UpdateManifest &manifest,
                                       const std::set<std::string> &allowedHosts);

private:
    Task<std::string> get(std::shared_ptr<HTTPSession> session, URL url, double timeout);

    HTTPClient &http_;
    MainActor &actor_;
    std::string key_;
};

} // namespace tarn
