#include "TarnlinkMenu/MenuApp/PreviewCommand.h"

#include "Platform/Platform.h"
#include "TarnCore/Text.h"
#include "TarnlinkMenu/Previews.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace tarn {
namespace {

constexpr int exitUsage = 2;
constexpr const char *help = R"(Usage: TarnlinkMenu --list-scenarios
       TarnlinkMenu --render-preview --scenario NAME --output FILE.png [OPTION]...
       TarnlinkMenu --render-preview --scenario all --output FOLDER [OPTION]...
Draws what the application shows, with sample data.

  --appearance light|dark    light by default
  --language en|de           the environment's by default
  --scale 1|2|3              pixels to a point, 1 by default
)";

struct Request {
    std::string scenario, output, appearance = "light", language, scale = "1";

    bool isGood() const {
        return !scenario.empty() && !output.empty() && (appearance == "light" || appearance == "dark") &&
               (language.empty() || language == "en" || language == "de") && scale.size() == 1 &&
               scale >= "1" && scale <= "3";
    }
};

std::optional<Request> parse(const std::vector<std::string> &words) {
    Request request;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--render-preview")
            continue;
        auto *value = words[i] == "--scenario"     ? &request.scenario
                      : words[i] == "--output"     ? &request.output
                      : words[i] == "--appearance" ? &request.appearance
                      : words[i] == "--language"   ? &request.language
                      : words[i] == "--scale"      ? &request.scale
                                                   : nullptr;
        if (!value || i + 1 == words.size())
            return std::nullopt;
        *value = words[++i];
    }
    return request.isGood() ? std::optional(request) : std::nullopt;
}

void write(const std::filesystem::path &path, const std::string &bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        throw std::runtime_error("cannot write " + path.string());
}

void render(const Request &request) {
    if (!request.language.empty())
        setenv("LC_ALL", request.language.c_str(), 1);
    const auto platform = makePlatform();
    const auto renderer = makePreviewRenderer(request.appearance == "dark", request.scale[0] - '0');
    if (!renderer)
        throw std::runtime_error("this build has no windows to draw");
    const bool isAll = request.scenario == "all";
    if (isAll)
        std::filesystem::create_directories(request.output);
    for (const auto &name : isAll ? previews::names() : std::vector{request.scenario}) {
        const auto content = previews::make(name, platform->strings());
        if (!content)
            throw std::runtime_error("there is no scenario \"" + name + "\"; see --list-scenarios");
        const auto picture = renderer->png(*content);
        if (picture.empty())
            throw std::runtime_error("the system could not draw \"" + name + "\"");
        write(isAll ? std::filesystem::path(request.output) / (name + ".png")
                    : std::filesystem::path(request.output),
              picture);
    }
}

} // namespace

std::optional<int> runPreviewCommand(const std::vector<std::string> &words) {
    const auto has = [&](const char *word) { return std::ranges::find(words, word) != words.end(); };
    if (words.size() == 1 && has("--list-scenarios")) {
        for (const auto &name : previews::names())
            std::printf("%s\n", name.c_str());
        return std::fflush(stdout) == 0 ? 0 : 1;
    }
    if (!has("--render-preview") && !has("--list-scenarios"))
        return std::nullopt;
    const auto request = parse(words);
    if (!request) {
        std::fputs(help, stderr);
        return exitUsage;
    }
    try {
        render(*request);
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "TarnlinkMenu: %s\n", text::printable(error.what()).c_str());
        return 1;
    }
}

} // namespace tarn
