#include "Platform/Linux/FetchClient.h"

#include "Platform/HTTP.h"
#include "Platform/Linux/FetchMessage.h"
#include "Platform/Linux/LinuxProcessLauncher.h"
#include "TarnCore/Text.h"
#include "TarnSystem/Descriptor.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <map>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <utility>
#include <vector>

namespace tarn {
namespace {

constexpr auto settling = std::chrono::seconds(1);
constexpr const char *programName = "TarnlinkFetch";

HTTPError unknownError(std::string words) {
    return {"NSURLErrorDomain", -1, std::move(words)};
}

std::optional<HTTPError> decodeError(std::string_view content, std::vector<std::string> certificates) {
    const auto first = content.find(' ');
    const auto second = content.find(' ', first + 1);
    if (first == content.npos || second == content.npos)
        return std::nullopt;
    const auto code = text::parseInteger(content.substr(first + 1, second - first - 1));
    if (!code)
        return std::nullopt;
    return HTTPError{std::string(content.substr(0, first)), *code, std::string(content.substr(second + 1)),
                     std::move(certificates)};
}

/// A process and its fetches. A handler may destroy the session: whoever calls one holds this until he is
/// back.
class Fetches final : public std::enable_shared_from_this<Fetches> {
public:
    Fetches(EventLoop &loop, std::vector<std::string> arguments)
        : loop_(loop), arguments_(std::move(arguments)) {}
    Fetches(const Fetches &) = delete;
    Fetches &operator=(const Fetches &) = delete;
    ~Fetches() { endProcess(); }

    void start() {
        try {
            std::array<int, 2> ends{};
            if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
                throw std::system_error(errno, std::generic_category(), "socketpair");
            const Descriptor theirs(ends[1]);
            socket_ = Descriptor(ends[0]);
            process_ = LinuxProcessLauncher::start(FetchClient::program(), arguments_, theirs.get());
            const auto ready = [](sd_event_source *, int, std::uint32_t, void *self) {
                static_cast<Fetches *>(self)->shared_from_this()->take();
                return 0;
            };
            sd_event_source *source = nullptr;
            if (const int result = sd_event_add_io(loop_.event(), &source, ends[0], EPOLLIN, ready, this);
                result < 0)
                throw std::system_error(-result, std::generic_category(), "sd_event_add_io");
            source_.reset(source);
        } catch (const std::system_error &error) {
            failure_ = HTTPError{"NSPOSIXErrorDomain", error.code().value(), error.what()};
        }
        isStarted_ = true;
        for (const auto &[id, fetch] : fetches_)
            ask(id, fetch);
    }

    /// No handler is called any more.
    void close() {
        isClosed_ = true;
        source_.reset();
    }

    void get(const URL &url, std::function<bool(std::string_view)> received,
             std::function<void(HTTPSession::Result)> ended) {
        const auto id = ++last_;
        const auto &fetch =
            fetches_.emplace(id, Fetch{url, std::move(received), std::move(ended)}).first->second;
        if (isStarted_)
            ask(id, fetch);
    }

private:
    struct Fetch {
        URL url;
        std::function<bool(std::string_view)> received;
        std::function<void(HTTPSession::Result)> ended;
        std::vector<std::string> certificates = {};
    };

    void ask(std::uint32_t id, const Fetch &fetch) {
        if (failure_ ||
            !FetchMessage{FetchMessage::Kind::get, id, fetch.url.absoluteString()}.send(socket_.get()))
            loop_.post([weak = weak_from_this()] {
                if (const auto self = weak.lock())
                    self->endAll();
            });
    }

    void take() {
        using Kind = FetchMessage::Kind;
        const auto message = FetchMessage::receive(socket_.get(), buffer_);
        if (!message) {
            endAll();
            return;
        }
        const auto found = fetches_.find(message->fetch);
        if (found == fetches_.end())
            return; // Said before it heard that the fetch is not wanted.
        const auto content = message->content;
        if (message->kind == Kind::piece) {
            if (!found->second.received(content)) {
                fetches_.erase(found);
                FetchMessage{Kind::cancel, message->fetch, {}}.send(socket_.get());
            }
        } else if (message->kind == Kind::certificate) {
            found->second.certificates.emplace_back(content);
        } else {
            auto fetch = fetches_.extract(found);
            HTTPSession::Result result = unknownError(std::string(programName) + " was not understood");
            if (message->kind == Kind::status)
                result = text::parseInteger(content).value_or(0);
            else if (auto error = decodeError(content, std::move(fetch.mapped().certificates)))
                result = *std::move(error);
            fetch.mapped().ended(std::move(result));
        }
    }

    /// There is no process any more, or there never was one.
    void endAll() {
        if (!failure_)
            failure_ = unknownError(std::string(programName) + " ended" + endProcess());
        for (auto &[id, fetch] : std::exchange(fetches_, {}))
            if (!isClosed_)
                fetch.ended(*failure_);
    }

    /// How it ended, when it did so by itself.
    std::string endProcess() {
        source_.reset();
        const auto process = std::exchange(process_, 0);
        if (process <= 0)
            return {};
        siginfo_t state{};
        kill(process, SIGKILL);
        while (waitid(P_PID, static_cast<id_t>(process), &state, WEXITED) != 0)
            if (errno != EINTR)
                return {};
        return state.si_code == CLD_EXITED ? " with status " + std::to_string(state.si_status) : "";
    }

    EventLoop &loop_;
    const std::vector<std::string> arguments_;
    bool isStarted_ = false;
    Descriptor socket_;
    pid_t process_ = 0;
    LoopSource source_;
    std::string buffer_;
    std::map<std::uint32_t, Fetch> fetches_;
    std::uint32_t last_ = 0;
    std::optional<HTTPError> failure_;
    bool isClosed_ = false;
};

class Session final : public HTTPSession {
public:
    explicit Session(std::shared_ptr<Fetches> fetches) : fetches_(std::move(fetches)) {}
    ~Session() override { fetches_->close(); }

    void get(const URL &url, std::function<bool(std::string_view)> received,
             std::function<void(Result)> ended) override {
        fetches_->get(url, std::move(received), std::move(ended));
    }

private:
    const std::shared_ptr<Fetches> fetches_;
};

} // namespace

FetchClient::FetchClient(EventLoop &loop, std::string authorities, MainActor::TimePoint begin)
    : loop_(loop), authorities_(std::move(authorities)), begin_(begin) {}

std::string FetchClient::program() {
    std::error_code error;
    const auto folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    const auto beside = folder / programName;
    if (std::filesystem::exists(beside, error))
        return beside;
    return folder.parent_path() / "libexec/tarnlink" / programName;
}

std::unique_ptr<HTTPSession> FetchClient::ephemeral(double timeout) {
    // std::to_string() would follow the locale that a toolkit has set.
    std::array<char, 32> seconds{};
    const auto end = std::to_chars(seconds.data(), seconds.data() + seconds.size(), timeout).ptr;
    std::vector<std::string> arguments{{seconds.data(), end}};
    if (!authorities_.empty())
        arguments.push_back(authorities_);
    auto fetches = std::make_shared<Fetches>(loop_, std::move(arguments));
    if (const auto wait = begin_ - loop_.now(); wait <= wait.zero())
        fetches->start();
    else
        loop_.postAfter(wait, [weak = std::weak_ptr(fetches)] {
            if (const auto self = weak.lock())
                self->start();
        });
    return std::make_unique<Session>(std::move(fetches));
}

std::unique_ptr<HTTPClient> makeHTTPClient(Platform &platform) {
    // Each platform's main actor is its event loop.
    auto &loop = static_cast<EventLoop &>(platform.mainActor());
    // A program that has just been started has something to show first.
    return std::make_unique<FetchClient>(loop, "", loop.now() + settling);
}

} // namespace tarn
