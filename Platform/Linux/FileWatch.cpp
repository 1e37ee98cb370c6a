#include "Platform/Linux/FileWatch.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/inotify.h>
#include <system_error>
#include <utility>

namespace tarn {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t changes = IN_CLOSE_WRITE | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_DELETE_SELF |
                                  IN_MOVE_SELF | IN_MOVED_FROM | IN_MOVED_TO;

// A chain of links that does not end is no path.
constexpr int mostLinks = 8;

} // namespace

FileWatch::FileWatch(EventLoop &loop, std::vector<std::string> paths,
                     std::function<bool(std::string_view)> counts, std::function<void()> changed)
    : paths_(std::move(paths)), counts_(std::move(counts)), changed_(std::move(changed)),
      inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)), ready_([this] { readEvents(); }) {
    if (!inotify_)
        return;
    watchAll();
    source_ = loop.whenReadable(inotify_.get(), ready_);
}

void FileWatch::watchAll() {
    const auto before = std::exchange(interests_, {});
    for (const auto &path : paths_) {
        fs::path next = path;
        for (int link = 0; link < mostLinks && !next.empty(); ++link) {
            watchPath(next);
            // Where a link leads to; that file may be replaced or not be there yet.
            std::error_code error;
            const auto target = fs::read_symlink(next, error);
            next = error ? fs::path() : (next.parent_path() / target).lexically_normal();
        }
    }
    for (const auto &[watch, interest] : before)
        if (!interests_.contains(watch))
            inotify_rm_watch(inotify_.get(), watch);
}

void FileWatch::watchPath(const fs::path &path) {
    const int own = inotify_add_watch(inotify_.get(), path.c_str(), changes);
    if (own >= 0) {
        std::error_code error;
        auto &interest = interests_[own];
        (fs::is_directory(path, error) ? interest.isFolder : interest.isFile) = true;
    }
    // The nearest folder above that is there: what the path leads through may come, go or be replaced.
    for (fs::path entry = path; entry.has_relative_path(); entry = entry.parent_path()) {
        const int above =
            inotify_add_watch(inotify_.get(), entry.parent_path().c_str(), changes | IN_ONLYDIR);
        if (above < 0)
            continue;
        interests_[above].entries.insert(entry.filename());
        break;
    }
}

void FileWatch::readEvents() {
    alignas(inotify_event) std::array<char, 8192> buffer;
    bool isRelevant = false;
    for (;;) {
        const auto size = read(inotify_.get(), buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR)
            continue;
        if (size <= 0)
            break;
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            const std::string name = event.len > 0 ? buffer.data() + at + sizeof event : "";
            at += sizeof event + event.len;
            isRelevant = isRelevant || (event.mask & IN_Q_OVERFLOW) != 0;
            const auto found = interests_.find(event.wd);
            if (found == interests_.end())
                continue;
            const auto &interest = found->second;
            // A folder that left its place takes the watch for what may come there with it.
            const bool isGone = (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0;
            isRelevant = isRelevant || isGone || interest.isFile || interest.entries.contains(name) ||
                         (interest.isFolder && (name.empty() || counts_(name)));
            if (event.mask & IN_IGNORED)
                interests_.erase(found);
        }
    }
    if (!isRelevant)
        return;
    // What leads to the files may be another file or folder now.
    watchAll();
    changed_();
}

} // namespace tarn
