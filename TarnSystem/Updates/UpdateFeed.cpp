#include "TarnSystem/Updates/UpdateFeed.h"

#include "TarnCore/Base64.h"
#include "TarnCore/Text.h"
#include "TarnSystem/DaemonConfig.h"
#include "TarnSystem/Descriptor.h"
#include "TarnSystem/Updates/SHA256.h"
#include "TarnSystem/VendorHosts.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <unistd.h>
#include <utility>

namespace tarn {
namespace {

constexpr std::size_t keySize = 32;
constexpr std::size_t digestCharacters = 64;
constexpr double slowestBytesPerSecond = 1024;

/// Ed25519 (RFC 8032) over the bytes as they are.
bool isSignedBy(const std::string &key, const std::string &signature, std::string_view data) {
    const auto bytes = [](std::string_view text) {
        return reinterpret_cast<const unsigned char *>(text.data());
    };
    // Whoever else uses the library on this thread finds no error of ours.
    ERR_set_mark();
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> publicKey(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, bytes(key), key.size()), EVP_PKEY_free);
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    const bool isGood =
        publicKey && context &&
        EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, publicKey.get()) == 1 &&
        EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(data), data.size()) == 1;
    ERR_pop_to_mark();
    return isGood;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\n\v\f\r";
    const auto first = std::min(text.find_first_not_of(blanks), text.size());
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

bool isHexadecimal(std::string_view text) {
    return text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

UpdateFeedError systemError(const std::string &what) {
    return UpdateFeedError::transport(what + ": " + std::generic_category().message(errno));
}

/// One fetch. Only the coroutine that waits for it owns it: when that is dropped, the fetch ends.
class Transfer : public std::enable_shared_from_this<Transfer> {
public:
    using Ending = std::optional<UpdateFeedError>;
    struct Rules {
        /// Of the body.
        std::uint64_t mostBytes;
        /// In seconds: the length of a period.
        double timeout;
        /// What each period must bring.
        double leastBytes;
    };
    /// Takes the pieces within the limit; may throw UpdateFeedError.
    using Sink = std::function<void(std::string_view piece)>;

    Transfer(std::shared_ptr<HTTPSession> session, MainActor &actor, Rules rules, Sink sink)
        : actor_(actor), rules_(rules), sink_(std::move(sink)), session_(std::move(session)) {}
    Transfer(const Transfer &) = delete;
    Transfer &operator=(const Transfer &) = delete;
    ~Transfer() { actor_.cancel(timer_); }

    void start(const URL &url, std::function<void(Ending)> completion) {
        completion_ = std::move(completion);
        startPeriod();
        try {
            session_->get(
                url,
                [self = weak_from_this()](std::string_view piece) {
                    const auto strong = self.lock();
                    return strong && strong->received(piece);
                },
                [self = weak_from_this()](const HTTPSession::Result &result) {
                    if (const auto strong = self.lock())
                        strong->ended(result);
                });
        } catch (const std::exception &error) {
            finish(UpdateFeedError::transport(error.what()));
        }
    }

private:
    void startPeriod() {
        const auto before = received_;
        timer_ = actor_.postAfter(fromSeconds(rules_.timeout), [self = weak_from_this(), before] {
            const auto strong = self.lock();
            if (!strong)
                return;
            if (static_cast<double>(strong->received_ - before) < strong->rules_.leastBytes)
                strong->finish(UpdateFeedError::transport("The request timed out."));
            else
                strong->startPeriod();
        });
    }

    bool received(std::string_view piece) {
        if (hasEnded_)
            return false;
        received_ += piece.size();
        if (received_ > rules_.mostBytes + UpdateFeed::mostManifestBytes) {
            finish(tooLong());
        } else if (received_ <= rules_.mostBytes) {
            try {
                sink_(piece);
            } catch (const UpdateFeedError &error) {
                finish(error);
            } catch (const std::exception &error) {
                finish(UpdateFeedError::transport(error.what()));
            }
        }
        return !hasEnded_;
    }

    void ended(const HTTPSession::Result &result) {
        if (const auto *error = std::get_if<HTTPError>(&result))
            finish(UpdateFeedError::transport(error->localizedDescription, *error));
        else if (const auto status = std::get<std::int64_t>(result); status != 200)
            finish(UpdateFeedError::http(status));
        else if (received_ > rules_.mostBytes)
            finish(tooLong());
        else
            finish({});
    }

    UpdateFeedError tooLong() const {
        return UpdateFeedError::transport("longer than " + std::to_string(rules_.mostBytes) + " bytes");
    }

    void finish(Ending ending) {
        if (std::exchange(hasEnded_, true))
            return;
        actor_.cancel(timer_);
        // Who waits goes on outside the session's handlers, and when nothing else holds this.
        actor_.post([self = weak_from_this(), ending = std::move(ending)] {
            auto strong = self.lock();
            const auto completion = strong ? std::exchange(strong->completion_, nullptr) : nullptr;
            strong.reset();
            if (completion)
                completion(ending);
        });
    }

    MainActor &actor_;
    const Rules rules_;
    const Sink sink_;
    std::function<void(Ending)> completion_;
    MainActor::TimerID timer_ = 0;
    std::uint64_t received_ = 0;
    bool hasEnded_ = false;
    // Last: what it holds goes first.
    std::shared_ptr<HTTPSession> session_;
};

/// A package in the making; removed unless it is kept.
class NewFile {
public:
    explicit NewFile(std::string path)
        : path_(std::move(path)),
          file_(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
        if (!file_)
            throw systemError(path_);
    }
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;
    ~NewFile() {
        if (!isKept_)
            unlink(path_.c_str());
    }

    void append(std::string_view piece) {
        size_ += piece.size();
        while (!piece.empty()) {
            const auto written = write(file_.get(), piece.data(), piece.size());
            if (written < 0 && errno != EINTR)
                throw systemError(path_);
            piece.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
        }
    }
    std::uint64_t size() const { return size_; }
    void keep() { isKept_ = true; }

private:
    const std::string path_;
    const Descriptor file_;
    std::uint64_t size_ = 0;
    bool isKept_ = false;
};

std::shared_ptr<HTTPSession> openSession(HTTPClient &http, double timeout) {
    try {
        return http.ephemeral(timeout);
    } catch (const std::exception &error) {
        throw UpdateFeedError::transport(error.what());
    }
}

/// Only coroutines hold the session.
Task<void> transfer(std::shared_ptr<HTTPSession> session, MainActor &actor, URL url, Transfer::Rules rules,
                    Transfer::Sink sink) {
    if (url.scheme() != "https")
        throw UpdateFeedError::unsupportedURL();
    const auto running = std::make_shared<Transfer>(std::move(session), actor, rules, std::move(sink));
    Callback<Transfer::Ending> ended(actor, [&](auto resume) { running->start(url, std::move(resume)); });
    if (const auto error = co_await ended)
        throw *error;
}

} // namespace

UpdateFeedError UpdateFeedError::badManifest(const std::string &text) {
    return {Kind::badManifest, "manifest unreadable: " + text};
}

UpdateFeedError UpdateFeedError::http(std::int64_t status) {
    return {Kind::http, "HTTP " + std::to_string(status)};
}

UpdateFeedError UpdateFeedError::transport(const std::string &text, std::optional<HTTPError> cause) {
    return {Kind::transport, text, std::move(cause)};
}

UpdateFeedError UpdateFeedError::badSignature() {
    return {Kind::badSignature, "manifest signature invalid"};
}

UpdateFeedError UpdateFeedError::unsupportedURL() {
    return {Kind::unsupportedURL, "manifest url must be https"};
}

URL UpdateFeed::defaultManifestURL() {
    return DaemonConfig::defaultUpdateFeedURL();
}

URL UpdateFeed::defaultNotesURL() {
    return *URL::parse("https://" + std::string(VendorHosts::support) + "/tarnlink/releases");
}

const std::set<std::string> &UpdateFeed::notesHosts() {
    static const std::set<std::string> hosts{std::string(VendorHosts::support),
                                             std::string(VendorHosts::download)};
    return hosts;
}

UpdateManifest UpdateFeed::verifyAndDecode(std::string_view data, std::string_view signatureBase64,
                                           std::string_view keyBase64) {
    const auto key = base64::decode(keyBase64);
    if (!key || key->size() != keySize)
        throw UpdateFeedError::badSignature();
    const auto signature = base64::decode(signatureBase64);
    if (!signature || !isSignedBy(*key, *signature, data))
        throw UpdateFeedError::badSignature();

    UpdateManifest manifest;
    try {
        manifest = UpdateManifest::decode(data);
    } catch (const std::exception &error) {
        throw UpdateFeedError::badManifest(error.what());
    }
    const auto url = URL::parse(manifest.url);
    if (!url || url->scheme() != "https")
        throw UpdateFeedError::unsupportedURL();
    if (manifest.sha256.size() != digestCharacters || !isHexadecimal(manifest.sha256))
        throw UpdateFeedError::badManifest("sha256");
    return manifest;
}

Task<std::string> UpdateFeed::get(std::shared_ptr<HTTPSession> session, URL url, double timeout) {
    const auto body = std::make_shared<std::string>();
    // Named, because g++ 12 destroys what a lambda in an awaited expression holds twice.
    auto running = transfer(std::move(session), actor_, std::move(url),
                            {mostManifestBytes, timeout, std::numeric_limits<double>::infinity()},
                            [body](std::string_view piece) { *body += piece; });
    co_await running;
    co_return *body;
}

Task<UpdateFeed::SignedManifest> UpdateFeed::fetchSigned(URL manifestURL, double timeout) {
    const auto signatureURL = URL::parse(manifestURL.absoluteString() + ".sig");
    if (!signatureURL)
        throw UpdateFeedError::unsupportedURL();
    SignedManifest fetched;
    auto session = openSession(http_, timeout);
    auto fetchingManifest = get(session, std::move(manifestURL), timeout);
    fetched.data = co_await fetchingManifest;
    auto fetchingSignature = get(std::move(session), *signatureURL, timeout);
    const std::string signature = co_await fetchingSignature;
    if (!text::isUTF8(signature))
        throw UpdateFeedError::badSignature();
    fetched.signature = trimmed(signature);
    fetched.manifest = verifyAndDecode(fetched.data, fetched.signature, key_);
    co_return fetched;
}

Task<UpdateManifest> UpdateFeed::fetch(URL manifestURL, double timeout) {
    auto fetching = fetchSigned(std::move(manifestURL), timeout);
    const SignedManifest fetched = co_await fetching;
    co_return fetched.manifest;
}

Task<void> UpdateFeed::download(URL url, std::optional<std::int64_t> size, std::string path, double timeout,
                                std::function<void(std::uint64_t)> progress) {
    if (size && *size < 0)
        throw UpdateFeedError::transport("announced with " + std::to_string(*size) + " bytes");
    const auto file = std::make_shared<NewFile>(std::move(path));
    const auto mostBytes = size ? static_cast<std::uint64_t>(*size) : mostPackageBytes;
    // At least something has to come, whatever the time-out.
    const double leastBytes = std::fmax(1, slowestBytesPerSecond * timeout);
    auto running =
        transfer(openSession(http_, timeout), actor_, std::move(url), {mostBytes, timeout, leastBytes},
                 [file, progress = std::move(progress)](std::string_view piece) {
                     file->append(piece);
                     progress(file->size());
                 });
    co_await running;
    if (size && file->size() < mostBytes)
        throw UpdateFeedError::transport("only " + std::to_string(file->size()) + " of " +
                                         std::to_string(mostBytes) + " bytes");
    file->keep();
}

std::string UpdateFeed::sha256(const std::string &path) {
    return SHA256::of(path);
}

bool UpdateFeed::isApplicable(const UpdateManifest &manifest, std::int64_t installedBuild,
                              const SystemVersion &running) {
    return installedBuild < manifest.build && running >= SystemVersion::parse(manifest.minOS);
}

std::optional<URL> UpdateFeed::notesURL(const UpdateManifest &manifest,
                                        const std::set<std::string> &allowedHosts) {
    auto url = URL::parse(manifest.notes.value_or(""));
    if (!url || url->scheme() != "https" || !allowedHosts.contains(std::string(url->host())))
        return std::nullopt;
    return url;
}

} // namespace tarn
