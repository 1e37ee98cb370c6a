#pragma once

#include "Platform/Linux/EventLoop.h"
#include "TarnSystem/Descriptor.h"

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// Tells when files, or files in folders, were written, replaced, removed or came (inotify(7)).
/// They need not be there yet, and may be symbolic links.
///
/// Thread: main thread, the callback included. Errors: none; where the system gives no watch,
///   nothing is told.
class FileWatch {
public:
    /// `counts` says of a file in a watched folder, by its name, whether it matters.
    FileWatch(EventLoop &loop, std::vector<std::string> paths, std::function<bool(std::string_view)> counts,
              std::function<void()> changed);
    FileWatch(const FileWatch &) = delete;
    FileWatch &operator=(const FileWatch &) = delete;

private:
    /// Of what is told for one file or folder, what matters.
    struct Interest {
        /// The file itself is one of those watched.
        bool isFile = false;
        /// It is one of the folders watched.
        bool isFolder = false;
        /// Its entries through which a path leads.
        std::set<std::string> entries;
    };

    void watchAll();
    void watchPath(const std::filesystem::path &path);
    void readEvents();

    std::vector<std::string> paths_;
    std::function<bool(std::string_view)> counts_;
    std::function<void()> changed_;
    Descriptor inotify_;
    std::map<int, Interest> interests_;
    std::function<void()> ready_;
    LoopSource source_;
};

} // namespace tarn
