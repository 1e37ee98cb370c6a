#include "TarnSystem/DNSCacheFlusher.h"

#include <csignal>
#include <system_error>

namespace tarn {

DNSCacheFlushError DNSCacheFlushError::signalFailed(std::int32_t pid, std::int32_t errorNumber) {
    return {Kind::signalFailed, pid, errorNumber,
            "SIGHUP to mDNSResponder (pid " + std::to_string(pid) +
                ") failed: " + std::generic_category().message(errorNumber)};
}

DNSCacheFlushError DNSCacheFlushError::notFound() {
    return {Kind::notFound, 0, 0, "mDNSResponder not running"};
}

std::vector<std::int32_t> DNSCacheFlusher::flush() {
    auto found = pids("mDNSResponder");
    for (const auto pid : found)
        if (const auto error = tables_.sendSignal(pid, SIGHUP); error != 0)
            throw DNSCacheFlushError::signalFailed(pid, error);
    if (found.empty())
        throw DNSCacheFlushError::notFound();
    return found;
}

std::vector<std::int32_t> DNSCacheFlusher::pids(std::string_view name) {
    std::vector<std::int32_t> found;
    for (const auto &process : tables_.processes())
        if (process.command == name)
            found.push_back(process.pid);
    return found;
}

} // namespace tarn
