#pragma once

#include "Platform/macOS/CFText.h"

#import <Foundation/Foundation.h>

#include <string>
#include <string_view>

namespace tarn {

/// Nil when the text is not UTF-8.
inline NSString *_Nullable makeNSString(std::string_view utf8) {
    return (__bridge_transfer NSString *)makeCFString(utf8).release();
}

/// The text as UTF-8; empty for nil.
inline std::string utf8Text(NSString *_Nullable string) {
    return text((__bridge CFStringRef)string).value_or(std::string());
}

inline NSData *_Nonnull makeNSData(std::string_view bytes) {
    return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

/// Empty for nil.
inline std::string bytesOf(NSData *_Nullable data) {
    return data ? std::string(static_cast<const char *>(data.bytes), data.length) : std::string();
}

} // namespace tarn
