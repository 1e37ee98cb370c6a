#include "Platform/macOS/MacInterfaceLookup.h"

#include "TarnSystem/Once.h"

#import <Foundation/Foundation.h>
#import <Network/Network.h>

#include <utility>

namespace tarn {
namespace {

NetworkInterface describe(nw_interface_t interface) {
    return {
        .name = nw_interface_get_name(interface),
        .index = nw_interface_get_index(interface),
        .native = std::shared_ptr<const void>(CFBridgingRetain(interface),
                                              [](const void *retained) { CFBridgingRelease(retained); }),
    };
}

std::optional<NetworkInterface> findInPath(nw_path_t path, const std::string &name) {
    __block std::optional<NetworkInterface> found;
    nw_path_enumerate_interfaces(path, ^bool(nw_interface_t interface) {
        if (name != nw_interface_get_name(interface))
            return true;
        found = describe(interface);
        return false;
    });
    return found;
}

} // namespace

void MacInterfaceLookup::findInterface(const std::string &name, const std::string &queueLabel,
                                       Completion completion) {
    nw_path_monitor_t monitor = nw_path_monitor_create();
    nw_path_monitor_set_queue(monitor, dispatch_queue_create(queueLabel.c_str(), DISPATCH_QUEUE_SERIAL));

    // Keeps the monitor until it has been cancelled; a handler that held it would keep it for ever.
    __block nw_path_monitor_t running = monitor;
    nw_path_monitor_set_cancel_handler(monitor, ^{
        running = nil;
    });
    // A block would capture the caller's string by reference.
    const std::string wanted = name;
    const auto first = std::make_shared<Once>();
    nw_path_monitor_set_update_handler(monitor, ^(nw_path_t path) {
        if (!first->claim())
            return;
        nw_path_monitor_cancel(running);
        completion(findInPath(path, wanted));
    });
    nw_path_monitor_start(monitor);
}

} // namespace tarn
