#pragma once

#include "TarnSystem/PackageTool.h"
#include "TarnSystem/ProcessLauncher.h"

namespace tarn {

/// Installer packages: component packages, and product archives of one component.
///
/// Ownership: the launcher must outlive this.
class MacPackages final : public PackageTool {
public:
    explicit MacPackages(ProcessLauncher &processes) : processes_(processes) {}

    std::string productName() const override;
    std::string fileExtension() const override { return ".pkg"; }
    std::string machineArchitecture() override;
    /// Needs room for the package once more in its folder.
    std::variant<PackageIdentity, std::string> identify(const std::string &path) override;
    std::optional<std::string> install(const std::string &path) override;

private:
    ProcessLauncher &processes_;
};

} // namespace tarn
