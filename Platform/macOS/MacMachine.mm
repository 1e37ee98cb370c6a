#include "Platform/macOS/MacMachine.h"

#include "Platform/macOS/PropertyListValue.h"
#include "TarnCore/Text.h"

#import <Foundation/Foundation.h>
#import <IOKit/IOKitLib.h>

namespace tarn {

SystemVersion macSystemVersion() {
    const NSOperatingSystemVersion version = NSProcessInfo.processInfo.operatingSystemVersion;
    return {version.majorVersion, version.minorVersion, version.patchVersion};
}

std::optional<std::string> macSerialNumber() {
    // The function takes over the reference to the dictionary.
    const io_service_t service =
        IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching("IOPlatformExpertDevice"));
    if (service == IO_OBJECT_NULL)
        return std::nullopt;
    const auto property = CFRef<CFTypeRef>::adopt(
        IORegistryEntryCreateCFProperty(service, CFSTR("IOPlatformSerialNumber"), kCFAllocatorDefault, 0));
    IOObjectRelease(service);
    const auto number = valueFromPropertyList(property.get());
    const std::string *serial = number.string();
    return serial && !serial->empty() ? std::optional(*serial) : std::nullopt;
}

std::optional<std::int64_t> macInstalledBuild(const std::string &appPath) {
    @autoreleasepool {
        NSString *path = [NSString stringWithUTF8String:(appPath + "/Contents/Info.plist").c_str()];
        NSData *file = path ? [NSData dataWithContentsOfFile:path] : nil;
        if (!file)
            return std::nullopt;
        id list = [NSPropertyListSerialization propertyListWithData:file
                                                            options:NSPropertyListImmutable
                                                             format:nil
                                                              error:nil];
        const auto info = valueFromPropertyList((__bridge CFPropertyListRef)list);
        const Value *build = info.find("CFBundleVersion");
        if (!build)
            return std::nullopt;
        if (const std::string *digits = build->string())
            return text::parseInteger(*digits);
        return build->integer() ? std::optional(*build->integer()) : std::nullopt;
    }
}

} // namespace tarn
