#include "Platform/macOS/FileChanges.h"

#import <dispatch/dispatch.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <tuple>
#include <utility>

namespace tarn {

struct FileChanges::State : std::enable_shared_from_this<State> {
    /// Differs from one file under this name to the next, and from no file.
    using Identity = std::tuple<dev_t, ino_t, time_t, long, off_t>;

    Identity identity() const {
        struct stat info = {};
        if (::stat(path.c_str(), &info) != 0)
            return {};
        return {info.st_dev, info.st_ino, info.st_mtimespec.tv_sec, info.st_mtimespec.tv_nsec, info.st_size};
    }

    void stop() {
        if (dispatch_source_t old = std::exchange(source, nullptr))
            dispatch_source_cancel(old);
    }

    /// Watches the nearest folder above that is there: a replaced file changes the folder.
    void watch() {
        stop();
        int descriptor = -1;
        for (auto folder = path; descriptor < 0 && folder.has_relative_path();) {
            folder = folder.parent_path();
            descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        }
        if (descriptor < 0)
            return;
        dispatch_source_t folderSource = dispatch_source_create(
            DISPATCH_SOURCE_TYPE_VNODE, static_cast<uintptr_t>(descriptor),
            DISPATCH_VNODE_WRITE | DISPATCH_VNODE_DELETE | DISPATCH_VNODE_RENAME | DISPATCH_VNODE_REVOKE,
            dispatch_get_main_queue());
        const std::weak_ptr<State> weak = weak_from_this();
        dispatch_source_set_event_handler(folderSource, ^{
            if (const auto self = weak.lock())
                self->look();
        });
        dispatch_source_set_cancel_handler(folderSource, ^{
            ::close(descriptor);
        });
        dispatch_activate(folderSource);
        source = folderSource;
    }

    void look() {
        // Before the look: what comes meanwhile is told. Another folder may be the nearest by now.
        watch();
        const auto now = identity();
        if (std::exchange(known, now) != now)
            changed();
    }

    std::filesystem::path path;
    std::function<void()> changed;
    Identity known;
    dispatch_source_t source = nullptr;
};

FileChanges::FileChanges(std::string path, std::function<void()> changed)
    : state_(std::make_shared<State>()) {
    state_->path = std::move(path);
    state_->changed = std::move(changed);
    state_->watch();
    state_->known = state_->identity();
}

FileChanges::~FileChanges() {
    state_->stop();
}

} // namespace tarn
