#pragma once

#include "TarnSystem/MainActor.h"
#include "TarnSystem/Updates/HTTPClient.h"

#include <map>
#include <utility>

namespace tarn {

/// Servers that answer in virtual time.
class FakeHTTP final : public HTTPClient {
public:
    struct Answer {
        std::string body = {};
        HTTPSession::Result result = std::int64_t{200};
        std::size_t pieceSize = std::string::npos;
        /// Before each piece, and before the end.
        MainActor::Duration pause{};
        /// The body comes again and again.
        bool isEndless = false;
    };

    explicit FakeHTTP(MainActor &actor) : actor_(actor) {}

    std::map<std::string, Answer> answers;
    /// Addresses, each with a blank.
    std::string requests;
    int openSessions = 0;

    std::unique_ptr<HTTPSession> ephemeral(double) override { return std::make_unique<Session>(*this); }

private:
    class Session final : public HTTPSession {
    public:
        explicit Session(FakeHTTP &owner) : owner_(owner) { ++owner_.openSessions; }
        ~Session() override { --owner_.openSessions; }

        void get(const URL &url, std::function<bool(std::string_view)> received,
                 std::function<void(Result)> ended) override {
            owner_.requests += url.absoluteString() + " ";
            const auto found = owner_.answers.find(url.absoluteString());
            const HTTPError unknown{"NSURLErrorDomain", -1003, "no such host"};
            fetch_ = std::make_shared<Fetch>(
                Fetch{found == owner_.answers.end() ? Answer{.result = unknown} : found->second,
                      std::move(received), std::move(ended)});
            goOn(owner_.actor_, fetch_);
        }

    private:
        struct Fetch {
            Answer answer;
            std::function<bool(std::string_view)> received;
            std::function<void(Result)> ended;
            std::size_t offset = 0;
        };

        /// Nothing of the session is used: a handler may have destroyed it.
        static void goOn(MainActor &actor, const std::weak_ptr<Fetch> &weak) {
            actor.postAfter(weak.lock()->answer.pause, [&actor, weak] {
                const auto fetch = weak.lock();
                if (!fetch)
                    return;
                const auto piece = std::string_view(fetch->answer.body)
                                       .substr(fetch->offset)
                                       .substr(0, fetch->answer.pieceSize);
                if (piece.empty())
                    return fetch->ended(fetch->answer.result);
                fetch->offset += piece.size();
                if (fetch->answer.isEndless)
                    fetch->offset %= fetch->answer.body.size();
                if (fetch->received(piece) && !weak.expired())
                    goOn(actor, weak);
            });
        }

        FakeHTTP &owner_;
        std::shared_ptr<Fetch> fetch_;
    };

    MainActor &actor_;
};

} // namespace tarn
