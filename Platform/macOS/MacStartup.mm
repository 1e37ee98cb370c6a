#include "Platform/macOS/MacStartup.h"

#include "Platform/macOS/FoundationText.h"
#include "TarnXPC/TarnXPC.h"

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

namespace tarn {
namespace {

SMAppService *_Nullable daemonService() {
    NSString *name = makeNSString(std::string(TarnXPC::daemonIdentifier) + ".plist");
    return name ? [SMAppService daemonServiceWithPlistName:name] : nil;
}

std::optional<RegistrationState> stateOf(SMAppService *_Nullable service) {
    if (!service)
        return std::nullopt;
    switch (service.status) {
    case SMAppServiceStatusNotRegistered:
        return RegistrationState::notRegistered;
    case SMAppServiceStatusEnabled:
        return RegistrationState::enabled;
    case SMAppServiceStatusRequiresApproval:
        return RegistrationState::requiresApproval;
    case SMAppServiceStatusNotFound:
        return RegistrationState::notFound;
    }
    return std::nullopt;
}

std::optional<std::string> change(SMAppService *_Nullable service, bool isWanted) {
    NSError *error = nil;
    const bool isDone =
        isWanted ? [service registerAndReturnError:&error] : [service unregisterAndReturnError:&error];
    return isDone ? std::nullopt : std::optional(utf8Text(error.localizedDescription));
}

} // namespace

std::optional<RegistrationState> MacDaemonRegistration::state() {
    @autoreleasepool {
        return stateOf(daemonService());
    }
}

std::optional<std::string> MacDaemonRegistration::registerDaemon() {
    @autoreleasepool {
        return change(daemonService(), true);
    }
}

std::optional<std::string> MacDaemonRegistration::unregisterDaemon() {
    @autoreleasepool {
        return change(daemonService(), false);
    }
}

void MacDaemonRegistration::openSystemSettings() {
    [SMAppService openSystemSettingsLoginItems];
}

std::optional<RegistrationState> MacLoginItem::state() {
    @autoreleasepool {
        return stateOf(SMAppService.mainAppService);
    }
}

std::optional<std::string> MacLoginItem::set(bool opensAtLogin) {
    @autoreleasepool {
        return change(SMAppService.mainAppService, opensAtLogin);
    }
}

} // namespace tarn
