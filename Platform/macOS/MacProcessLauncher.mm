#include "Platform/macOS/MacProcessLauncher.h"

#include "Platform/macOS/FoundationText.h"

#import <Foundation/Foundation.h>
#import <dispatch/dispatch.h>

#include <cerrno>
#include <system_error>

namespace tarn {
namespace {

ProcessLauncher::Result failed(std::string why) {
    return {std::move(why), -1, {}};
}

} // namespace

ProcessLauncher::Result MacProcessLauncher::run(const std::string &path,
                                                const std::vector<std::string> &arguments) {
    @autoreleasepool {
        const auto notText = std::generic_category().message(EILSEQ);
        NSString *file = makeNSString(path);
        if (!file)
            return failed(notText);
        NSMutableArray<NSString *> *words = [NSMutableArray arrayWithCapacity:arguments.size()];
        for (const auto &argument : arguments) {
            NSString *word = makeNSString(argument);
            if (!word)
                return failed(notText);
            [words addObject:word];
        }
        NSTask *task = [[NSTask alloc] init];
        NSPipe *errors = [NSPipe pipe];
        NSPipe *output = [NSPipe pipe];
        [task setExecutableURL:[NSURL fileURLWithPath:file]];
        [task setArguments:words];
        [task setStandardError:errors];
        [task setStandardOutput:output];
        NSError *error = nil;
        if (![task launchAndReturnError:&error])
            return failed(utf8Text(error.localizedDescription));

        Result result;
        // To the end first, and both at once: a program that waits for room in a pipe never exits. The task
        // has closed this process's ends for writing.
        __block NSData *written = nil;
        dispatch_group_t reading = dispatch_group_create();
        dispatch_group_async(reading, dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
            written = [output.fileHandleForReading readDataToEndOfFileAndReturnError:nil];
        });
        result.standardError = bytesOf([errors.fileHandleForReading readDataToEndOfFileAndReturnError:nil]);
        dispatch_group_wait(reading, DISPATCH_TIME_FOREVER);
        result.standardOutput = bytesOf(written);
        [task waitUntilExit];
        result.status = task.terminationStatus;
        return result;
    }
}

} // namespace tarn
