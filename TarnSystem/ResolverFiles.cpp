#include "TarnSystem/ResolverFiles.h"

#include "TarnCore/Text.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace tarn {
namespace {

std::optional<std::string_view> nextLine(std::string_view &rest) {
    if (rest.empty())
        return std::nullopt;
    const auto end = rest.find('\n');
    const auto line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return line;
}

/// Blank-separated words; a quoted one keeps what is between the quotes.
std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> list;
    for (;;) {
        text.remove_prefix(std::min(text.find_first_not_of(" \t\r"), text.size()));
        if (text.empty())
            return list;
        const bool isQuoted = text.front() == '"';
        if (isQuoted)
            text.remove_prefix(1);
        const auto end = std::min(text.find_first_of(isQuoted ? "\"" : " \t\r"), text.size());
        list.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + (isQuoted ? 1 : 0), text.size()));
    }
}

std::vector<std::string> pieces(std::string_view text, char separator) {
    std::vector<std::string> list;
    while (const auto piece = text::nextPiece(text, separator))
        list.emplace_back(*piece);
    return list;
}

/// Lines of the form KEY=VALUE; '#' starts a comment.
std::optional<DHCPLease> parseKeyedLease(std::string_view text) {
    DHCPLease lease;
    while (const auto line = nextLine(text)) {
        if (line->starts_with("ADDRESS="))
            lease.address = line->substr(8);
        else if (line->starts_with("DNS="))
            lease.dnsServers = pieces(line->substr(4), ' ');
    }
    if (!IPAddress::parse(lease.address))
        return std::nullopt;
    return lease;
}

/// "4 2026/11/21 12:30:00" in UTC, "epoch 1795264200", or "never".
std::optional<std::int64_t> parseExpiry(const std::vector<std::string> &statement) {
    if (statement.size() >= 3 && statement[1] == "epoch")
        return text::parseInteger(statement[2]);
    if (statement.size() < 4)
        return std::nullopt;
    std::vector<std::int64_t> numbers;
    for (const auto &list : {pieces(statement[2], '/'), pieces(statement[3], ':')})
        for (const auto &piece : list)
            numbers.push_back(text::parseInteger(piece).value_or(-1));
    if (numbers.size() != 6 || std::ranges::any_of(numbers, [](auto n) { return n < 0 || n > 9999; }))
        return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(numbers[0])),
                                           std::chrono::month(static_cast<unsigned>(numbers[1])),
                                           std::chrono::day(static_cast<unsigned>(numbers[2]))};
    if (!date.ok())
        return std::nullopt;
    const auto days = std::chrono::sys_days(date).time_since_epoch().count();
    return std::int64_t{days} * 86400 + numbers[3] * 3600 + numbers[4] * 60 + numbers[5];
}

void keepLast(std::vector<DHCPLease> &leases, DHCPLease lease) {
    if (!IPAddress::parse(lease.address) || lease.device.empty())
        return;
    std::erase_if(leases, [&](const DHCPLease &earlier) { return earlier.device == lease.device; });
    leases.push_back(std::move(lease));
}

/// One statement a line, as dhclient writes its file: newer leases are appended.
std::vector<DHCPLease> parseDhclientLeases(std::string_view text) {
    std::vector<DHCPLease> leases;
    std::optional<DHCPLease> open;
    while (const auto line = nextLine(text)) {
        auto statement = words(line->substr(0, line->find(';')));
        if (statement.empty())
            continue;
        const auto &keyword = statement.front();
        if (keyword == "lease" && line->find('{') != std::string_view::npos) {
            open.emplace();
        } else if (keyword == "}") {
            if (open)
                keepLast(leases, *std::move(open));
            open.reset();
        } else if (!open || statement.size() < 2) {
            continue;
        } else if (keyword == "interface") {
            open->device = statement[1];
        } else if (keyword == "fixed-address") {
            open->address = statement[1];
        } else if (keyword == "option" && statement[1] == "domain-name-servers") {
            for (std::size_t i = 2; i < statement.size(); ++i)
                for (auto &server : pieces(statement[i], ','))
                    open->dnsServers.push_back(std::move(server));
        } else if (keyword == "expire") {
            open->expires = parseExpiry(statement);
        }
    }
    return leases;
}

/// NetworkManager's own client: "internal-UUID-DEVICE.lease".
std::optional<std::string> deviceOfInternalLease(std::string_view fileName) {
    constexpr std::string_view prefix = "internal-";
    constexpr std::string_view suffix = ".lease";
    constexpr std::size_t start = prefix.size() + 37; // a UUID and a dash
    if (!fileName.starts_with(prefix) || !fileName.ends_with(suffix) ||
        fileName.size() <= start + suffix.size())
        return std::nullopt;
    return std::string(fileName.substr(start, fileName.size() - start - suffix.size()));
}

/// systemd-networkd: the interface index alone.
std::optional<unsigned> linkIndexOfLease(std::string_view fileName) {
    const auto index = text::parseInteger(fileName);
    if (!index || *index <= 0 || *index > INT32_MAX)
        return std::nullopt;
    return static_cast<unsigned>(*index);
}

} // namespace

std::vector<std::string> resolvConfServers(std::string_view text) {
    std::vector<std::string> servers;
    while (const auto line = nextLine(text)) {
        // The keyword starts the line.
        const auto statement = line->starts_with("nameserver") ? words(*line) : std::vector<std::string>();
        if (statement.size() >= 2 && statement[0] == "nameserver")
            servers.push_back(statement[1]);
    }
    return servers;
}

bool isLeaseFile(std::string_view fileName) {
    return fileName.starts_with("dhclient") || deviceOfInternalLease(fileName) || linkIndexOfLease(fileName);
}

std::vector<DHCPLease> leasesInFile(std::string_view fileName, std::string_view text) {
    if (fileName.starts_with("dhclient"))
        return parseDhclientLeases(text);
    auto lease = parseKeyedLease(text);
    if (!lease)
        return {};
    lease->device = deviceOfInternalLease(fileName).value_or("");
    lease->linkIndex = linkIndexOfLease(fileName).value_or(0);
    return {*std::move(lease)};
}

} // namespace tarn
