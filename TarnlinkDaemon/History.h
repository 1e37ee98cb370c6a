#pragma once

#include "TarnCore/Value.h"
#include "TarnSystem/SystemClock.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// One decision, as it is remembered.
struct HistoryEntry {
    std::uint64_t number = 0;
    /// Wall clock, since the beginning of 1970 UTC.
    std::chrono::nanoseconds time{};
    /// What led to it, such as "start" or "eth0 answered".
    std::string cause;
    /// Name of the status, such as "wired".
    std::string status;
    std::string reason;
    /// What was done, each with its result, in order.
    std::vector<std::string> done;

    friend bool operator==(const HistoryEntry &, const HistoryEntry &) = default;
};

/// What is to be done with the file of a history.
struct HistoryWrite {
    /// The text replaces the whole file; otherwise it comes after what is there.
    bool isWhole = false;
    std::string text;
};

/// The last decisions, and what to write so that they survive the daemon: a file of lines, each a JSON
/// object. What cannot be read of it is left out; it never has more than 4,000 lines.
///
/// Thread: one. Errors: none.
class History {
public:
    static constexpr std::size_t mostEntries = 1000;
    /// Of what was done for one entry; the oldest is dropped.
    static constexpr std::size_t mostDone = 100;
    static constexpr const char *fileName = "history.jsonl";

    explicit History(std::string_view fileContents);

    /// Oldest first.
    const std::deque<HistoryEntry> &entries() const { return entries_; }
    /// The number for the next entry; higher than any before.
    std::uint64_t nextNumber() const { return entries_.empty() ? 1 : entries_.back().number + 1; }
    HistoryWrite add(HistoryEntry entry);
    /// Adds to what was done for the entry with this number; an empty write when it is no longer remembered.
    HistoryWrite addDone(std::uint64_t number, std::string what);

private:
    HistoryWrite write(const Value &line);

    std::deque<HistoryEntry> entries_;
    std::size_t lines_ = 0;
};

/// One line for people: local time is not used, UTC is, as in "2026-01-02T03:04:05Z".
std::string asText(const HistoryEntry &entry);

} // namespace tarn
