#pragma once

#include "Platform/Linux/BusSignals.h"
#include "Platform/Linux/EventLoop.h"
#include "Platform/Linux/FileWatch.h"
#include "TarnSystem/Descriptor.h"
#include "TarnSystem/DynamicStoreWatch.h"
#include "TarnSystem/NetworkPicture.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// Changes of the synthesised store. The kernel's news only say that it is time to look: links,
/// addresses and routes are then read anew and compared with what was known, so that news which
/// the kernel had to drop cost nothing. Files and signals on the bus tell of the rest.
///
/// Throws std::system_error when the kernel refuses a socket.
class LinuxStoreWatch final : public DynamicStoreWatch {
public:
    /// `news`, which must outlive this, hears of what the bus tells.
    LinuxStoreWatch(EventLoop &loop, BusNews &news, Callback callback);
    LinuxStoreWatch(const LinuxStoreWatch &) = delete;
    LinuxStoreWatch &operator=(const LinuxStoreWatch &) = delete;
    ~LinuxStoreWatch() override;

    bool setNotificationKeys(const std::vector<std::string> &patterns) override;
    bool schedule() override;

private:
    using TimePoint = MainActor::TimePoint;

    void look();
    void lookAt(TimePoint due);
    void report(const std::vector<std::string> &keys);

    EventLoop &loop_;
    BusNews &news_;
    Callback callback_;
    std::vector<std::string> patterns_;
    NetworkPicture known_;
    TimePoint lastLook_;
    TimePoint askUntil_;
    TimePoint nextLook_;
    MainActor::TimerID timer_ = 0;
    Descriptor kernelNews_;
    std::function<void()> newsArrived_;
    LoopSource newsSource_;
    std::optional<FileWatch> files_;
    std::optional<BusSignals> signals_;
};

} // namespace tarn
