#pragma once

#include "TarnSystem/Updates/HTTPClient.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Who stands between this machine and the server, when somebody does: a company's or a café's inspection of
/// TLS names itself as the issuer of the certificate that it shows.
///
/// Thread: any. Errors: none. A name comes from the network and proves nothing.
namespace tarn::TLSInterception {

/// An attribute of a distinguished name: the type's object identifier in dotted form, and the value in UTF-8.
using Attribute = std::pair<std::string, std::string>;

/// Whether an error of the URL loading system says that the server's certificate, the client's, or the secure
/// connection itself was not accepted: NSURLErrorSecureConnectionFailed (-1200) to
/// NSURLErrorClientCertificateRequired (-1206).
bool isCertificateFailure(const HTTPError &error);

/// The issuer's name of the first certificate that the server showed.
std::optional<std::string> interceptor(const HTTPError &error);

/// The issuer's name of an X.509 certificate in DER, fit to stand within one line; none when it has none or
/// is no certificate.
std::optional<std::string> issuerName(std::string_view certificate);

/// Organisation and common name as "O (CN)", or what there is of them. O alone when the two differ at most in
/// the case of ASCII letters. The first of several counts; an empty one does not.
std::optional<std::string> name(const std::vector<Attribute> &fromRDNs);

} // namespace tarn::TLSInterception
