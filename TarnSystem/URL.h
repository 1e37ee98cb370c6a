#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// An absolute address (RFC 3986). Kept as it was written: nothing is normalised, so the
/// scheme is compared letter by letter.
class URL {
public:
    /// None when the text has no scheme, a character that an address may not hold, a broken
    /// percent escape or a broken port, or when an http or https address names no host (RFC 9110,
    /// section 4.2).
    static std::optional<URL> parse(std::string_view text);

    const std::string &absoluteString() const { return text_; }
    std::string_view scheme() const { return std::string_view(text_).substr(0, schemeLength_); }
    /// Without user and port, brackets kept; empty when there is no authority.
    std::string_view host() const { return std::string_view(text_).substr(hostStart_, hostLength_); }

    friend bool operator==(const URL &a, const URL &b) { return a.text_ == b.text_; }

private:
    URL() = default;

    std::string text_;
    std::size_t schemeLength_ = 0;
    std::size_t hostStart_ = 0;
    std::size_t hostLength_ = 0;
};

} // namespace tarn
