#include "Platform/Linux/CurlClient.h"

#include "TarnCore/AppInfo.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <curl/curl.h>
#include <openssl/ssl.h>
#include <span>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <system_error>
#include <unordered_map>
#include <utility>

namespace tarn {
namespace {

using namespace std::chrono_literals;

constexpr long mostRedirects = 5;
constexpr std::size_t mostHeaderBytes = 128 * 1024;
constexpr const char *scheme = "https";

template <auto release> struct Release {
    void operator()(auto *object) const { release(object); }
};
using Easy = std::unique_ptr<CURL, Release<curl_easy_cleanup>>;
using Multi = std::unique_ptr<CURLM, Release<curl_multi_cleanup>>;
using Headers = std::unique_ptr<curl_slist, Release<curl_slist_free_all>>;

template <typename T> void set(CURL *easy, CURLoption option, T value) {
    if (const auto code = curl_easy_setopt(easy, option, value); code != CURLE_OK)
        throw std::runtime_error(std::string("libcurl: ") + curl_easy_strerror(code));
}

/// A certificate in DER, shared with the connections, which may live longer than a fetch.
using Leaf = std::shared_ptr<std::string>;

/// Under which an SSL_CTX owns a Leaf.
int leafIndex() {
    static const int index = SSL_CTX_get_ex_new_index(
        0, nullptr, nullptr, nullptr,
        [](void *, void *leaf, CRYPTO_EX_DATA *, int, long, void *) { delete static_cast<Leaf *>(leaf); });
    return index;
}

/// Keeps what the server shows; what OpenSSL thinks of it stays as it is.
int keepLeaf(int isGood, X509_STORE_CTX *verification) {
    const auto *ssl =
        static_cast<SSL *>(X509_STORE_CTX_get_ex_data(verification, SSL_get_ex_data_X509_STORE_CTX_idx()));
    const auto *leaf = static_cast<Leaf *>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), leafIndex()));
    auto *certificate = X509_STORE_CTX_get0_cert(verification);
    if (const int size = i2d_X509(certificate, nullptr); size > 0) {
        (*leaf)->resize(static_cast<std::size_t>(size));
        auto *bytes = reinterpret_cast<unsigned char *>((*leaf)->data());
        i2d_X509(certificate, &bytes);
    }
    return isGood;
}

CURLcode prepareTLS(CURL *, void *context, void *leaf) {
    auto *tls = static_cast<SSL_CTX *>(context);
    auto owner = std::make_unique<Leaf>(*static_cast<Leaf *>(leaf));
    if (SSL_CTX_set_ex_data(tls, leafIndex(), owner.get()) != 1)
        return CURLE_OUT_OF_MEMORY;
    owner.release();
    SSL_CTX_set_verify(tls, SSL_VERIFY_PEER, keepLeaf);
    return CURLE_OK;
}

/// What the URL loading system calls the same (NSURLError, "URL Loading System Error Codes").
struct Translation {
    long code;
    std::int64_t error;
};

constexpr Translation errors[] = {
    {CURLE_URL_MALFORMAT, -1000},        // bad URL
    {CURLE_LOGIN_DENIED, -1000},         // a name in the address, which is not allowed
    {CURLE_OPERATION_TIMEDOUT, -1001},   // timed out
    {CURLE_UNSUPPORTED_PROTOCOL, -1002}, // unsupported URL
    {CURLE_COULDNT_RESOLVE_HOST, -1003}, // cannot find host
    {CURLE_COULDNT_RESOLVE_PROXY, -1003},
    {CURLE_COULDNT_CONNECT, -1004}, // cannot connect to host
    {CURLE_PARTIAL_FILE, -1005},    // network connection lost
    {CURLE_GOT_NOTHING, -1005},
    {CURLE_RECV_ERROR, -1005},
    {CURLE_SEND_ERROR, -1005},
    {CURLE_HTTP2, -1005},
    {CURLE_HTTP2_STREAM, -1005},
    {CURLE_WEIRD_SERVER_REPLY, -1017}, // cannot parse response
    {CURLE_WRITE_ERROR, -1103},        // data length exceeds maximum: of the header
    {CURLE_SSL_CONNECT_ERROR, -1200},  // secure connection failed
    {CURLE_SSL_CIPHER, -1200},
    {CURLE_SSL_CACERT_BADFILE, -1200},
};

constexpr Translation certificateErrors[] = {
    {X509_V_ERR_CERT_HAS_EXPIRED, -1201},          // has bad date
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, -1203}, // has unknown root
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, -1203},
    {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, -1203},
    {X509_V_ERR_CERT_NOT_YET_VALID, -1204}, // not yet valid
};

std::int64_t translate(std::span<const Translation> table, long code, std::int64_t other) {
    const auto found = std::ranges::find(table, code, &Translation::code);
    return found == table.end() ? other : found->error;
}

std::int64_t errorCode(CURL *easy, CURLcode code) {
    constexpr std::int64_t unknown = -1, isUntrusted = -1202, isNotConnected = -1009;
    long detail = 0;
    if (code == CURLE_PEER_FAILED_VERIFICATION) {
        curl_easy_getinfo(easy, CURLINFO_SSL_VERIFYRESULT, &detail);
        // A good chain is here as well: another host's.
        return translate(certificateErrors, detail, isUntrusted);
    }
    curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &detail);
    if (code == CURLE_COULDNT_CONNECT && (detail == ENETUNREACH || detail == ENETDOWN))
        return isNotConnected;
    return translate(errors, code, unknown);
}

/// What a session's handle of libcurl and its transfers hang on. Whoever enters libcurl holds it until he is
/// out again, because a handler may destroy the session and libcurl must not be taken down from within.
class Transfers final : public std::enable_shared_from_this<Transfers> {
public:
    Transfers(EventLoop &loop, double timeout, std::string authorities)
        : loop_(loop), timeout_(std::clamp<MainActor::Duration>(fromSeconds(timeout), 0s, 24h)),
          authorities_(std::move(authorities)),
          headers_(curl_slist_append(nullptr, "Cache-Control: no-cache")), multi_(curl_multi_init()) {
        if (!multi_ || !headers_)
            throw std::runtime_error("libcurl: out of memory");
        curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, &Transfers::watchSocket);
        curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this);
        curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, &Transfers::watchTime);
        curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this);
    }

    ~Transfers() {
        sources_.clear();
        curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, nullptr);
        curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, nullptr);
        loop_.cancel(timer_);
        for (const auto &[easy, transfer] : transfers_) {
            loop_.cancel(transfer->idle);
            curl_multi_remove_handle(multi_.get(), easy);
        }
    }

    /// No handler is called any more.
    void close() { isClosed_ = true; }

    void start(const std::string &address, std::function<bool(std::string_view)> received,
               std::function<void(HTTPSession::Result)> ended) {
        auto transfer = std::make_unique<Transfer>();
        transfer->owner = this;
        transfer->easy.reset(curl_easy_init());
        transfer->received = std::move(received);
        transfer->ended = std::move(ended);
        auto *easy = transfer->easy.get();
        if (!easy)
            throw std::runtime_error("libcurl: out of memory");
        configure(*transfer, address);
        transfers_.emplace(easy, std::move(transfer));
        // Later, because this may be within one of libcurl's calls.
        loop_.post([weak = weak_from_this(), easy] {
            if (const auto self = weak.lock())
                self->begin(easy);
        });
    }

private:
    struct Transfer {
        Transfers *owner = nullptr;
        std::function<bool(std::string_view)> received;
        std::function<void(HTTPSession::Result)> ended;
        Leaf leaf = std::make_shared<std::string>();
        std::array<char, CURL_ERROR_SIZE> words{};
        MainActor::TimePoint lastSign{};
        MainActor::TimerID idle = 0;
        std::size_t headerBytes = 0;
        bool isUnwanted = false;
        Easy easy; // Last, because it is to go first.
    };

    void configure(Transfer &transfer, const std::string &address) {
        auto *easy = transfer.easy.get();
        set(easy, CURLOPT_URL, address.c_str());
        set(easy, CURLOPT_PROTOCOLS_STR, scheme);
        set(easy, CURLOPT_REDIR_PROTOCOLS_STR, scheme);
        set(easy, CURLOPT_FOLLOWLOCATION, 1L);
        set(easy, CURLOPT_MAXREDIRS, mostRedirects);
        set(easy, CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
        set(easy, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
        set(easy, CURLOPT_HTTPHEADER, headers_.get());
        set(easy, CURLOPT_USERAGENT, ("Tarnlink/" + std::string(AppInfo::version)).c_str());
        set(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
        set(easy, CURLOPT_NOSIGNAL, 1L);
        // A look-up under way is left to its thread, which cleans up after itself; waiting for it would hold
        // up the main thread for as long as a name server does not answer.
        set(easy, CURLOPT_QUICK_EXIT, 1L);
        set(easy, CURLOPT_CONNECTTIMEOUT_MS,
            static_cast<long>(std::chrono::ceil<std::chrono::milliseconds>(timeout_).count()));
        set(easy, CURLOPT_ERRORBUFFER, transfer.words.data());

        set(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
        set(easy, CURLOPT_SSL_VERIFYPEER, 1L);
        set(easy, CURLOPT_SSL_VERIFYHOST, 2L);
        set(easy, CURLOPT_SSL_CTX_FUNCTION, &prepareTLS);
        set(easy, CURLOPT_SSL_CTX_DATA, &transfer.leaf);
        chooseAuthorities(easy);

        set(easy, CURLOPT_OPENSOCKETFUNCTION, &Transfers::openSocket);
        set(easy, CURLOPT_PREREQFUNCTION, &Transfers::isConnected);
        set(easy, CURLOPT_PREREQDATA, &transfer);
        set(easy, CURLOPT_HEADERFUNCTION, &Transfers::takeHeader);
        set(easy, CURLOPT_HEADERDATA, &transfer);
        set(easy, CURLOPT_WRITEFUNCTION, &Transfers::takeBody);
        set(easy, CURLOPT_WRITEDATA, &transfer);
    }

    void chooseAuthorities(CURL *easy) const {
        const char *none = nullptr;
        if (!authorities_.empty()) {
            set(easy, CURLOPT_CAINFO, authorities_.c_str());
            set(easy, CURLOPT_CAPATH, none);
            return;
        }
        // A libcurl that was built without either of the two takes what the environment names
        // (SSL_CTX_set_default_verify_paths(3)), unless it is told.
        const auto *built = curl_version_info(CURLVERSION_NOW);
        if (!built->cainfo && !built->capath)
            set(easy, CURLOPT_CAPATH, X509_get_default_cert_dir());
    }

    static curl_socket_t openSocket(void *, curlsocktype, curl_sockaddr *address) {
        return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    }

    static int isConnected(void *data, char *, char *, int, int) {
        static_cast<Transfer *>(data)->lastSign = std::chrono::steady_clock::now();
        return CURL_PREREQFUNC_OK;
    }

    static std::size_t takeHeader(char *, std::size_t, std::size_t size, void *data) {
        auto &transfer = *static_cast<Transfer *>(data);
        transfer.lastSign = std::chrono::steady_clock::now();
        transfer.headerBytes += size;
        return transfer.headerBytes > mostHeaderBytes ? CURL_WRITEFUNC_ERROR : size;
    }

    static std::size_t takeBody(char *bytes, std::size_t, std::size_t size, void *data) {
        auto &transfer = *static_cast<Transfer *>(data);
        transfer.lastSign = std::chrono::steady_clock::now();
        transfer.isUnwanted = transfer.owner->isClosed_ || !transfer.received({bytes, size});
        return transfer.isUnwanted ? CURL_WRITEFUNC_ERROR : size;
    }

    static int watchSocket(CURL *, curl_socket_t descriptor, int what, void *data, void *) {
        auto &self = *static_cast<Transfers *>(data);
        // Anew each time: libcurl may have closed the descriptor and got its number again.
        self.sources_.erase(descriptor);
        if (what == CURL_POLL_REMOVE)
            return 0;
        const auto events = (what & CURL_POLL_IN ? EPOLLIN : 0u) | (what & CURL_POLL_OUT ? EPOLLOUT : 0u);
        const auto ready = [](sd_event_source *, int socket, std::uint32_t signs, void *context) {
            const int mask = (signs & EPOLLIN ? CURL_CSELECT_IN : 0) |
                             (signs & EPOLLOUT ? CURL_CSELECT_OUT : 0) |
                             (signs & (EPOLLERR | EPOLLHUP) ? CURL_CSELECT_ERR : 0);
            static_cast<Transfers *>(context)->shared_from_this()->act(socket, mask);
            return 0;
        };
        sd_event_source *source = nullptr;
        if (sd_event_add_io(self.loop_.event(), &source, descriptor, events, ready, &self) < 0)
            return -1;
        self.sources_[descriptor] = LoopSource(source);
        return 0;
    }

    static int watchTime(CURLM *, long milliseconds, void *data) {
        auto &self = *static_cast<Transfers *>(data);
        self.loop_.cancel(std::exchange(self.timer_, 0));
        if (milliseconds >= 0)
            self.timer_ =
                self.loop_.postAfter(std::chrono::milliseconds(milliseconds), [weak = self.weak_from_this()] {
                    if (const auto owner = weak.lock())
                        owner->act(CURL_SOCKET_TIMEOUT, 0);
                });
        return 0;
    }

    void begin(CURL *easy) {
        transfers_.at(easy)->lastSign = loop_.now();
        if (curl_multi_add_handle(multi_.get(), easy) != CURLM_OK)
            end(easy, CURLE_FAILED_INIT);
        else
            watchIdle(easy);
    }

    /// Ends the fetch when nothing has come for so long.
    void watchIdle(CURL *easy) {
        auto &transfer = *transfers_.at(easy);
        const auto left = transfer.lastSign + timeout_ - loop_.now();
        if (left <= MainActor::Duration::zero()) {
            transfer.words[0] = 0;
            end(easy, CURLE_OPERATION_TIMEDOUT);
            return;
        }
        transfer.idle = loop_.postAfter(left, [weak = weak_from_this(), easy] {
            if (const auto self = weak.lock())
                self->watchIdle(easy);
        });
    }

    /// The caller holds this object.
    void act(curl_socket_t socket, int signs) {
        int running = 0;
        curl_multi_socket_action(multi_.get(), socket, signs, &running);
        int waiting = 0;
        while (const auto *message = isClosed_ ? nullptr : curl_multi_info_read(multi_.get(), &waiting))
            if (message->msg == CURLMSG_DONE)
                end(message->easy_handle, message->data.result);
    }

    /// The caller holds this object.
    void end(CURL *easy, CURLcode code) {
        const auto node = transfers_.extract(easy);
        const auto &transfer = *node.mapped();
        loop_.cancel(transfer.idle);
        const auto result = resultOf(transfer, code);
        curl_multi_remove_handle(multi_.get(), easy);
        if (!transfer.isUnwanted && !isClosed_)
            transfer.ended(result);
    }

    static HTTPSession::Result resultOf(const Transfer &transfer, CURLcode code) {
        auto *easy = transfer.easy.get();
        long status = 0, redirects = 0;
        const char *address = "";
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        curl_easy_getinfo(easy, CURLINFO_REDIRECT_COUNT, &redirects);
        curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &address);
        const bool isSecure = curl_strnequal(address, "https:", 6);
        if (code == CURLE_OK || code == CURLE_TOO_MANY_REDIRECTS)
            return status;
        // An answer without a line of status that libcurl knows, or a redirect to what is not https.
        if (code == CURLE_UNSUPPORTED_PROTOCOL && (isSecure || redirects > 0))
            return isSecure ? 0 : status;
        HTTPError error{"NSURLErrorDomain", errorCode(easy, code),
                        transfer.words[0] ? transfer.words.data() : curl_easy_strerror(code)};
        if (code == CURLE_PEER_FAILED_VERIFICATION && !transfer.leaf->empty())
            error.peerCertificates.push_back(*transfer.leaf);
        return error;
    }

    EventLoop &loop_;
    const MainActor::Duration timeout_;
    const std::string authorities_;
    Headers headers_;
    std::unordered_map<curl_socket_t, LoopSource> sources_;
    MainActor::TimerID timer_ = 0;
    bool isClosed_ = false;
    Multi multi_;
    std::unordered_map<CURL *, std::unique_ptr<Transfer>> transfers_;
};

class Session final : public HTTPSession {
public:
    explicit Session(std::shared_ptr<Transfers> transfers) : transfers_(std::move(transfers)) {}
    ~Session() override { transfers_->close(); }

    void get(const URL &url, std::function<bool(std::string_view)> received,
             std::function<void(Result)> ended) override {
        transfers_->start(url.absoluteString(), std::move(received), std::move(ended));
    }

private:
    const std::shared_ptr<Transfers> transfers_;
};

} // namespace

CurlClient::CurlClient(EventLoop &loop, std::string authorities)
    : loop_(loop), authorities_(std::move(authorities)) {
    static const auto prepared = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (prepared != CURLE_OK)
        throw std::runtime_error(std::string("libcurl: ") + curl_easy_strerror(prepared));
    // Never begun: what libcurl lacks is to be known now and not at the first fetch.
    Transfers(loop_, 1, authorities_).start("https://localhost/", {}, {});
}

std::unique_ptr<HTTPSession> CurlClient::ephemeral(double timeout) {
    return std::make_unique<Session>(std::make_shared<Transfers>(loop_, timeout, authorities_));
}

} // namespace tarn
