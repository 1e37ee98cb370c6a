#include "Platform/macOS/MacUpdaterStarter.h"

#include "Platform/macOS/FoundationText.h"

#import <Foundation/Foundation.h>

#include <cerrno>
#include <system_error>

namespace tarn {

std::optional<std::string> MacUpdaterStarter::start(const std::string &requestPath) {
    @autoreleasepool {
        NSURL *self = NSBundle.mainBundle.executableURL;
        NSURL *updater = [self.URLByDeletingLastPathComponent URLByAppendingPathComponent:@"TarnlinkUpdater"];
        NSString *request = makeNSString(requestPath);
        if (!updater || !request)
            return std::generic_category().message(updater ? EILSEQ : ENOENT);
        NSTask *task = [[NSTask alloc] init];
        [task setExecutableURL:updater];
        [task setArguments:@[ request ]];
        // It runs as root: nothing of how this program was started goes with it.
        [task setEnvironment:@{@"PATH" : @"/usr/bin:/bin:/usr/sbin:/sbin"}];
        [task setStandardInput:NSFileHandle.fileHandleWithNullDevice];
        [task setStandardOutput:NSFileHandle.fileHandleWithNullDevice];
        [task setStandardError:NSFileHandle.fileHandleWithNullDevice];
        NSError *error = nil;
        if (![task launchAndReturnError:&error])
            return utf8Text(error.localizedDescription);
        return std::nullopt;
    }
}

} // namespace tarn
