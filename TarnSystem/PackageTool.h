#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace tarn {

/// What a package says that it is.
struct PackageIdentity {
    std::string name;
    std::string version;
    /// In the system's words; empty for a package that is for every machine.
    std::vector<std::string> architectures = {};
    /// How many packages the file holds.
    std::size_t components = 1;
    /// A package that it would have fetched from elsewhere; empty for none.
    std::string foreign = {};

    friend bool operator==(const PackageIdentity &, const PackageIdentity &) = default;
};

/// The system's installer.
///
/// Thread: any; calls block until the system's programs have ended.
class PackageTool {
public:
    virtual ~PackageTool() = default;

    /// What this product's package is called on this system.
    virtual std::string productName() const = 0;
    /// How the name of a package's file ends, with its dot.
    virtual std::string fileExtension() const = 0;
    /// The architecture of this machine, in the system's words; empty when it does not tell.
    virtual std::string machineArchitecture() = 0;
    /// Reads what a package says of itself; runs nothing of it. Or why that failed, in a few words.
    virtual std::variant<PackageIdentity, std::string> identify(const std::string &path) = 0;
    /// Installs one package, and no other with it, in place of an older one. Nobody is asked anything, and
    /// configuration files that somebody changed stay. Returns why it failed, in the installer's last words.
    virtual std::optional<std::string> install(const std::string &path) = 0;
};

} // namespace tarn
