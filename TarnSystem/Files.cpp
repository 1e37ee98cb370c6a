#include "TarnSystem/Files.h"

#include "TarnSystem/Descriptor.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tarn::files {
namespace {

constexpr mode_t fileMode = 0644;
constexpr mode_t folderMode = 0755;

Failure failure(int error) {
    return {error == ENOENT || error == ENOTDIR, std::generic_category().message(error)};
}

std::string folderOf(const std::string &path) {
    const auto folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

Descriptor openFolder(const std::string &folder) {
    return Descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool writeAll(int descriptor, std::string_view contents) {
    while (!contents.empty()) {
        const auto written = write(descriptor, contents.data(), contents.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        contents.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace

std::optional<Failure> makeFolder(const std::string &folder) {
    struct stat info{};
    if (stat(folder.c_str(), &info) == 0)
        return std::nullopt;
    if (errno != ENOENT)
        return failure(errno);
    const std::string parent = folderOf(folder);
    if (auto reason = makeFolder(parent))
        return reason;
    if (mkdir(folder.c_str(), folderMode) != 0 && errno != EEXIST)
        return failure(errno);
    const auto opened = openFolder(parent);
    if (!opened || !flushToDisk(opened.get()))
        return failure(errno);
    return std::nullopt;
}

ReadResult read(const std::string &path, std::size_t limit) {
    // Without O_NONBLOCK opening a pipe would wait for somebody who writes to it.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat info{};
    if (!file || fstat(file.get(), &info) != 0)
        return {std::nullopt, failure(errno)};
    if (!S_ISREG(info.st_mode))
        return {std::nullopt, {false, "not a regular file"}};

    // Read to the end, whatever the size says: files of /proc and /sys call themselves empty.
    std::string contents;
    for (;;) {
        constexpr std::size_t step = 4096;
        const auto length = contents.size();
        if (length > limit)
            return {std::nullopt, {false, "larger than " + std::to_string(limit) + " bytes"}};
        contents.resize(length + step);
        const auto count = ::read(file.get(), contents.data() + length, step);
        contents.resize(length + static_cast<std::size_t>(count > 0 ? count : 0));
        if (count == 0)
            return {std::move(contents), {}};
        if (count < 0 && errno != EINTR)
            return {std::nullopt, failure(errno)};
    }
}

std::optional<Failure> replace(const std::string &path, std::string_view contents) {
    const std::string folder = folderOf(path);
    if (auto reason = makeFolder(folder))
        return reason;
    // Opened first, so that after the rename only the disk itself can still fail.
    const auto directory = openFolder(folder);
    std::string aside = path + ".XXXXXX";
    const Descriptor file(directory ? mkostemp(aside.data(), O_CLOEXEC) : -1);
    if (!file)
        return failure(errno);
    const bool isReplaced = fchmod(file.get(), fileMode) == 0 && writeAll(file.get(), contents) &&
                            flushToDisk(file.get()) && rename(aside.c_str(), path.c_str()) == 0;
    if (!isReplaced) {
        const int error = errno;
        unlink(aside.c_str());
        return failure(error);
    }
    // The new name is durable once its folder is.
    if (!flushToDisk(directory.get()))
        return failure(errno);
    return std::nullopt;
}

} // namespace tarn::files
