#include "Platform/HTTP.h"
#include "Platform/Linux/CurlClient.h"
#include "Platform/Linux/FetchClient.h"
#include "Support/HTTPLab.h"
#include "Support/Words.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <sys/wait.h>

namespace tarn {
namespace {

using namespace std::chrono_literals;

/// Within this process, or by one of its own.
class HTTP : public HTTPLab, public testing::WithParamInterface<bool> {
protected:
    struct Fetch {
        std::string body;
        std::optional<HTTPSession::Result> result;
        const HTTPError &error() const { return std::get<HTTPError>(result.value()); }
    };

    void SetUp() override {
        HTTPLab::SetUp();
        if (IsSkipped())
            return;
        loop_.emplace();
        makeClient(authorities);
    }
    void makeClient(const std::string &trusted) {
        if (GetParam())
            client_ = std::make_unique<FetchClient>(*loop_, trusted);
        else
            client_ = std::make_unique<CurlClient>(*loop_, trusted);
    }
    /// Of no more than 6 MB.
    Fetch fetch(HTTPSession &session, const std::string &address) {
        Fetch fetch;
        bool isInside = true;
        session.get(
            URL::parse(address).value(),
            [&](std::string_view piece) {
                EXPECT_FALSE(isInside);
                fetch.body += piece;
                return fetch.body.size() < 6'000'000;
            },
            [&](HTTPSession::Result result) {
                EXPECT_FALSE(isInside);
                fetch.result = std::move(result);
                loop_->stop();
            });
        isInside = false;
        const auto guard = loop_->postAfter(5s, [&] { loop_->stop(); });
        loop_->run();
        loop_->cancel(guard);
        return fetch;
    }
    Fetch fetch(const std::string &address, double timeout = 10) {
        const auto session = client_->ephemeral(timeout);
        return fetch(*session, address);
    }
    /// The status or the error's code, and how much came.
    static std::string told(const Fetch &fetch) {
        const auto *status = std::get_if<std::int64_t>(&fetch.result.value());
        EXPECT_TRUE(status || (fetch.error().domain.ends_with("ErrorDomain") &&
                               !fetch.error().localizedDescription.empty()));
        return std::to_string(status ? *status : fetch.error().code) + " " +
               std::to_string(fetch.body.size());
    }
    static auto descriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    std::optional<EventLoop> loop_;
    std::unique_ptr<HTTPClient> client_;
};

INSTANTIATE_TEST_SUITE_P(HTTP, HTTP, testing::Bool(),
                         [](const auto &row) { return row.param ? "ByAProcess" : "Within"; });

TEST_P(HTTP, FetchesWhatAServerHas) {
    std::string big(5'000'000, 0);
    std::generate(big.begin(), big.end(),
                  [random = std::minstd_rand()]() mutable { return static_cast<char>(random()); });
    lab().write("/run/lab/www/big", big);
    EXPECT_TRUE(fetch("https://127.0.0.1/big").body == big);
    for (const auto &row :
         rows("big > 200 5000000; none > 404 146; 500 > 500 6; https > 200 5; http > 302 0; "
              "loop > 302 0"))
        EXPECT_EQ(told(fetch("https://127.0.0.1/" + sides(row).first)), sides(row).second) << row;
    EXPECT_EQ(told(fetch("http://127.0.0.1/small")), "-1002 0");
    EXPECT_EQ(told(fetch("https://a:b@127.0.0.1/small")), "-1000 0") << "credentials";

    lab().write("/run/lab/requests", "");
    fetch("https://127.0.0.1/loop");
    const auto session = client_->ephemeral(10);
    std::string request;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(fetch(*session, "https://127.0.0.1/small").body, "hello");
        request = fetch(*session, "https://127.0.0.1:8000/echo").body;
    }
    EXPECT_EQ(lab().run("cut -d' ' -f7 /run/lab/requests | sort | uniq -c | xargs").out,
              "6 /loop 2 /small\n");
    for (const auto &row :
         rows("Cache-Control: no-cache\r\n > yes; User-Agent: Tarnlink/ > yes; Cookie: > no; "
              "Accept-Encoding: > no; Authorization: > no; If- > no"))
        EXPECT_EQ(request.find(sides(row).first) != std::string::npos, sides(row).second == "yes") << request;
}

TEST_P(HTTP, HostileServersEndInAnError) {
    for (const auto &row : rows("truncated > -1005 400000; cut > -1005 500000; "
                                "garbage > 0 0; to-garbage > 0 0; trickle > 200 8; silent > -1001 3; "
                                "mute > -1001 0; headers > -1103 0"))
        EXPECT_EQ(told(fetch("https://127.0.0.1:8000/" + sides(row).first, 1)), sides(row).second) << row;
    for (const auto &row : rows("127.0.0.1:8005 > -1001 0; 127.0.0.1:9 > -1004 0; 192.0.2.1 > -1009 0"))
        EXPECT_EQ(told(fetch("https://" + sides(row).first, 0.5)), sides(row).second) << row;
    const auto endless = fetch("https://127.0.0.1:8000/endless");
    EXPECT_FALSE(endless.result) << "told of the end of what was not wanted any more";
    EXPECT_LT(endless.body.size(), 6'100'000U);
    setenv("https_proxy", "http://127.0.0.1:9", 1);
    EXPECT_EQ(told(fetch("https://127.0.0.1:8000/echo")), "-1004 0") << "passes the proxy by";
    unsetenv("https_proxy");
}

TEST_P(HTTP, SilentNameServerHoldsNobodyUp) {
    lab().writeResolvConf("nameserver 127.0.0.1\noptions timeout:5 attempts:1\n");
    const auto begin = loop_->now();
    EXPECT_EQ(told(fetch("https://nobody.example/", 0.5)), "-1001 0");
    EXPECT_LT(loop_->now() - begin, 3s) << "the end of a session waits for the look-up";
}

TEST_P(HTTP, OnlyAGoodCertificateCounts) {
    for (const auto &row :
         rows("8001 > -1202 Lab; 8002 > -1201 Lab; 8003 > -1203 Example Corp, CN = Inspect CA; "
              "8004 > -1202 Example Corp, CN = Inspect CA")) {
        const auto refused = fetch("https://127.0.0.1:" + sides(row).first + "/echo");
        const auto expected = sides(row).second;
        ASSERT_EQ(told(refused), expected.substr(0, 5) + " 0") << row;
        ASSERT_EQ(refused.error().peerCertificates.size(), 1U) << row;
        lab().write("/run/lab/leaf.der", refused.error().peerCertificates[0]);
        const auto issuer = lab().run("openssl x509 -inform DER -noout -issuer -in /run/lab/leaf.der").out;
        EXPECT_NE(issuer.find(expected.substr(6)), std::string::npos) << issuer;
    }
    lab().run("openssl s_client -connect 127.0.0.1:8007 -tls1");
    const auto old = fetch("https://127.0.0.1:8007/echo");
    EXPECT_EQ(told(old), "-1200 0") << "TLS 1.0";
    EXPECT_TRUE(old.error().peerCertificates.empty());
}

TEST_P(HTTP, TrustsTheSystemsAuthoritiesWhateverTheEnvironmentSays) {
    makeClient("");
    lab().run("cd /run/lab; mkdir hashed; cp ours.pem hashed/ca-certificates.crt; openssl rehash hashed");
    for (const char *name : {"SSL_CERT_FILE", "CURL_CA_BUNDLE"})
        setenv(name, "/run/lab/ours.pem", 1);
    setenv("SSL_CERT_DIR", "/run/lab/hashed", 1);
    EXPECT_EQ(told(fetch("https://127.0.0.1:8000/echo")), "-1203 0");
    lab().run("mount --bind /run/lab/hashed /etc/ssl/certs");
    EXPECT_EQ(told(fetch("https://127.0.0.1:8000/echo")).substr(0, 3), "200");
}

TEST_P(HTTP, NothingHappensAfterASessionIsGone) {
    fetch("https://127.0.0.1:8000/echo"); // What libraries open once stays open.
    const auto before = descriptors();
    for (const auto &row : rows("at once > 8000/endless; handshake > 8005/; received > 8000/endless; "
                                "ended > 99999/; later > 8000/endless")) {
        const auto &[moment, address] = sides(row);
        auto session = client_->ephemeral(10);
        const auto destroyAt = [&](const std::string &now) {
            EXPECT_TRUE(session) << row;
            if (moment == now)
                session.reset();
            return true;
        };
        // Two of them: the one's handler destroys the other's fetch. Both of a bad port end at once.
        for (int i = 0; i < 2; ++i)
            session->get(
                URL::parse("https://127.0.0.1:" + address).value(),
                [&](std::string_view) { return destroyAt("received"); },
                [&](HTTPSession::Result) { destroyAt("ended"); });
        destroyAt("at once");
        if (moment == "handshake" || moment == "later")
            loop_->postAfter(200ms, [&] { session.reset(); });
        loop_->postAfter(400ms, [&] { loop_->stop(); });
        loop_->run();
        EXPECT_FALSE(session) << row;
        EXPECT_EQ(descriptors(), before) << row;
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG | __WNOTHREAD), 0) << row << ": left a process";
    }
}

using FetchingProcess = HTTP;

INSTANTIATE_TEST_SUITE_P(HTTP, FetchingProcess, testing::Values(true));

TEST_P(FetchingProcess, WhichCannotWorkEndsEachFetchWithTheReason) {
    const auto program = FetchClient::program();
    for (const auto &row : rows("/dev/null > 13 0 Permission denied; /bin/true > -1 0 ended with status 0; "
                                "/bin/false > -1 0 ended with status 1")) {
        lab().run("mount --bind " + sides(row).first + " " + program);
        const auto session = client_->ephemeral(10);
        for (int i = 0; i < 2; ++i) {
            const auto failed = fetch(*session, "https://127.0.0.1:8000/echo");
            EXPECT_EQ(told(failed), sides(row).second.substr(0, told(failed).size())) << row;
            EXPECT_NE(
                failed.error().localizedDescription.find(sides(row).second.substr(told(failed).size() + 1)),
                std::string::npos)
                << failed.error().localizedDescription;
        }
        lab().run("umount " + program);
    }
    loop_->postAfter(300ms, [&] { lab().run("pkill -KILL -x TarnlinkFetch"); });
    EXPECT_EQ(told(fetch("https://127.0.0.1:8000/mute")), "-1 0");
}

using Machine = LabTest;

TEST_F(Machine, TellsWhatIsInstalledAndRemembered) {
    const auto platform = makePlatform();
    EXPECT_EQ(platform->systemVersion(),
              SystemVersion::parse(lab().run("uname -r | grep -oE '^[0-9.]+' | tr -d '\n'").out));
    EXPECT_FALSE(platform->installedBuild("/run/lab"));
    for (const auto &row :
         rows("1.0\n151\n > 151; 1.0\n151 > 151; 1.0 > 0; 151\n > 0; 1.0\n15x\n > 0; \n\n7 > 0")) {
        lab().write("/run/lab/VERSION", sides(row).first);
        EXPECT_EQ(platform->installedBuild("/run/lab").value_or(0), std::stoi(sides(row).second)) << row;
    }
    platform->userDefaults().setBoolean("Here", true);
    EXPECT_NE(readFile("/run/lab/config/tarnlink/menu.json").find("Here"), std::string::npos);
    EXPECT_TRUE(makeHTTPClient(*platform)->ephemeral(1));
}

} // namespace
} // namespace tarn
