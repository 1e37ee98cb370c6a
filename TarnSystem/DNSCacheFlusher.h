#pragma once

#include "TarnSystem/KernelTables.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// The resolver daemon could not be told to drop its cache.
class DNSCacheFlushError : public std::runtime_error {
public:
    enum class Kind {
        signalFailed, ///< A process of it could not be signalled.
        notFound,     ///< It does not run.
    };

    /// `errorNumber` is the system's (errno).
    static DNSCacheFlushError signalFailed(std::int32_t pid, std::int32_t errorNumber);
    static DNSCacheFlushError notFound();

    Kind kind() const { return kind_; }
    /// Both of `signalFailed`, else 0.
    std::int32_t pid() const { return pid_; }
    std::int32_t errorNumber() const { return errorNumber_; }
    /// For people, in English.
    std::string description() const { return what(); }

private:
    DNSCacheFlushError(Kind kind, std::int32_t pid, std::int32_t errorNumber, const std::string &description)
        : std::runtime_error(description), kind_(kind), pid_(pid), errorNumber_(errorNumber) {}

    Kind kind_;
    std::int32_t pid_;
    std::int32_t errorNumber_;
};

/// Makes the system's resolver drop what it has cached.
class DNSCacheFlushing {
public:
    virtual ~DNSCacheFlushing() = default;
    /// The processes signalled, in the order of the process table. Throws DNSCacheFlushError at the
    /// first that refuses; those before it have been signalled.
    virtual std::vector<std::int32_t> flush() = 0;
};

/// Hangs up on mDNSResponder (SIGHUP), at which it drops its cache.
///
/// Thread: any. Ownership: the tables must outlive this.
class DNSCacheFlusher final : public DNSCacheFlushing {
public:
    explicit DNSCacheFlusher(KernelTables &tables) : tables_(tables) {}

    std::vector<std::int32_t> flush() override;
    /// Processes whose short command name is exactly this, in the order of the process table.
    std::vector<std::int32_t> pids(std::string_view name);

private:
    KernelTables &tables_;
};

} // namespace tarn
