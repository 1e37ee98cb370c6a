#pragma once

#include <span>
#include <string_view>

namespace tarn {

/// A text in the languages that administrators are addressed in, UTF-8.
struct SettingText {
    std::string_view english;
    std::string_view german;
};

/// What administrators are told about a preference key. Kept apart from the settings themselves, so that a
/// program that only reads them carries no prose.
struct SettingTexts {
    struct Word {
        std::string_view word;
        SettingText meaning;
    };

    std::string_view key;
    /// A few words, without a full stop.
    SettingText title;
    /// Sentences: what it does, in which unit, and when one would change it. They stand in tables too, so
    /// without a vertical bar.
    SettingText description;
    /// Each word that the key may hold; empty for other types.
    std::span<const Word> words = {};

    /// Throws std::out_of_range for a key that is none of ours.
    static const SettingTexts &of(std::string_view key);
};

} // namespace tarn
