#include "TarnlinkCtl/StatusText.h"

#include "TarnCore/StatusTitle.h"
#include "TarnCore/Text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <vector>

namespace tarn::statusText {
namespace {

using text::printable;

std::tm local(Date date) {
    const auto seconds = std::chrono::system_clock::to_time_t(
        std::chrono::time_point_cast<std::chrono::system_clock::duration>(date));
    std::tm parts{};
    localtime_r(&seconds, &parts);
    return parts;
}

std::string formatted(const char *format, const std::tm &parts) {
    std::array<char, 64> buffer{};
    return {buffer.data(), std::strftime(buffer.data(), buffer.size(), format, &parts)};
}

/// A number of characters; the columns that need one hold what people do not choose.
std::size_t width(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::count_if(
        text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
}

using Row = std::vector<std::string>;

/// Two blanks between the columns, none after the last.
std::string table(const std::vector<Row> &rows) {
    std::vector<std::size_t> widths;
    for (const auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], width(row[i]));
    }
    std::string lines;
    for (const auto &row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            lines += row[i] + (i + 1 < row.size() ? std::string(widths[i] - width(row[i]) + 2, ' ') : "\n");
    }
    return lines;
}

std::string minutesLeft(Date end, Date now) {
    if (end <= now)
        return "over";
    // The end comes in whole seconds: a pause that has just begun must not look longer than it is.
    const auto minutes = std::max<std::int64_t>(
        1, std::chrono::ceil<std::chrono::minutes>(end - now - std::chrono::seconds(1)).count());
    return std::to_string(minutes) + (minutes == 1 ? " minute left" : " minutes left");
}

} // namespace

std::string describe(const StatusReport &report, Date now) {
    std::string lines = printable(statusTitle(report.status)) + "\n";
    if (!report.reason.empty())
        lines += printable(report.reason) + "\n";

    std::vector<Row> rows;
    if (report.pausedUntil)
        rows.push_back({"Pause", "until " + localTime(*report.pausedUntil, now) + ", " +
                                     minutesLeft(*report.pausedUntil, now)});
    rows.push_back({"Wi-Fi", report.wifiOn ? "on" : report.wifiManuallyOff ? "off (user)" : "off"});
    rows.push_back({"VPN", !report.vpnDevice ? "none"
                           : report.vpnAddress
                               ? printable(*report.vpnDevice) + ", " + printable(*report.vpnAddress)
                               : printable(*report.vpnDevice)});
    rows.push_back({"Protection", report.enabled ? "on" : "off (settings)"});
    rows.push_back({"Tethering while wired", report.tetheringWhileWiredAllowed ? "on" : "off"});
    rows.push_back({"Tethering DNS fix", report.tetheringDNSFix ? "on" : "off"});
    lines += "\n" + table(rows);

    if (report.interfaces.empty())
        return lines + "\nNo interfaces\n";
    // The names that people give come last: nothing has to be aligned to them.
    rows = {{"DEVICE", "KIND", "LINK", "ADDRESS", "SERVICE"}};
    for (const auto &summary : report.interfaces)
        rows.push_back({printable(summary.device), std::string(rawValue(summary.kind)),
                        summary.linkActive ? "up" : "down", printable(summary.address.value_or("-")),
                        printable(summary.serviceName)});
    return lines + "\n" + table(rows);
}

std::string localTime(Date date, Date now) {
    const auto parts = local(date);
    const auto today = local(now);
    const bool isToday = parts.tm_yday == today.tm_yday && parts.tm_year == today.tm_year;
    return formatted(isToday ? "%H:%M" : "%Y-%m-%d %H:%M", parts);
}

std::string printableLines(std::string_view text) {
    std::string lines;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        lines += printable(text.substr(0, end)) + "\n";
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

} // namespace tarn::statusText
