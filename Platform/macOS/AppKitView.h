#pragma once

#include "TarnlinkMenu/View.h"

#import <AppKit/AppKit.h>

#include <functional>
#include <memory>

namespace tarn {

/// A window's content drawn into one AppKit view of its width.
///
/// Another tree is drawn into the same controls wherever it has the same shape, so that the keyboard's focus
/// and VoiceOver's cursor stay where they are.
///
/// Thread: main thread. Ownership: `acted` is called after every action of a control; neither it nor an
///   action may destroy this or show another tree before it returns. Units: points.
class AppKitView final {
public:
    AppKitView(const WindowContent &content, std::function<void()> acted);
    ~AppKitView();

    NSView *view() const;
    /// Draws the same window's content as it is now.
    void show(const WindowContent &content);
    /// The window's own height, or what the content needs.
    CGFloat height(const WindowContent &content) const;

private:
    struct State;
    const std::unique_ptr<State> state_;
};

/// Keeps one view as large as the one around it.
void fill(NSView *outer, NSView *inner);
/// Nil when the system has no symbol of this name.
NSImage *symbolImage(const std::string &name);
/// Empty for what is no UTF-8.
NSString *labelText(const std::string &text);

} // namespace tarn
