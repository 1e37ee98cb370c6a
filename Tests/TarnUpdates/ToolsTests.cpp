#include "Support/Words.h"
#include "TarnSystem/Updates/TLSInterception.h"
#include "TarnSystem/Updates/UpdateFeed.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace tarn {
namespace {

class Tools : public testing::Test {
protected:
    const std::filesystem::path folder = [] {
        std::string name = testing::TempDir() + "tools.XXXXXX";
        return std::filesystem::path(mkdtemp(name.data()));
    }();

    ~Tools() override { std::filesystem::remove_all(folder); }

    std::string contents(const std::string &file) const {
        std::ifstream in(folder / file);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    /// What a command says; its exit status, unless that is 0, stands before it.
    std::string run(const std::string &command) const {
        const int status = std::system(
            ("cd " + folder.string() + " && LC_ALL=C.UTF-8 && (" + command + ") >said 2>&1").c_str());
        return (status == 0 ? "" : std::to_string(status >> 8) + " ") + contents("said");
    }
};

TEST_F(Tools, InterceptorIsNamed) {
    // A certificate that is its own issuer, and the name; "-" for none.
    for (const auto &row :
         rows("/O=Example Corp/CN=Inspect CA > Example Corp (Inspect CA); /O=ACME/CN=acme > ACME; "
              "/CN=Inspect CA > Inspect CA; /C=DE/O=Only > Only; /C=DE > -; "
              "/CN=First/CN=Second/OU=x/O=Äpfel GmbH > Äpfel GmbH (First); "
              "/O=two\nlines > two\\u000alines")) {
        const auto [subject, expected] = sides(row);
        ASSERT_EQ(run("openssl req -x509 -newkey ed25519 -nodes -keyout k -utf8 -outform DER -out c -subj '" +
                      subject + "' 2>e"),
                  "");
        const HTTPError error{"NSURLErrorDomain", -1202, "", {contents("c"), "of no interest"}};
        EXPECT_EQ(TLSInterception::interceptor(error).value_or("-"), expected);
    }
    EXPECT_EQ(TLSInterception::interceptor({}), std::nullopt);
    EXPECT_EQ(TLSInterception::issuerName("no certificate"), std::nullopt);
    EXPECT_EQ(TLSInterception::name({{"2.5.4.10", ""}, {"2.5.4.3", "CN"}}), "CN");
    for (const auto &row :
         rows("-1199 > no; -1200 > yes; -1202 > yes; -1206 > yes; -1207 > no; -1001 > no; 60 > no")) {
        const auto [code, expected] = sides(row);
        EXPECT_EQ(TLSInterception::isCertificateFailure({"NSURLErrorDomain", std::stoll(code), ""}),
                  expected == "yes");
        EXPECT_FALSE(TLSInterception::isCertificateFailure({"curl", std::stoll(code), ""}));
    }
}

TEST_F(Tools, SignedManifestIsTheFeeds) {
    const std::string tool = SIGN_MANIFEST " ";
    const auto made = run(tool + "new-key key");
    ASSERT_EQ(made.substr(0, 12), "public key: ");
    const auto key = made.substr(12, 44);
    EXPECT_EQ(std::filesystem::status(folder / "key").permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(run(tool + "new-key key"), "1 sign-manifest: key: already there; a key is never replaced\n");

    std::ofstream(folder / "package") << "0123456789";
    const std::string make =
        tool + "make --key key --package package --version 2.0 --build 12 --min-os 13.0 "
               "--url https://a.example/p%20 --output m --notes https://a.example/n --published today ";
    ASSERT_EQ(run(make), "m: 2.0 (12), for the public key " + key + "\n");
    const auto manifest = contents("m");
    const auto signature = contents("m.sig");
    EXPECT_EQ(UpdateFeed::verifyAndDecode(manifest, signature.substr(0, signature.size() - 1), key),
              (UpdateManifest{"2.0", 12, "13.0", "https://a.example/p%20",
                              UpdateFeed::sha256(folder / "package"), 10, "today", "https://a.example/n"}));
    for (const auto &row : rows("--url http://a.example/p > 1 sign-manifest: url must; --url "
                                "https://a.example/% > 1 sign-manifest: url must; "
                                "--notes http://a.example > 1 sign-manifest: notes must; --build -1 > 1 "
                                "sign-manifest: build must; "
                                "--build 9223372036854775808 > 1 sign-manifest: build must; --min-os ten > 1 "
                                "sign-manifest: minOS must; "
                                "--package nowhere > 1 sign-manifest: nowhere: no package; --key package > 1 "
                                "sign-manifest: package: others; "
                                "--output no/m > 1 cp: ; --size 3 > 2 sign-manifest: --size is no option; "
                                "--build > 2 sign-manifest: --build needs")) {
        const auto [arguments, expected] = sides(row);
        EXPECT_EQ(run(make + arguments).substr(0, expected.size()), expected);
        EXPECT_EQ(contents("m") + contents("m.sig"), manifest + signature) << "what is published stays";
    }
    const std::string verify = tool + "verify --public-key " + key + " m";
    EXPECT_EQ(run(verify).substr(0, 24), "version: 2.0\nbuild: 12\nm");
    EXPECT_EQ(run("sed -i s/12/13/ m; " + verify), "1 sign-manifest: m: manifest signature invalid\n");
}

} // namespace
} // namespace tarn
