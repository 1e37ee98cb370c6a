#include "Platform/macOS/AppKitView.h"
#include "Platform/macOS/FoundationText.h"
#include "TarnlinkMenu/MenuApp/PreviewCommand.h"

#import <AppKit/AppKit.h>

#include <cmath>

@interface TarnBackdrop : NSView
@end

@implementation TarnBackdrop
- (void)drawRect:(NSRect)dirtyRect {
    [NSColor.windowBackgroundColor setFill];
    NSRectFill(dirtyRect);
}
@end

namespace tarn {
namespace {

/// Null when the system has no memory for it.
NSBitmapImageRep *makeBitmap(NSSize size, int scale) {
    const auto pixels = [scale](CGFloat points) {
        return static_cast<NSInteger>(std::lround(points)) * scale;
    };
    NSBitmapImageRep *bitmap = [[NSBitmapImageRep alloc] initWithBitmapDataPlanes:nullptr
                                                                       pixelsWide:pixels(size.width)
                                                                       pixelsHigh:pixels(size.height)
                                                                    bitsPerSample:8
                                                                  samplesPerPixel:4
                                                                         hasAlpha:YES
                                                                         isPlanar:NO
                                                                   colorSpaceName:NSCalibratedRGBColorSpace
                                                                      bytesPerRow:0
                                                                     bitsPerPixel:0];
    // Points; it is drawn into at its own resolution.
    bitmap.size = size;
    return bitmap;
}

/// Draws in a window that is never shown; it needs a session of the window server all the same.
class AppKitPreview final : public PreviewRenderer {
public:
    AppKitPreview(bool isDark, int scale) : isDark_(isDark), scale_(scale) {
        // Fonts and symbols are there once there is an application.
        (void)NSApplication.sharedApplication;
    }

    std::string png(const WindowContent &content) override {
        @autoreleasepool {
            NSWindow *window = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, content.width, 1)
                                                           styleMask:NSWindowStyleMaskBorderless
                                                             backing:NSBackingStoreBuffered
                                                               defer:YES];
            window.releasedWhenClosed = NO;
            window.appearance =
                [NSAppearance appearanceNamed:isDark_ ? NSAppearanceNameDarkAqua : NSAppearanceNameAqua];
            const AppKitView view(content, [] {});
            NSView *backdrop = [[TarnBackdrop alloc] initWithFrame:NSZeroRect];
            window.contentView = backdrop;
            fill(backdrop, view.view());
            [window setContentSize:NSMakeSize(content.width, view.height(content))];
            [backdrop layoutSubtreeIfNeeded];

            NSBitmapImageRep *bitmap = makeBitmap(backdrop.bounds.size, scale_);
            if (!bitmap)
                return {};
            [backdrop cacheDisplayInRect:backdrop.bounds toBitmapImageRep:bitmap];
            return bytesOf([bitmap representationUsingType:NSBitmapImageFileTypePNG properties:@{}]);
        }
    }

private:
    const bool isDark_;
    const int scale_;
};

} // namespace

std::unique_ptr<PreviewRenderer> makePreviewRenderer(bool isDark, int scale) {
    return std::make_unique<AppKitPreview>(isDark, scale);
}

} // namespace tarn
