#include "TarnlinkUpdater/PackageFile.h"

#include "TarnSystem/Updates/SHA256.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace tarn {
namespace {

constexpr std::size_t bytesAtOnce = std::size_t{256} << 10;

std::string words(int error) {
    return std::generic_category().message(error);
}

} // namespace

PackageFile::PackageFile(const std::string &path, std::string code)
    : unusable_(std::move(code), "The file cannot be read, or is no regular file.") {
    // Looked at first, because opening a device can do something already.
    struct stat info{};
    if (!path.starts_with('/') || path.find('\0') != std::string::npos || lstat(path.c_str(), &info) != 0 ||
        !S_ISREG(info.st_mode))
        throw unusable_;
    file_ = Descriptor(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file_ || fstat(file_.get(), &info) != 0 || !S_ISREG(info.st_mode))
        throw unusable_;
}

template <class Sink> bool PackageFile::read(std::uint64_t limit, Sink sink) {
    std::vector<char> buffer(bytesAtOnce);
    for (std::uint64_t left = limit;;) {
        const auto count = ::read(file_.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw unusable_;
        if (count == 0)
            return true;
        if (static_cast<std::uint64_t>(count) > left)
            return false;
        left -= static_cast<std::uint64_t>(count);
        sink(std::string_view(buffer.data(), static_cast<std::size_t>(count)));
    }
}

std::string PackageFile::contents(std::uint64_t limit) {
    std::string bytes;
    if (!read(limit, [&](std::string_view piece) { bytes += piece; }))
        throw unusable_;
    return bytes;
}

PackageFile::Copy PackageFile::copyTo(const std::string &path, std::uint64_t limit) {
    const Descriptor copy(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    const auto fail = [&] { throw Refusal("failed.copy", "The package cannot be copied: " + words(errno)); };
    if (!copy)
        fail();
    Copy told;
    SHA256 hash;
    const bool isWhole = read(limit, [&](std::string_view piece) {
        hash.update(piece);
        told.size += piece.size();
        while (!piece.empty()) {
            const auto written = write(copy.get(), piece.data(), piece.size());
            if (written < 0 && errno != EINTR)
                fail();
            piece.remove_prefix(static_cast<std::size_t>(written > 0 ? written : 0));
        }
    });
    if (!isWhole)
        throw wrongSize();
    told.sha256 = hash.finish();
    return told;
}

} // namespace tarn
