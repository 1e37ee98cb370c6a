#include "Platform/Linux/CurlClient.h"
#include "Platform/Linux/FetchMessage.h"
#include "TarnCore/AppInfo.h"

#include <charconv>
#include <cstdio>
#include <exception>
#include <set>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace tarn;
using Kind = FetchMessage::Kind;

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

constexpr const char *help = R"(Usage: TarnlinkFetch SECONDS [AUTHORITIES]
Fetches over HTTPS for the program that started it, which tells it what over a socket at its standard output,
and ends with it. A fetch fails when nothing comes for so many SECONDS. AUTHORITIES is a file of certificates
to trust in place of the system's.

  --help, --version
)";

/// Fetches what is asked for until nobody listens any more.
class Fetcher {
public:
    Fetcher(EventLoop &loop, int socket, double timeout, std::string authorities)
        : loop_(loop), socket_(socket), client_(loop, std::move(authorities)),
          session_(client_.ephemeral(timeout)), source_(loop.whenReadable(socket, ready_)) {}
    Fetcher(const Fetcher &) = delete;
    Fetcher &operator=(const Fetcher &) = delete;

private:
    void take() {
        const auto message = FetchMessage::receive(socket_, buffer_);
        if (!message)
            loop_.stop();
        else if (message->kind == Kind::cancel)
            unwanted_.insert(message->fetch);
        else
            begin(message->fetch, message->content);
    }

    void begin(std::uint32_t id, std::string_view address) {
        const auto url = URL::parse(address);
        if (!url) {
            end(id, HTTPError{"NSURLErrorDomain", -1000, "bad URL"});
            return;
        }
        try {
            session_->get(
                *url,
                [this, id](std::string_view piece) {
                    return !unwanted_.contains(id) && tell(Kind::piece, id, piece);
                },
                [this, id](const HTTPSession::Result &result) { end(id, result); });
        } catch (const std::exception &error) {
            end(id, HTTPError{"NSURLErrorDomain", -1, error.what()});
        }
    }

    void end(std::uint32_t id, const HTTPSession::Result &result) {
        if (const auto *status = std::get_if<std::int64_t>(&result)) {
            tell(Kind::status, id, std::to_string(*status));
            return;
        }
        const auto &error = std::get<HTTPError>(result);
        for (const auto &certificate : error.peerCertificates)
            tell(Kind::certificate, id, certificate);
        tell(Kind::error, id,
             error.domain + " " + std::to_string(error.code) + " " + error.localizedDescription);
    }

    bool tell(Kind kind, std::uint32_t id, std::string_view content) {
        const bool isHeard = FetchMessage{kind, id, content}.send(socket_);
        if (!isHeard)
            loop_.stop();
        return isHeard;
    }

    EventLoop &loop_;
    const int socket_;
    CurlClient client_;
    std::unique_ptr<HTTPSession> session_;
    std::set<std::uint32_t> unwanted_;
    std::string buffer_;
    std::function<void()> ready_ = [this] { take(); };
    LoopSource source_;
};

int fail(const char *why) {
    std::fprintf(stderr, "TarnlinkFetch: %s\n", why);
    return exitFailed;
}

} // namespace

int main(int count, char **values) {
    const std::string_view first = count > 1 ? values[1] : "";
    if (first == "--help")
        return std::fputs(help, stdout) < 0 ? exitFailed : 0;
    if (first == "--version")
        return std::printf("TarnlinkFetch %s (%lld)\n", std::string(AppInfo::version).c_str(),
                           static_cast<long long>(AppInfo::build)) < 0
                   ? exitFailed
                   : 0;
    double timeout = 0;
    const auto number = std::from_chars(first.data(), first.data() + first.size(), timeout);
    if (number.ec != std::errc() || number.ptr != first.data() + first.size() || count > 3) {
        std::fputs(help, stderr);
        return exitUsage;
    }
    int type = 0;
    socklen_t size = sizeof type;
    if (getsockopt(STDOUT_FILENO, SOL_SOCKET, SO_TYPE, &type, &size) != 0 || type != SOCK_SEQPACKET)
        return fail("the standard output is not a program's socket");
    try {
        EventLoop loop;
        const Fetcher fetcher(loop, STDOUT_FILENO, timeout, count == 3 ? values[2] : "");
        loop.run();
        return 0;
    } catch (const std::exception &error) {
        return fail(error.what());
    }
}
