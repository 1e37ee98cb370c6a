#include "TarnSystem/Updates/TLSInterception.h"

#include "TarnCore/Text.h"

#include <algorithm>
#include <array>
#include <memory>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

namespace tarn::TLSInterception {
namespace {

// RFC 5280, appendix A.1: id-at 10 and id-at 3.
constexpr std::string_view organization = "2.5.4.10";
constexpr std::string_view commonName = "2.5.4.3";

// Foundation, NSURLError.h.
constexpr std::int64_t secureConnectionFailed = -1200;
constexpr std::int64_t clientCertificateRequired = -1206;

char lowercase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string dottedForm(const ASN1_OBJECT *type) {
    std::array<char, 80> text{};
    OBJ_obj2txt(text.data(), text.size(), type, 1);
    return text.data();
}

std::string inUTF8(const ASN1_STRING *value) {
    unsigned char *bytes = nullptr;
    const int size = ASN1_STRING_to_UTF8(&bytes, value);
    const std::unique_ptr<unsigned char, void (*)(unsigned char *)> owner(
        bytes, [](unsigned char *p) { OPENSSL_free(p); });
    return size > 0 ? std::string(reinterpret_cast<const char *>(bytes), static_cast<std::size_t>(size)) : "";
}

} // namespace

bool isCertificateFailure(const HTTPError &error) {
    return error.domain == "NSURLErrorDomain" && error.code <= secureConnectionFailed &&
           error.code >= clientCertificateRequired;
}

std::optional<std::string> interceptor(const HTTPError &error) {
    if (error.peerCertificates.empty())
        return std::nullopt;
    return issuerName(error.peerCertificates.front());
}

std::optional<std::string> issuerName(std::string_view certificate) {
    // Whoever else uses the library on this thread finds no error of ours.
    ERR_set_mark();
    const auto *bytes = reinterpret_cast<const unsigned char *>(certificate.data());
    const std::unique_ptr<X509, decltype(&X509_free)> parsed(
        d2i_X509(nullptr, &bytes, static_cast<long>(certificate.size())), X509_free);
    std::vector<Attribute> attributes;
    const X509_NAME *issuer = parsed ? X509_get_issuer_name(parsed.get()) : nullptr;
    for (int i = 0; issuer && i < X509_NAME_entry_count(issuer); ++i) {
        const auto *entry = X509_NAME_get_entry(issuer, i);
        attributes.emplace_back(dottedForm(X509_NAME_ENTRY_get_object(entry)),
                                text::printable(inUTF8(X509_NAME_ENTRY_get_data(entry))));
    }
    ERR_pop_to_mark();
    return name(attributes);
}

std::optional<std::string> name(const std::vector<Attribute> &fromRDNs) {
    const auto value = [&](std::string_view type) -> std::optional<std::string> {
        const auto found = std::ranges::find_if(fromRDNs, [&](const auto &attribute) {
            return attribute.first == type && !attribute.second.empty();
        });
        return found == fromRDNs.end() ? std::nullopt : std::optional(found->second);
    };
    const auto o = value(organization);
    const auto cn = value(commonName);
    if (!o)
        return cn;
    if (!cn || std::ranges::equal(*o, *cn, {}, lowercase, lowercase))
        return o;
    return *o + " (" + *cn + ")";
}

} // namespace tarn::TLSInterception
