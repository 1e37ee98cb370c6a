// Writes the documents that are made from the table of settings into the source tree; with --check it only
// says which of them differ.

#include "SettingsDocuments.h"
#include "TarnSystem/Files.h"

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t largestFile = 1 << 20;

std::string contents(const std::string &path) {
    const auto file = tarn::files::read(path, largestFile);
    if (!file.contents)
        throw std::runtime_error(path + ": " + file.failure.message);
    return *file.contents;
}

/// Returns whether the file holds the text now.
bool settle(const std::string &path, const std::string &text, bool isCheck) {
    const auto file = tarn::files::read(path, largestFile);
    if (file.contents == text)
        return true;
    if (isCheck) {
        std::fprintf(stderr, "%s differs: run scripts/generate\n", path.c_str());
        return false;
    }
    if (const auto failure = tarn::files::replace(path, text))
        throw std::runtime_error(path + ": " + failure->message);
    std::printf("%s\n", path.c_str());
    return true;
}

} // namespace

int main(int count, char **values) {
    const bool isCheck = count == 3 && std::string_view(values[1]) == "--check";
    if (count != 2 && !isCheck) {
        std::fputs("usage: TarnlinkSettingsDocuments [--check] SOURCE-TREE\n", stderr);
        return 2;
    }
    const std::string root = values[count - 1];
    try {
        namespace documents = tarn::documents;
        const auto frame = contents(root + "/Packaging/Settings/configuration.md.in");
        bool isRight = true;
        for (const auto &[path, text] :
             {std::pair("docs/configuration.md", documents::configurationPage(frame)),
              {"Packaging/managed.json.example", documents::managedExample()},
              {"Packaging/macOS/com.veltrion.tarnlink.plist",
               documents::preferenceManifest(documents::Language::english)},
              {"Packaging/macOS/de/com.veltrion.tarnlink.plist",
               documents::preferenceManifest(documents::Language::german)},
              {"Packaging/macOS/Tarnlink.mobileconfig", documents::configurationProfile()}})
            isRight = settle(root + "/" + path, text, isCheck) && isRight;
        return isRight ? 0 : 1;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "TarnlinkSettingsDocuments: %s\n", error.what());
        return 1;
    }
}
