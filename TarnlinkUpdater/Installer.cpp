#include "TarnlinkUpdater/Installer.h"

#include "TarnCore/Status.h"
#include "TarnCore/Text.h"
#include "TarnSystem/Files.h"
#include "TarnSystem/Json.h"
#include "TarnlinkUpdater/PackageFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <variant>

namespace tarn {
namespace {

// As the checker's.
constexpr double feedTimeout = 8;

std::runtime_error unusable(const std::string &folder, const std::string &why) {
    return std::runtime_error(folder + " cannot be used: " + why);
}

/// Makes sure that the folder is ours, and this process the only one that uses it.
Descriptor take(const std::string &folder) {
    if (const auto failure = files::makeFolder(folder))
        throw unusable(folder, failure->message);
    struct stat info{};
    if (lstat(folder.c_str(), &info) != 0)
        throw unusable(folder, std::generic_category().message(errno));
    if (!S_ISDIR(info.st_mode) || info.st_uid != geteuid() || (info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        throw unusable(folder, "others can write there");
    // Everybody may open the folder, but this file nobody else: he could lock it, and keep it.
    Descriptor lock(open((folder + "/lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!lock)
        throw unusable(folder, std::generic_category().message(errno));
    while (flock(lock.get(), LOCK_EX) != 0)
        if (errno != EINTR)
            throw unusable(folder, std::generic_category().message(errno));
    return lock;
}

/// Where the package is meanwhile: empty at first, gone in the end.
class Incoming {
public:
    explicit Incoming(std::string path) : path_(std::move(path)) {
        // What a process left that was killed.
        remove();
        if (mkdir(path_.c_str(), S_IRWXU) != 0)
            throw Refusal("failed.copy",
                          "There is no room for the package: " + std::generic_category().message(errno));
    }
    Incoming(const Incoming &) = delete;
    Incoming &operator=(const Incoming &) = delete;
    ~Incoming() { remove(); }

private:
    void remove() const {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::string path_;
};

/// A request that is there, whatever it is: it must not be found again.
class Found {
public:
    explicit Found(std::string path) : path_(std::move(path)) {}
    Found(const Found &) = delete;
    Found &operator=(const Found &) = delete;
    ~Found() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }

    void remove() const {
        if (std::error_code error; !std::filesystem::remove(path_, error) && error)
            throw std::runtime_error(path_ + " cannot be removed: " + error.message());
    }

private:
    const std::string path_;
};

Value parse(const std::string &text) {
    auto parsed = json::parse(text);
    if (auto *value = std::get_if<Value>(&parsed))
        return std::move(*value);
    throw DecodingError(DecodingError::Kind::dataCorrupted, std::get<json::SyntaxError>(parsed).message);
}

std::string quoted(const std::string &text) {
    return "\"" + text + "\"";
}

Refusal refusal(const UpdateFeedError &error) {
    using Kind = UpdateFeedError::Kind;
    switch (error.kind()) {
    case Kind::badSignature:
        return {"refused.signature", error.description()};
    case Kind::badManifest:
    case Kind::unsupportedURL:
        return {"refused.manifest", error.description()};
    case Kind::http:
    case Kind::transport:
        break;
    }
    return {"failed.feed", "The manifest cannot be fetched: " + error.description()};
}

} // namespace

Task<void> Installer::run(std::string requestPath) {
    struct stat info{};
    if (lstat(requestPath.c_str(), &info) != 0 && errno == ENOENT)
        co_return;
    // From here on it goes whatever happens: one that stays would start this again and again.
    const Found found(requestPath);
    const auto lock = take(services_.folder);
    // Another process may have dealt with it meanwhile.
    if (lstat(requestPath.c_str(), &info) != 0 && errno == ENOENT)
        co_return;
    std::optional<Incoming> incoming;
    try {
        incoming.emplace(services_.folder + "/" + incomingName);
        UpdateRequest request;
        try {
            PackageFile file(requestPath, "refused.request");
            request = UpdateRequest::decode(parse(file.contents(UpdateRequest::mostBytes)));
        } catch (const DecodingError &error) {
            throw Refusal("refused.request", "The request cannot be read: " + error.description());
        }
        outcome_.id = request.id;
        // In this order: whoever finds no request finds its outcome.
        tell(true, "copying", "The update is being looked at.");
        found.remove();
        auto installing = install(std::move(request));
        co_await installing;
    } catch (const Refusal &refusal) {
        // First: what is told may need its room.
        incoming.reset();
        tell(false, refusal.code(), refusal.description());
        found.remove();
    }
}

Task<void> Installer::install(UpdateRequest request) {
    // What the manifest alone forbids costs no disk, and nobody learns of a file by it.
    auto deciding = manifest(request);
    const UpdateManifest wanted = co_await deciding;
    outcome_.build = wanted.build;
    judge(wanted);

    PackageFile package(request.pkgPath, "refused.file");
    const auto path = services_.folder + "/" + incomingName + "/package" + services_.packages.fileExtension();
    const auto size = wanted.size
                          ? std::optional(static_cast<std::uint64_t>(std::max<std::int64_t>(*wanted.size, 0)))
                          : std::nullopt;
    const auto copy = package.copyTo(path, size.value_or(UpdateFeed::mostPackageBytes));
    tell(true, "verifying", "The package is being verified.");
    if (size && copy.size != *size)
        throw PackageFile::wrongSize();
    auto sha256 = wanted.sha256;
    std::transform(sha256.begin(), sha256.end(), sha256.begin(), [](char digit) {
        return digit >= 'A' && digit <= 'F' ? static_cast<char>(digit + 32) : digit;
    });
    if (copy.sha256 != sha256)
        throw Refusal("refused.hash", "The package is not the one of the manifest: it has another SHA-256.");
    identify(wanted, path);

    tell(true, "installing", "The package is being installed.");
    if (const auto error = services_.packages.install(path))
        throw Refusal("failed.installer", "The installer failed: " + *error);
    tell(true, "installed", "Version " + wanted.fullVersion() + " is installed.");
}

Task<UpdateManifest> Installer::manifest(const UpdateRequest &request) {
    try {
        if (request.manifest)
            co_return UpdateFeed::verifyAndDecode(*request.manifest, *request.signature,
                                                  services_.feed.publicKey());
        auto fetching = services_.feed.fetch(services_.manifestURL, feedTimeout);
        co_return co_await fetching;
    } catch (const UpdateFeedError &error) {
        throw refusal(error);
    }
}

void Installer::judge(const UpdateManifest &manifest) {
    const auto path = services_.folder + "/" + recordName;
    const auto build = std::to_string(manifest.build);
    const auto record = files::read(path, 1024);
    auto highest = services_.installedBuild;
    if (record.contents || !record.failure.isMissing) {
        const auto parsed = json::parse(record.contents.value_or(""));
        const auto *value = std::get_if<Value>(&parsed);
        const auto *number = value ? value->find("build") : nullptr;
        // Without it an older build could pass for a new one.
        if (!number || !number->integer())
            throw Refusal("failed.record", path +
                                               " cannot be read, and is needed: it tells the highest build "
                                               "ever seen. An administrator can remove it.");
        highest = std::max(highest, *number->integer());
    }
    if (manifest.build > highest) {
        const Value seen(Value::Dictionary{{"build", manifest.build}});
        if (const auto failure = files::replace(path, json::serialize(seen)))
            throw Refusal("failed.record", path + " cannot be written: " + failure->message);
    }
    if (manifest.build <= services_.installedBuild)
        throw Refusal("refused.notNewer", "Build " + build + " is not newer than the installed build " +
                                              std::to_string(services_.installedBuild) + ".");
    // The highest itself may be tried again: an installation can fail.
    if (manifest.build < highest)
        throw Refusal("refused.rollback", "Build " + build + " is older than build " +
                                              std::to_string(highest) +
                                              ", which the vendor has offered before.");
    if (SystemVersion::parse(manifest.minOS) > services_.system)
        throw Refusal("refused.system",
                      "It takes version " + manifest.minOS + " of the system, or a newer one.");
}

void Installer::identify(const UpdateManifest &manifest, const std::string &path) {
    const auto refuse = [](const std::string &why) {
        throw Refusal("refused.package", "The package is not an update for this machine: " + why + ".");
    };
    auto &packages = services_.packages;
    const auto found = packages.identify(path);
    if (const auto *error = std::get_if<std::string>(&found))
        return refuse(*error);
    const auto &is = std::get<PackageIdentity>(found);
    if (is.components != 1)
        return refuse("it holds " + std::to_string(is.components) + " packages");
    if (!is.foreign.empty())
        return refuse("it asks for another package, " + quoted(is.foreign));
    if (is.name != packages.productName())
        return refuse("it is " + quoted(is.name));
    if (is.version != manifest.fullVersion())
        return refuse("its version is " + quoted(is.version) + " and not " + quoted(manifest.fullVersion()));
    const auto &machines = is.architectures;
    const auto machine = packages.machineArchitecture();
    if (!machines.empty() && std::find(machines.begin(), machines.end(), machine) == machines.end())
        return refuse("its programs are not for " + quoted(machine));
}

void Installer::tell(bool ok, std::string code, std::string message) {
    // Some of it is an installer's, or somebody else's.
    std::replace(message.begin(), message.end(), '\n', ' ');
    message = text::printable(message);
    constexpr std::size_t longest = 4096;
    if (message.size() > longest)
        message = text::withValidUTF8(message.substr(0, longest)) + " [...]";
    services_.log.write(ok ? Log::Level::info : Log::Level::error, "updater", code + ": " + message);
    outcome_.ok = ok;
    outcome_.code = std::move(code);
    outcome_.message = std::move(message);
    const auto path = services_.folder + "/" + UpdateOutcome::fileName;
    if (const auto failure = files::replace(path, json::serialize(outcome_.encoded())))
        throw std::runtime_error(path + " cannot be written: " + failure->message);
}

} // namespace tarn
