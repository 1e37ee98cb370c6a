#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// The application's texts in the language of its user.
///
/// Thread: any. Errors: none; a key without a text is its own text.
class LocalizedStrings {
public:
    virtual ~LocalizedStrings() = default;
    virtual std::string localized(std::string_view key) const = 0;
};

/// The content of a `Localizable.strings` file: lines of the form "key" = "text"; with
/// comments, and \" \\ \n \t as escapes.
class StringTable final : public LocalizedStrings {
public:
    StringTable() = default;

    /// None when the text is not of that form.
    static std::optional<StringTable> parse(std::string_view text);

    std::string localized(std::string_view key) const override;
    const std::map<std::string, std::string, std::less<>> &entries() const { return entries_; }

private:
    std::map<std::string, std::string, std::less<>> entries_;
};

} // namespace tarn
