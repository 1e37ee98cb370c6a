#include "TarnlinkDaemon/History.h"

#include "TarnCore/DateText.h"
#include "TarnCore/Text.h"
#include "TarnSystem/Json.h"
#include "TarnlinkDaemon/Coding.h"

#include <algorithm>
#include <variant>

namespace tarn {
namespace coding {

template <class Archive> void fields(Archive &archive, Is<HistoryEntry> auto &entry) {
    archive("number", entry.number);
    archive("time", entry.time);
    archive("cause", entry.cause);
    archive("status", entry.status);
    archive("reason", entry.reason);
    archive("done", entry.done);
}

/// What was done for an entry that has a line already.
struct Done {
    std::uint64_t number = 0;
    std::string done;
};

template <class Archive> void fields(Archive &archive, Is<Done> auto &line) {
    archive("number", line.number);
    archive("done", line.done);
}

} // namespace coding

namespace {

constexpr std::size_t mostLines = 4 * History::mostEntries;
/// Up to here every program reads an integer of a JSON document as it stands (RFC 8259, section 6).
constexpr std::uint64_t highestNumber = (std::uint64_t{1} << 53) - 1;

HistoryEntry *find(std::deque<HistoryEntry> &entries, std::uint64_t number) {
    const auto found = std::ranges::lower_bound(entries, number, {}, &HistoryEntry::number);
    return found == entries.end() || found->number != number ? nullptr : &*found;
}

void keepLast(std::deque<HistoryEntry> &entries) {
    while (entries.size() > History::mostEntries)
        entries.pop_front();
}

void keepLast(std::vector<std::string> &done) {
    if (done.size() > History::mostDone)
        done.erase(done.begin(), done.end() - History::mostDone);
}

void load(const Value &line, std::deque<HistoryEntry> &entries) {
    const Value *done = line.find("done");
    if (done && done->string()) {
        auto addition = coding::decode<coding::Done>(line);
        if (auto *entry = find(entries, addition.number)) {
            entry->done.push_back(std::move(addition.done));
            keepLast(entry->done);
        }
        return;
    }
    auto entry = coding::decode<HistoryEntry>(line);
    const auto last = entries.empty() ? 0 : entries.back().number;
    if (entry.number <= last || entry.number > highestNumber)
        return;
    keepLast(entry.done);
    entries.push_back(std::move(entry));
    keepLast(entries);
}

std::string asLine(const Value &value) {
    return json::serialize(value) + "\n";
}

} // namespace

History::History(std::string_view fileContents) {
    const bool isTorn = !fileContents.empty() && !fileContents.ends_with('\n');
    while (const auto line = text::nextPiece(fileContents, '\n')) {
        ++lines_;
        const auto document = json::parse(*line);
        try {
            if (const auto *value = std::get_if<Value>(&document))
                load(*value, entries_);
        } catch (const DecodingError &) {
            // Left out.
        }
    }
    // What is appended to half a line would be lost with it.
    if (isTorn)
        lines_ = mostLines;
}

HistoryWrite History::add(HistoryEntry entry) {
    keepLast(entry.done);
    entries_.push_back(std::move(entry));
    keepLast(entries_);
    return write(coding::encode(entries_.back()));
}

HistoryWrite History::addDone(std::uint64_t number, std::string what) {
    auto *entry = find(entries_, number);
    if (!entry)
        return {};
    const auto line = coding::encode(coding::Done{number, what});
    entry->done.push_back(std::move(what));
    keepLast(entry->done);
    return write(line);
}

HistoryWrite History::write(const Value &line) {
    if (++lines_ <= mostLines)
        return {false, asLine(line)};
    HistoryWrite whole{true, {}};
    for (const auto &entry : entries_)
        whole.text += asLine(coding::encode(entry));
    lines_ = entries_.size();
    return whole;
}

std::string asText(const HistoryEntry &entry) {
    std::string line =
        dates::text(Date(entry.time)) + " " + entry.status + ": " + entry.reason + " [" + entry.cause + "]";
    const char *separator = " - ";
    for (const auto &what : entry.done) {
        line += separator + what;
        separator = "; ";
    }
    return text::printable(line);
}

} // namespace tarn
