#include "Platform/macOS/BundleStrings.h"

#import <Foundation/Foundation.h>

namespace tarn {

std::string BundleStrings::localized(std::string_view key) const {
    @autoreleasepool {
        NSString *name = [[NSString alloc] initWithBytes:key.data()
                                                  length:key.size()
                                                encoding:NSUTF8StringEncoding];
        if (!name)
            return std::string(key);
        NSString *text = [NSBundle.mainBundle localizedStringForKey:name value:name table:nil];
        const char *utf8 = text.UTF8String;
        return utf8 ? std::string(utf8) : std::string(key);
    }
}

} // namespace tarn
