#include "Platform/macOS/MacProcessLauncher.h"

#include "Platform/macOS/FoundationText.h"

#import <Foundation/Foundation.h>

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
        NSPipe *pipe = [NSPipe pipe];
        [task setExecutableURL:[NSURL fileURLWithPath:file]];
        [task setArguments:words];
        [task setStandardError:pipe];
        NSError *error = nil;
        if (![task launchAndReturnError:&error])
            return failed(utf8Text(error.localizedDescription));

        Result result;
        // To the end first: a program that waits for room in the pipe never exits. The task has closed
        // this process's end for writing.
        NSData *written = [pipe.fileHandleForReading readDataToEndOfFileAndReturnError:nil];
        if (written)
            result.standardError.assign(static_cast<const char *>(written.bytes), written.length);
        [task waitUntilExit];
        result.status = task.terminationStatus;
        return result;
    }
}

} // namespace tarn
