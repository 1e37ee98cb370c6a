#include "Platform/Linux/LinuxLog.h"

#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace tarn {
namespace {

/// systemd.exec(5): JOURNAL_STREAM names device and inode of the stream.
bool isJournal(int descriptor) {
    const char *stream = std::getenv("JOURNAL_STREAM");
    struct stat info{};
    return stream && fstat(descriptor, &info) == 0 &&
           std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino) == stream;
}

const char *prefix(Log::Level level) {
    switch (level) {
    case Log::Level::debug:
        return SD_DEBUG;
    case Log::Level::info:
        return SD_INFO;
    case Log::Level::error:
        break;
    }
    return SD_ERR;
}

} // namespace

LinuxLog::LinuxLog() : isJournal_(isJournal(STDERR_FILENO)) {}

void LinuxLog::write(Level level, std::string_view category, std::string_view message) {
    if (level == Level::debug && !isJournal_)
        return;
    std::string line = isJournal_ ? prefix(level) : "";
    line.append(category).append(": ").append(message).append("\n");
    // One call a line, so that lines of several threads do not mix.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

} // namespace tarn
