#include "Platform/macOS/CFText.h"

namespace tarn {

std::optional<std::string> text(CFTypeRef object) {
    if (!object || CFGetTypeID(object) != CFStringGetTypeID())
        return std::nullopt;
    const auto string = static_cast<CFStringRef>(object);
    const CFRange all = CFRangeMake(0, CFStringGetLength(string));
    // A lone surrogate has no UTF-8 form and would end the conversion.
    constexpr UInt8 replacement = '?';
    CFIndex size = 0;
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, replacement, false, nullptr, 0, &size);
    std::string utf8(static_cast<std::size_t>(size), '\0');
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, replacement, false,
                     reinterpret_cast<UInt8 *>(utf8.data()), size, nullptr);
    return utf8;
}

std::optional<std::vector<std::string>> textList(CFArrayRef array) {
    if (!array)
        return std::nullopt;
    const CFIndex count = CFArrayGetCount(array);
    std::vector<std::string> list;
    list.reserve(static_cast<std::size_t>(count));
    for (CFIndex i = 0; i < count; ++i) {
        auto element = text(CFArrayGetValueAtIndex(array, i));
        if (!element)
            return std::nullopt;
        list.push_back(*std::move(element));
    }
    return list;
}

CFRef<CFStringRef> makeCFString(std::string_view utf8) {
    return CFRef<CFStringRef>::adopt(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8 *>(utf8.data()),
                                static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

} // namespace tarn
