#include "Platform/macOS/MacPackages.h"

#include "Platform/macOS/FoundationText.h"
#include "TarnCore/ApplicationID.h"

#import <Foundation/Foundation.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <system_error>

namespace tarn {
namespace {

/// A new folder beside a file; it goes with all that is in it.
class FolderBeside {
public:
    explicit FolderBeside(const std::filesystem::path &file)
        : path_((file.parent_path() / "expanded.XXXXXX").string()) {
        if (!mkdtemp(path_.data()))
            throw std::system_error(errno, std::generic_category());
    }
    FolderBeside(const FolderBeside &) = delete;
    FolderBeside &operator=(const FolderBeside &) = delete;
    ~FolderBeside() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::filesystem::path path() const { return path_; }

private:
    std::string path_;
};

/// Nil when there is no such file, or no XML in it.
NSXMLElement *_Nullable rootElement(const std::filesystem::path &path) {
    NSString *file = makeNSString(path.string());
    if (!file)
        return nil;
    NSXMLDocument *document = [[NSXMLDocument alloc] initWithContentsOfURL:[NSURL fileURLWithPath:file]
                                                                   options:NSXMLNodeLoadExternalEntitiesNever
                                                                     error:nil];
    return document.rootElement;
}

std::string attribute(NSXMLElement *_Nullable element, NSString *_Nonnull name) {
    return utf8Text([element attributeForName:name].stringValue);
}

NSString *_Nonnull trimmed(NSString *_Nonnull string) {
    return [string stringByTrimmingCharactersInSet:NSCharacterSet.whitespaceAndNewlineCharacterSet];
}

/// Of a product archive's distribution definition ("hostArchitectures", with commas between them).
std::vector<std::string> architectures(NSXMLElement *_Nullable distribution) {
    std::vector<std::string> list;
    for (NSXMLElement *options in [distribution elementsForName:@"options"]) {
        NSString *hosts = [options attributeForName:@"hostArchitectures"].stringValue;
        for (NSString *host in [hosts componentsSeparatedByString:@","])
            list.push_back(utf8Text(trimmed(host)));
    }
    return list;
}

/// What a distribution definition would have installed from elsewhere; its own components begin with "#".
std::optional<std::string> foreignPackage(NSXMLElement *_Nullable distribution) {
    for (NSXMLNode *reference in [distribution nodesForXPath:@"//pkg-ref" error:nil]) {
        NSString *target = reference.stringValue;
        target = target ? trimmed(target) : @"";
        if (target.length > 0 && ![target hasPrefix:@"#"])
            return utf8Text(target);
    }
    return std::nullopt;
}

/// Of a package in the form that pkgutil gives it in a folder.
std::variant<PackageIdentity, std::string> identityIn(const std::filesystem::path &folder) {
    constexpr const char *information = "PackageInfo";
    std::vector<std::filesystem::path> components;
    if (exists(folder / information))
        components.push_back(folder / information);
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        if (entry.is_directory() && exists(entry.path() / information))
            components.push_back(entry.path() / information);
    NSXMLElement *distribution = rootElement(folder / "Distribution");
    PackageIdentity identity{"", "", architectures(distribution), components.size(),
                             foreignPackage(distribution).value_or("")};
    if (components.empty())
        return identity;
    NSXMLElement *package = rootElement(components.front());
    identity.name = attribute(package, @"identifier");
    identity.version = attribute(package, @"version");
    return identity;
}

} // namespace

std::string MacPackages::productName() const {
    return AppInfo::identifier;
}

std::string MacPackages::machineArchitecture() {
    // Not what this program was built for, which may be running in translation.
    int arm = 0;
    std::size_t size = sizeof arm;
    return sysctlbyname("hw.optional.arm64", &arm, &size, nullptr, 0) == 0 && arm != 0 ? "arm64" : "x86_64";
}

std::variant<PackageIdentity, std::string> MacPackages::identify(const std::string &path) {
    @autoreleasepool {
        try {
            const FolderBeside folder(path);
            // pkgutil makes the folder itself, and copies what is to be installed as it is packed.
            const auto expanded = folder.path() / "package";
            const auto result = processes_.run("/usr/sbin/pkgutil", {"--expand", path, expanded.string()});
            if (const auto why = result.complaint())
                return *why;
            return identityIn(expanded);
        } catch (const std::system_error &error) {
            return error.code().message();
        }
    }
}

std::optional<std::string> MacPackages::install(const std::string &path) {
    return processes_.run("/usr/sbin/installer", {"-pkg", path, "-target", "/"}).complaint();
}

} // namespace tarn
