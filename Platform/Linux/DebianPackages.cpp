#include "Platform/Linux/DebianPackages.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>
#include <utility>

namespace tarn {
namespace {

constexpr std::size_t mostWords = 1000;

/// What a program that failed said at the end: dpkg tells some of it on its standard output.
std::string lastWords(const ProcessLauncher::Result &result) {
    if (result.launchError)
        return *result.launchError;
    auto words = result.standardOutput + result.standardError;
    while (words.ends_with('\n'))
        words.pop_back();
    if (words.empty())
        return "status " + std::to_string(result.status);
    return words.size() > mostWords ? words.substr(words.size() - mostWords) : words;
}

bool hasFailed(const ProcessLauncher::Result &result) {
    return result.launchError || result.status != 0;
}

} // namespace

ProcessLauncher::Result DebianPackages::run(std::vector<std::string> words) {
    std::vector<std::string> arguments = {"-i",
                                          "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                                          "LC_ALL=C.UTF-8", "DEBIAN_FRONTEND=noninteractive"};
    std::move(words.begin(), words.end(), std::back_inserter(arguments));
    return processes_.run("/usr/bin/env", arguments);
}

std::string DebianPackages::machineArchitecture() {
    const auto result = run({"/usr/bin/dpkg", "--print-architecture"});
    return hasFailed(result) ? "" : result.standardOutput.substr(0, result.standardOutput.find('\n'));
}

std::variant<PackageIdentity, std::string> DebianPackages::identify(const std::string &path) {
    const auto result = run({"/usr/bin/dpkg-deb", "--field", path, "Package", "Version", "Architecture"});
    if (hasFailed(result))
        return lastWords(result);
    std::map<std::string, std::string> fields;
    std::istringstream lines(result.standardOutput);
    for (std::string line; std::getline(lines, line);)
        if (const auto colon = line.find(": "); colon != std::string::npos)
            fields.emplace(line.substr(0, colon), line.substr(colon + 2));
    PackageIdentity identity{fields["Package"], fields["Version"]};
    // The word of the format for every machine (deb-control(5)).
    if (const auto &architecture = fields["Architecture"]; architecture != "all")
        identity.architectures = {architecture};
    return identity;
}

std::optional<std::string> DebianPackages::install(const std::string &path) {
    // Without sources nothing but this file can be fetched or installed; without a cache of its own it leaves
    // no trace of that.
    std::vector<std::string> words = {"/usr/bin/apt-get", "--quiet=2", "--yes", "--no-remove"};
    for (const char *option :
         {"Dir::Etc::SourceList=/dev/null", "Dir::Etc::SourceParts=/dev/null",
          "Dir::Cache::PkgCache=", "Dir::Cache::SrcPkgCache=", "APT::Sandbox::User=root",
          "DPkg::Lock::Timeout=120", "DPkg::Options::=--force-confdef", "DPkg::Options::=--force-confold"})
        words.insert(words.end(), {"-o", option});
    words.insert(words.end(), options_.begin(), options_.end());
    words.insert(words.end(), {"install", path});
    const auto result = run(std::move(words));
    return hasFailed(result) ? std::optional(lastWords(result)) : std::nullopt;
}

} // namespace tarn
