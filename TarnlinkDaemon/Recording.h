#pragma once

#include "TarnlinkDaemon/Guard.h"

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// What a guard was told and what it decided, as lines of JSON: everything that is needed to go
/// through it again on another machine.
namespace tarn::recording {

/// Both without a line's end.
std::string asLine(const Input &input);
std::string asLine(const Decision &decision);

/// Throws DecodingError for a line that asLine(Input) does not write.
Input inputFromLine(std::string_view line);

/// Tells the inputs of a recording to a guard, line by line, and hands each decision's line to `print`.
/// Lines of decisions, each behind the input that led to it, are compared with what this guard decides.
/// With the first input of a daemon begins another guard.
class Replay {
public:
    explicit Replay(std::function<void(const std::string &line)> print) : print_(std::move(print)) {}

    /// Throws DecodingError for a line that is no input and no decision, and for what stands before the
    /// first input of a daemon.
    void take(std::string_view line);
    /// How many recorded decisions were not made again as they stand there, or made but not recorded.
    /// The last ones may be missing where the recording was cut off: they do not count.
    std::size_t differences() const { return differences_; }

private:
    std::function<void(const std::string &line)> print_;
    /// None before the first input.
    std::optional<Guard> guard_;
    /// Made since the last input, without their recorded lines as yet.
    std::deque<std::string> decided_;
    std::size_t differences_ = 0;
};

} // namespace tarn::recording
