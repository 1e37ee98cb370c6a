#include "Platform/Linux/ResourceStrings.h"

#include "TarnSystem/Files.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tarn {
namespace {

constexpr std::size_t largestFile = 1 << 20;

/// The first of the locale variables that is set counts (locale(7)).
std::string language() {
    for (const char *name : {"LC_ALL", "LC_MESSAGES", "LANG"})
        if (const char *value = std::getenv(name); value && *value)
            return std::string(value).starts_with("de") ? "de" : "en";
    return "en";
}

} // namespace

std::string ResourceStrings::localized(std::string_view key) const {
    std::call_once(isRead_, [this] {
        std::error_code error;
        const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
        const auto path = program.parent_path().parent_path() / "share" / "tarnlink" /
                          (language() + ".lproj") / "Localizable.strings";
        const auto file = files::read(path.string(), largestFile);
        table_ = StringTable::parse(file.contents.value_or("")).value_or(StringTable());
    });
    return table_.localized(key);
}

} // namespace tarn
