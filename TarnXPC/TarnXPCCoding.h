#pragma once

#include "TarnXPC/Records.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace tarn {

/// The form in which records cross the boundary between processes: one JSON object each, dates as in
/// DateText.h. A coder is made for each message; none is shared between threads.
class TarnXPCCoding {
public:
    /// Nothing that a daemon says is longer; longer bytes are refused unread.
    static constexpr std::size_t mostBytes = std::size_t{1} << 20;

    /// Compact; every field under its own name, an absent one left out. Text that is not UTF-8 is
    /// written with U+FFFD in place of what is broken.
    class Encoder {
    public:
        std::string encode(const StatusReport &record) const;
        std::string encode(const PauseResult &record) const;
        std::string encode(const SettingResult &record) const;
        std::string encode(const UpdateResult &record) const;
    };

    /// Lenient about absence, strict about type: a missing key or null is what Records.h says, a value of
    /// another type is an error, unknown keys are ignored.
    class Decoder {
    public:
        using Clock = std::function<Date()>;
        /// `now` tells when a report is read.
        explicit Decoder(Clock now) : now_(std::move(now)) {}

        /// Throws DecodingError, also for what is no JSON (see Json.h) or longer than `mostBytes`.
        template <class Record> Record decode(std::string_view bytes) const;

    private:
        Clock now_;
    };

    static Encoder encoder() { return {}; }
    static Decoder decoder();
    static Decoder decoder(Decoder::Clock now) { return Decoder(std::move(now)); }
};

template <> StatusReport TarnXPCCoding::Decoder::decode<StatusReport>(std::string_view bytes) const;
template <> PauseResult TarnXPCCoding::Decoder::decode<PauseResult>(std::string_view bytes) const;
template <> SettingResult TarnXPCCoding::Decoder::decode<SettingResult>(std::string_view bytes) const;
template <> UpdateResult TarnXPCCoding::Decoder::decode<UpdateResult>(std::string_view bytes) const;

} // namespace tarn
