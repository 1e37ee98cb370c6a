#pragma once

#include "TarnSystem/PackageTool.h"
#include "TarnSystem/ProcessLauncher.h"

#include <string>
#include <vector>

namespace tarn {

/// Packages of Debian's format, by dpkg-deb(1) and apt-get(8). apt refuses before it changes anything when
/// the package needs others that are not installed, conflicts with one, or is older than what is installed.
class DebianPackages : public PackageTool {
public:
    /// `processes` must outlive this. `options` are further ones for apt-get.
    explicit DebianPackages(ProcessLauncher &processes, std::vector<std::string> options = {})
        : processes_(processes), options_(std::move(options)) {}

    std::string productName() const override { return "tarnlink"; }
    std::string fileExtension() const override { return ".deb"; }
    std::string machineArchitecture() override;
    std::variant<PackageIdentity, std::string> identify(const std::string &path) override;
    std::optional<std::string> install(const std::string &path) override;

private:
    /// The program sees no environment of this process.
    ProcessLauncher::Result run(std::vector<std::string> words);

    ProcessLauncher &processes_;
    std::vector<std::string> options_;
};

} // namespace tarn
