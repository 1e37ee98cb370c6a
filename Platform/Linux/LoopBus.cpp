#include "Platform/Linux/LoopBus.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

namespace tarn {

LoopBus::LoopBus(EventLoop &loop, std::function<int(sd_bus *)> prepare,
                 std::function<void(const std::string &)> lost)
    : loop_(loop), prepare_(std::move(prepare)), lost_(std::move(lost)) {}

LoopBus::~LoopBus() {
    loop_.cancel(retry_);
}

std::string LoopBus::socketPath() {
    const char *address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (!address)
        return "/run/dbus/system_bus_socket";
    constexpr std::string_view prefix = "unix:path=";
    const std::string_view text(address);
    if (!text.starts_with(prefix))
        return {};
    return std::string(text.substr(prefix.size(), text.find_first_of(",;") - prefix.size()));
}

int LoopBus::open(EventLoop &loop, BusHandle &bus, sd_bus_message_handler_t gone, void *data) {
    sd_bus *opened = nullptr;
    int result = sd_bus_open_system(&opened);
    if (result < 0)
        return result;
    bus.reset(opened);
    result = sd_bus_attach_event(opened, loop.event(), SD_EVENT_PRIORITY_NORMAL);
    if (result < 0)
        return result;
    return sd_bus_match_signal_async(opened, nullptr, "org.freedesktop.DBus.Local", nullptr,
                                     "org.freedesktop.DBus.Local", "Disconnected", gone, nullptr, data);
}

void LoopBus::open() {
    if (bus_)
        return;
    loop_.cancel(std::exchange(retry_, 0));
    const auto gone = [](sd_bus_message *, void *self, sd_bus_error *) {
        static_cast<LoopBus *>(self)->giveUp("the bus is gone");
        return 0;
    };
    int result = open(loop_, bus_, gone, this);
    if (result >= 0)
        result = prepare_(bus_.get());
    if (result >= 0)
        return;
    const auto reason = std::generic_category().message(-result);
    if (result == -ENOENT && !bus_ && !socketPath().empty())
        lost_(reason);
    else
        lose(reason);
}

void LoopBus::giveUp(std::string reason) {
    // The connection cannot be dropped while it calls.
    loop_.cancel(std::exchange(retry_, 0));
    retry_ = loop_.postAfter(std::chrono::seconds(0), [this, reason = std::move(reason)] {
        retry_ = 0;
        lose(reason);
    });
}

void LoopBus::lose(const std::string &reason) {
    bus_.reset();
    retry_ = loop_.postAfter(pause_, [this] {
        retry_ = 0;
        open();
    });
    pause_ = std::min(pause_ * 2, longestPause);
    lost_(reason);
}

} // namespace tarn
