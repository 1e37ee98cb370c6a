#include "Platform/macOS/AppKitRenderer.h"

#include "Platform/macOS/AppKitView.h"
#include "Platform/macOS/FoundationText.h"
#include "Platform/macOS/MacDesktop.h"

#import <AppKit/AppKit.h>
#import <dispatch/dispatch.h>

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

@interface TarnWindow : NSWindow
@end

@implementation TarnWindow
- (void)cancelOperation:(id)sender {
    [self close];
}
- (BOOL)performKeyEquivalent:(NSEvent *)event {
    // There is no menu bar that would know it.
    if ((event.modifierFlags & NSEventModifierFlagCommand) != 0 &&
        [event.charactersIgnoringModifiers isEqual:@"w"]) {
        [self close];
        return YES;
    }
    return [super performKeyEquivalent:event];
}
@end

@interface TarnPanel : NSPanel
@end

@implementation TarnPanel
- (BOOL)canBecomeKeyWindow {
    // Without a title bar it could not by itself.
    return YES;
}
- (void)cancelOperation:(id)sender {
    [self close];
}
@end

@interface TarnDelegate : NSObject <NSApplicationDelegate, NSWindowDelegate>
- (void)clicked:(id)sender;
@end

@implementation TarnDelegate {
@public
    std::function<void()> _clicked;
    std::function<void()> _reopened;
    std::function<void(NSWindow *)> _resigned;
    std::function<void(NSWindow *)> _closed;
}
- (void)clicked:(id)sender {
    _clicked();
}
- (BOOL)applicationShouldHandleReopen:(NSApplication *)application hasVisibleWindows:(BOOL)hasWindows {
    _reopened();
    return NO;
}
- (BOOL)applicationSupportsSecureRestorableState:(NSApplication *)application {
    return YES;
}
- (void)windowDidResignKey:(NSNotification *)notification {
    _resigned(notification.object);
}
- (void)windowWillClose:(NSNotification *)notification {
    _closed(notification.object);
}
@end

namespace tarn {
namespace {

constexpr std::string_view menuID = "menu";
constexpr CGFloat panelCorner = 10;

NSWindow *makeWindow(NSRect frame) {
    return [[TarnWindow alloc] initWithContentRect:frame
                                         styleMask:NSWindowStyleMaskTitled | NSWindowStyleMaskClosable
                                           backing:NSBackingStoreBuffered
                                             defer:YES];
}

/// Takes keys without putting the application in front of the one that is in use.
NSWindow *makePanel(NSRect frame) {
    TarnPanel *panel = [[TarnPanel alloc]
        initWithContentRect:frame
                  styleMask:NSWindowStyleMaskBorderless | NSWindowStyleMaskNonactivatingPanel
                    backing:NSBackingStoreBuffered
                      defer:YES];
    panel.level = NSPopUpMenuWindowLevel;
    panel.collectionBehavior = NSWindowCollectionBehaviorCanJoinAllSpaces |
                               NSWindowCollectionBehaviorFullScreenAuxiliary |
                               NSWindowCollectionBehaviorTransient;
    panel.hidesOnDeactivate = NO;
    panel.movable = NO;
    panel.opaque = NO;
    panel.backgroundColor = NSColor.clearColor;
    panel.hasShadow = YES;
    return panel;
}

/// What a menu is made of, with round corners.
NSView *makePanelBackground() {
    NSVisualEffectView *background = [[NSVisualEffectView alloc] initWithFrame:NSZeroRect];
    background.material = NSVisualEffectMaterialMenu;
    background.state = NSVisualEffectStateActive;
    constexpr CGFloat side = 2 * panelCorner + 1;
    NSImage *mask = [NSImage imageWithSize:NSMakeSize(side, side)
                                   flipped:NO
                            drawingHandler:^BOOL(NSRect whole) {
                                [NSColor.blackColor setFill];
                                [[NSBezierPath bezierPathWithRoundedRect:whole
                                                                 xRadius:panelCorner
                                                                 yRadius:panelCorner] fill];
                                return YES;
                            }];
    mask.capInsets = NSEdgeInsetsMake(panelCorner, panelCorner, panelCorner, panelCorner);
    background.maskImage = mask;
    return background;
}

/// One window, from its opening to its end.
class Window {
public:
    Window(const WindowContent &content, id<NSWindowDelegate> delegate, std::function<void()> acted)
        : view_(content, std::move(acted)) {
        const NSRect frame = NSMakeRect(0, 0, content.width, 1);
        const bool isPanel = content.id == menuID;
        window_ = isPanel ? makePanel(frame) : makeWindow(frame);
        window_.releasedWhenClosed = NO;
        window_.autorecalculatesKeyViewLoop = YES;
        if (isPanel) {
            NSView *background = makePanelBackground();
            fill(background, view_.view());
            window_.contentView = background;
        } else {
            window_.contentView = view_.view();
        }
        window_.delegate = delegate;
        update(content);
    }
    ~Window() { window_.delegate = nil; }
    Window(const Window &) = delete;
    Window &operator=(const Window &) = delete;

    NSWindow *window() const { return window_; }

    /// Its top stays where it is.
    void update(const WindowContent &content) {
        const CGFloat top = NSMaxY(window_.frame);
        window_.title = labelText(content.title);
        view_.show(content);
        const NSRect room = window_.screen ? window_.screen.visibleFrame : NSScreen.mainScreen.visibleFrame;
        const NSRect inside = NSMakeRect(0, 0, content.width, view_.height(content));
        NSRect frame = [window_ frameRectForContentRect:inside];
        frame.size.height = std::min(frame.size.height, room.size.height);
        frame.origin = NSMakePoint(NSMinX(window_.frame), top - frame.size.height);
        if (!NSEqualRects(frame, window_.frame))
            [window_ setFrame:frame display:YES];
        [window_ invalidateShadow];
    }

    /// Below the item in the menu bar, on its screen.
    void place(NSStatusBarButton *below) {
        NSWindow *bar = below.window;
        NSScreen *screen = bar.screen;
        if (!bar || !screen) {
            [window_ center];
            return;
        }
        const NSRect item = [bar convertRectToScreen:[below convertRect:below.bounds toView:nil]];
        const NSRect room = screen.visibleFrame;
        NSRect frame = window_.frame;
        frame.size.height = std::min(frame.size.height, room.size.height);
        const CGFloat rightmost = NSMaxX(room) - frame.size.width;
        frame.origin.x = std::max(std::min(NSMinX(item), rightmost), NSMinX(room));
        frame.origin.y = std::min(NSMinY(item), NSMaxY(room)) - frame.size.height;
        [window_ setFrame:frame display:YES];
    }

private:
    NSWindow *window_;
    AppKitView view_;
};

} // namespace

struct AppKitRenderer::State {
    State() {
        delegate->_clicked = [this] { toggleMenu(); };
        delegate->_reopened = [this] { scenes->open(std::string(menuID)); };
        delegate->_resigned = [this](NSWindow *window) { resigned(window); };
        delegate->_closed = [this](NSWindow *window) { closed(window); };
    }
    ~State() {
        if (application.delegate == delegate)
            application.delegate = nil;
        windows.clear();
        if (NSStatusItem *shown = item)
            [NSStatusBar.systemStatusBar removeStatusItem:shown];
    }

    void showItem() {
        item = [NSStatusBar.systemStatusBar statusItemWithLength:NSVariableStatusItemLength];
        NSStatusBarButton *button = item.button;
        button.target = delegate;
        button.action = @selector(clicked:);
        // As a menu opens: with the press, not with the release.
        [button sendActionOn:NSEventMaskLeftMouseDown];
        updateItem();
    }

    void updateItem() {
        const view::Symbol symbol = scenes->menuBarItem();
        NSStatusBarButton *button = item.button;
        NSImage *image = symbolImage(symbol.name);
        [image setTemplate:YES];
        button.image = image;
        // An item without either would take no room at all.
        button.title = image ? @"" : labelText(symbol.label);
        button.accessibilityLabel = labelText(symbol.label);
        button.toolTip = labelText(symbol.label);
    }

    void open(const std::string &id) {
        auto entry = windows.find(id);
        const bool isNew = entry == windows.end();
        if (isNew) {
            auto made = std::make_unique<Window>(scenes->window(id), delegate, [this] { schedule(); });
            entry = windows.emplace(id, std::move(made)).first;
        }
        NSWindow *window = entry->second->window();
        if (id == menuID) {
            entry->second->place(item.button);
        } else {
            if (isNew)
                [window center];
            desktop.activate();
        }
        [window makeKeyAndOrderFront:nil];
    }

    void toggleMenu() {
        const auto menu = windows.find(std::string(menuID));
        if (menu == windows.end())
            scenes->open(std::string(menuID));
        else
            [menu->second->window() close];
    }

    void resigned(NSWindow *window) {
        const auto menu = windows.find(std::string(menuID));
        if (menu == windows.end() || menu->second->window() != window)
            return;
        // A click on the item closes the panel itself; closed here, it would be opened again.
        NSEvent *event = application.currentEvent;
        if (event.type != NSEventTypeLeftMouseDown || !item.button.window ||
            event.window != item.button.window)
            [window close];
    }

    void closed(NSWindow *window) {
        const auto entry = std::find_if(windows.begin(), windows.end(),
                                        [&](const auto &one) { return one.second->window() == window; });
        if (entry == windows.end())
            return;
        // One of its controls may have asked for it, and is still at work.
        const std::shared_ptr<Window> ended = std::move(entry->second);
        windows.erase(entry);
        dispatch_async(dispatch_get_main_queue(), ^{
            (void)ended;
        });
    }

    /// Many changes of a moment are drawn once, and none while a control is at work.
    void schedule() {
        if (std::exchange(isScheduled, true))
            return;
        const std::weak_ptr<State> weak = self;
        dispatch_async(dispatch_get_main_queue(), ^{
            if (const auto state = weak.lock())
                state->update();
        });
    }

    void update() {
        isScheduled = false;
        updateItem();
        for (const auto &[id, window] : windows)
            window->update(scenes->window(id));
    }

    NSApplication *const application = NSApplication.sharedApplication;
    TarnDelegate *const delegate = [[TarnDelegate alloc] init];
    MacDesktop desktop;
    std::weak_ptr<State> self;
    Scenes *scenes = nullptr;
    NSStatusItem *item = nil;
    std::map<std::string, std::unique_ptr<Window>> windows;
    Observable::Subscription subscription;
    bool isScheduled = false;
};

AppKitRenderer::AppKitRenderer() : state_(std::make_shared<State>()) {
    state_->self = state_;
}

AppKitRenderer::~AppKitRenderer() = default;

Desktop &AppKitRenderer::desktop() {
    return state_->desktop;
}

void AppKitRenderer::openWindow(const std::string &id) {
    state_->open(id);
}

int AppKitRenderer::run(Scenes &scenes, std::function<void()> shown) {
    NSApplication *application = state_->application;
    [application setActivationPolicy:NSApplicationActivationPolicyAccessory];
    application.delegate = state_->delegate;
    state_->scenes = &scenes;
    state_->showItem();
    state_->subscription = scenes.observe([state = state_.get()] { state->schedule(); });
    shown();
    [application run];
    return 0;
}

std::unique_ptr<Renderer> makeRenderer(Platform &, int &, char **, std::function<void()>) {
    // A process outside of any login session, such as one of a remote shell, has no window server to ask.
    NSDictionary *session = CFBridgingRelease(CGSessionCopyCurrentDictionary());
    return session ? std::make_unique<AppKitRenderer>() : nullptr;
}

} // namespace tarn
