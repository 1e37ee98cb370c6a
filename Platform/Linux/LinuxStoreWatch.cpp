#include "Platform/Linux/LinuxStoreWatch.h"

#include "Platform/Linux/LinuxNetwork.h"
#include "Platform/Linux/RouteNetlink.h"
#include "TarnSystem/PictureChanges.h"
#include "TarnSystem/ResolverFiles.h"
#include "TarnSystem/SynthesizedStore.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

namespace tarn {
namespace {

using namespace std::chrono_literals;

// The kernel holds back the news of a lost carrier, of whichever link, for up to a second after it
// told of another change, and that one may have waited for a second itself (linkwatch in
// net/core/link_watch.c). Asking shows the loss at once.
constexpr auto newsDelay = 2s;
constexpr auto askEvery = 50ms;
// News in close succession share a reading.
constexpr auto shortestPause = 5ms;
constexpr auto pauseAfterFailure = 1s;

} // namespace

LinuxStoreWatch::LinuxStoreWatch(EventLoop &loop, BusNews &news, Callback callback)
    : loop_(loop), news_(news), callback_(std::move(callback)), kernelNews_(RouteNetlink::subscribe()) {
    if (!kernelNews_)
        throw std::system_error(errno, std::generic_category(), "rtnetlink");
}

LinuxStoreWatch::~LinuxStoreWatch() {
    loop_.cancel(timer_);
}

bool LinuxStoreWatch::setNotificationKeys(const std::vector<std::string> &patterns) {
    patterns_ = patterns;
    return true;
}

bool LinuxStoreWatch::schedule() {
    if (RouteNetlink::read(known_) == RouteNetlink::Result::failed)
        return false;
    lastLook_ = loop_.now();
    // A carrier may have changed just before.
    askUntil_ = lastLook_ + newsDelay;
    lookAt(lastLook_ + askEvery);
    newsArrived_ = [this] {
        if (RouteNetlink::takeNews(kernelNews_))
            lookAt(std::max(loop_.now(), lastLook_ + shortestPause));
    };
    newsSource_ = loop_.whenReadable(kernelNews_.get(), newsArrived_);
    auto paths = LinuxNetwork::resolverFiles();
    if (auto socket = LoopBus::socketPath(); !socket.empty())
        paths.push_back(std::move(socket));
    files_.emplace(loop_, std::move(paths), isLeaseFile, [this] {
        report(PictureChanges::resolverKeys(known_));
        signals_->open();
    });
    signals_.emplace(loop_, news_, [this] { report(PictureChanges::managerKeys(known_)); });
    signals_->open();
    return true;
}

void LinuxStoreWatch::lookAt(TimePoint due) {
    if (timer_ != 0 && nextLook_ <= due)
        return;
    loop_.cancel(timer_);
    nextLook_ = due;
    timer_ = loop_.postAfter(due - loop_.now(), [this] {
        timer_ = 0;
        look();
    });
}

void LinuxStoreWatch::look() {
    NetworkPicture now;
    lastLook_ = loop_.now();
    if (RouteNetlink::read(now) == RouteNetlink::Result::failed) {
        lookAt(lastLook_ + pauseAfterFailure);
        callback_({});
        return;
    }
    const auto before = std::exchange(known_, std::move(now));
    if (PictureChanges::carrierChanged(before, known_))
        askUntil_ = lastLook_ + newsDelay;
    if (lastLook_ < askUntil_ && std::ranges::any_of(known_.links, &NetworkPicture::Link::hasCarrier))
        lookAt(lastLook_ + askEvery);
    report(PictureChanges::kernelKeys(before, known_));
}

void LinuxStoreWatch::report(const std::vector<std::string> &keys) {
    std::vector<std::string> wanted;
    for (const auto &key : keys)
        if (std::ranges::any_of(patterns_,
                                [&](const auto &pattern) { return matchesStorePattern(pattern, key); }))
            wanted.push_back(key);
    // An empty list would mean that everything has changed.
    if (!wanted.empty())
        callback_(wanted);
}

} // namespace tarn
