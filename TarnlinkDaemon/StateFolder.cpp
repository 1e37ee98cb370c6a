#include "TarnlinkDaemon/StateFolder.h"

#include "TarnSystem/Files.h"

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarn {
namespace {

constexpr std::size_t largestFile = std::size_t{16} << 20;
constexpr mode_t fileMode = 0644;
// Whoever has not looked at so many will not miss one more.
constexpr unsigned mostCopies = 20;

std::string words(int error) {
    return std::generic_category().message(error);
}

bool isMissing(int error) {
    return error == ENOENT || error == ENOTDIR;
}

Descriptor openFolder(const std::string &path) {
    return Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// 0 or the system's error number.
int writeWhole(int file, std::string_view contents) {
    while (!contents.empty()) {
        const auto count = write(file, contents.data(), contents.size());
        if (count < 0 && errno != EINTR)
            return errno;
        contents.remove_prefix(static_cast<std::size_t>(count > 0 ? count : 0));
    }
    return 0;
}

} // namespace

StateFolder::ReadResult DiskFolder::read(const std::string &name) {
    auto file = files::read(path_ + "/" + name, largestFile);
    const bool isUnreadable = !file.contents && !file.failure.isMissing;
    return {std::move(file.contents), isUnreadable ? std::move(file.failure.message) : std::string()};
}

std::optional<std::string> DiskFolder::replace(const std::string &name, std::string_view contents) {
    auto failure = files::replace(path_ + "/" + name, contents);
    return failure ? std::optional(std::move(failure->message)) : std::nullopt;
}

std::optional<std::string> DiskFolder::append(const std::string &name, std::string_view contents) {
    const auto path = path_ + "/" + name;
    const Descriptor file(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, fileMode));
    struct stat before{};
    if (!file || fstat(file.get(), &before) != 0)
        return words(errno);
    const int error = writeWhole(file.get(), contents);
    if (error == 0)
        return std::nullopt;
    // On a disk that became full a part is there, and would run together with what comes next.
    if (ftruncate(file.get(), before.st_size) != 0)
        return words(error) + "; a part of it is there: " + words(errno);
    return words(error);
}

std::optional<std::string> DiskFolder::remove(const std::string &name) {
    const auto path = path_ + "/" + name;
    // A file system that is read-only refuses also where there is nothing to remove.
    struct stat info{};
    const bool isThere = lstat(path.c_str(), &info) == 0 || !isMissing(errno);
    if (isThere && unlink(path.c_str()) != 0)
        return words(errno);
    // Also when it was gone before: perhaps that has not reached the disk.
    const auto folder = openFolder(path_);
    if (!folder && isMissing(errno))
        return std::nullopt;
    if (!folder || !files::flushToDisk(folder.get()))
        return words(errno);
    return std::nullopt;
}

std::optional<std::string> DiskFolder::keepCopy(const std::string &name) {
    const auto file = read(name);
    if (!file.contents)
        return std::nullopt;
    for (unsigned number = 1; number <= mostCopies; ++number) {
        const auto copy = name + ".damaged-" + std::to_string(number);
        struct stat info{};
        if (lstat((path_ + "/" + copy).c_str(), &info) == 0)
            continue;
        return replace(copy, *file.contents) ? std::nullopt : std::optional(copy);
    }
    return std::nullopt;
}

DiskFolder::Lock DiskFolder::lock() {
    if (folder_)
        return Lock::held;
    files::makeFolder(path_);
    auto folder = openFolder(path_);
    if (!folder) {
        // Asked once more for its reason.
        const bool isMade = mkdir(path_.c_str(), 0700) == 0;
        return !isMade && (errno == EROFS || errno == ENOSPC || errno == EDQUOT) ? Lock::unavailable
                                                                                 : Lock::denied;
    }
    if (flock(folder.get(), LOCK_EX | LOCK_NB) != 0)
        return errno == EWOULDBLOCK ? Lock::taken : Lock::unavailable;
    folder_ = std::move(folder);
    removeUnfinished();
    return Lock::held;
}

void DiskFolder::removeUnfinished() const {
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(path_.c_str()), closedir);
    while (const auto *entry = directory ? readdir(directory.get()) : nullptr) {
        const std::string_view name(entry->d_name);
        // As files::replace() calls them: six characters of mkstemp(3) behind the name.
        const bool isUnfinished =
            name.size() > 7 && name[name.size() - 7] == '.' &&
            (name.starts_with("journal.json.") || name.starts_with("pause.json.") ||
             name.starts_with("history.jsonl.") || name.starts_with("preferences.json.") ||
             name.starts_with("update-request.json."));
        if (isUnfinished)
            unlinkat(dirfd(directory.get()), entry->d_name, 0);
    }
}

} // namespace tarn
