#pragma once

#include <functional>
#include <memory>
#include <string>

namespace tarn {

/// Tells when a file that is always replaced as a whole, as the system's preferences daemon does,
/// was replaced, removed or came. It need not be there yet, nor its folder.
///
/// Thread: main thread, the callback included. Errors: none; where the system gives no watch,
///   nothing is told.
class FileChanges {
public:
    FileChanges(std::string path, std::function<void()> changed);
    FileChanges(const FileChanges &) = delete;
    FileChanges &operator=(const FileChanges &) = delete;
    ~FileChanges();

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace tarn
