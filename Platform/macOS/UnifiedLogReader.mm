#include "Platform/macOS/UnifiedLogReader.h"

#include "Platform/macOS/FoundationText.h"

#import <Foundation/Foundation.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace tarn {

std::string UnifiedLogReader::read(const std::string &subsystem) {
    @autoreleasepool {
        NSString *predicate = makeNSString("subsystem == \"" + subsystem + "\"");
        if (!predicate)
            throw std::runtime_error(std::generic_category().message(EILSEQ));
        NSTask *task = [[NSTask alloc] init];
        NSPipe *output = [NSPipe pipe];
        [task setExecutableURL:[NSURL fileURLWithPath:@"/usr/bin/log"]];
        [task
            setArguments:@[ @"show", @"--style", @"compact", @"--predicate", predicate, @"--last", @"15m" ]];
        [task setStandardOutput:output];
        [task setStandardError:output];
        [task setQualityOfService:NSQualityOfServiceUtility];
        NSError *error = nil;
        if (![task launchAndReturnError:&error])
            throw std::runtime_error(utf8Text(error.localizedDescription));
        // To the end first: a program that waits for room in the pipe never exits.
        const auto text = bytesOf([output.fileHandleForReading readDataToEndOfFileAndReturnError:nil]);
        [task waitUntilExit];
        return text;
    }
}

} // namespace tarn
