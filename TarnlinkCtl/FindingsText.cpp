#include "TarnlinkCtl/FindingsText.h"

#include "TarnCore/Text.h"
#include "TarnSystem/Json.h"

namespace tarn::findingsText {

std::string describe(const std::vector<doctor::Finding> &findings, const std::vector<std::string> &notSeen) {
    std::string lines = findings.empty() ? "Nothing found.\n" : "";
    for (const auto &finding : findings)
        lines += text::printable(finding.line) + "\n    " + text::printable(finding.remedy) + "\n";
    for (const auto &what : notSeen)
        lines += "Not seen: " + what + "\n";
    return lines;
}

std::string encode(const std::vector<doctor::Finding> &findings, const std::vector<std::string> &notSeen) {
    Value::Array list;
    for (const auto &finding : findings)
        list.emplace_back(
            Value::Dictionary{{"id", finding.id}, {"finding", finding.line}, {"remedy", finding.remedy}});
    return json::serialize(
               Value::Dictionary{{"findings", std::move(list)}, {"notSeen", Value::strings(notSeen)}}) +
           "\n";
}

} // namespace tarn::findingsText
