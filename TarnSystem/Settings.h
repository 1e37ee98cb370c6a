#pragma once

#include "TarnCore/Value.h"
#include "TarnSystem/DaemonConfig.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <variant>

namespace tarn {

/// A preference key: what it may hold and what it is of a configuration.
///
/// Thread: any one, everything is constant.
struct Setting {
    enum class Type {
        truth,        ///< true or false; of a number, whether it is not zero.
        word,         ///< One of a few words, letter by letter.
        text,         ///< Any text.
        httpsAddress, ///< An absolute address whose scheme is exactly "https".
        seconds,      ///< A number, with or without a fraction.
        count,        ///< A whole number; a fraction is cut off.
    };
    /// Both ends belong to it.
    struct Range {
        std::int64_t lowest;
        std::int64_t highest;
    };
    /// The words of a field, and how it is read and set. `set` gets one of the words.
    struct Words {
        std::span<const std::string_view> all;
        std::string_view (*get)(const DaemonConfig &config);
        void (*set)(DaemonConfig &config, std::string_view word);
    };
    /// What it is of a configuration; the alternatives stand in the order of the types.
    using Field = std::variant<bool DaemonConfig::*, Words, std::string DaemonConfig::*, URL DaemonConfig::*,
                               double DaemonConfig::*, std::int64_t DaemonConfig::*>;

    const char *key;
    Field field;
    std::optional<Range> range = std::nullopt;
    /// The key of the same field that this one is the older name of; where both are set, this one counts.
    const char *olderNameOf = nullptr;

    Type type() const { return static_cast<Type>(field.index()); }
    /// Empty but for a word.
    std::span<const std::string_view> words() const;
    /// What a configuration has, as it is written down. Its default is what a new one has.
    Value value(const DaemonConfig &config) const;
    /// Takes over a value. One that this setting does not accept changes nothing, and false is returned.
    bool apply(const Value &value, DaemonConfig &config) const;
};

namespace settings {

inline constexpr const char *tetheringWhileWired = "TetheringWhileWired";
inline constexpr const char *tetheringDNSFix = "TetheringDNSFix";
inline constexpr const char *splitDNSFix = "SplitDNSFix";

/// Every setting, in the order in which they are read: of two that have the same field the later one counts.
std::span<const Setting> all();

} // namespace settings
} // namespace tarn
