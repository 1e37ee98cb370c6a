#include "Platform/macOS/BundleStrings.h"

#include "Platform/macOS/FoundationText.h"

#include <cstdlib>

namespace tarn {
namespace {

NSBundle *_Nonnull chooseBundle() {
    NSBundle *application = NSBundle.mainBundle;
    const char *locale = std::getenv("LC_ALL");
    if (!locale)
        return application;
    const std::string_view name = locale;
    NSString *language = makeNSString(name.substr(0, name.find_first_of("_.@")));
    NSString *folder = language.length > 0 ? [application pathForResource:language ofType:@"lproj"] : nil;
    NSBundle *chosen = folder ? [NSBundle bundleWithPath:folder] : nil;
    return chosen ? chosen : application;
}

} // namespace

BundleStrings::BundleStrings() : bundle_(chooseBundle()) {}

std::string BundleStrings::localized(std::string_view key) const {
    @autoreleasepool {
        NSString *name = [[NSString alloc] initWithBytes:key.data()
                                                  length:key.size()
                                                encoding:NSUTF8StringEncoding];
        if (!name)
            return std::string(key);
        NSString *text = [bundle_ localizedStringForKey:name value:name table:nil];
        const char *utf8 = text.UTF8String;
        return utf8 ? std::string(utf8) : std::string(key);
    }
}

} // namespace tarn
