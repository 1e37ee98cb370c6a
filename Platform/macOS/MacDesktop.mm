#include "Platform/macOS/MacDesktop.h"

#include "Platform/macOS/FoundationText.h"

#import <AppKit/AppKit.h>
#import <CoreLocation/CoreLocation.h>

#include <utility>

@interface TarnLocationDelegate : NSObject <CLLocationManagerDelegate>
@end

@implementation TarnLocationDelegate {
@public
    std::function<void()> _changed;
}
- (void)locationManagerDidChangeAuthorization:(CLLocationManager *)manager {
    // A copy: it may be replaced by what it does.
    if (const auto changed = _changed)
        changed();
}
@end

namespace tarn {
namespace {

LocationStatus locationStatus(CLAuthorizationStatus status) {
    switch (status) {
    case kCLAuthorizationStatusNotDetermined:
        return LocationStatus::notDetermined;
    case kCLAuthorizationStatusRestricted:
        return LocationStatus::restricted;
    case kCLAuthorizationStatusDenied:
        return LocationStatus::denied;
    default:
        return LocationStatus::authorized;
    }
}

class EventMonitor {
public:
    explicit EventMonitor(id monitor) : monitor_(monitor) {}
    ~EventMonitor() {
        // Absent when the system gave none.
        if (id monitor = monitor_)
            [NSEvent removeMonitor:monitor];
    }
    EventMonitor(const EventMonitor &) = delete;
    EventMonitor &operator=(const EventMonitor &) = delete;

private:
    const id monitor_;
};

class NotificationObserver {
public:
    NotificationObserver(NSNotificationName name, std::function<void()> told)
        : observer_([NSNotificationCenter.defaultCenter addObserverForName:name
                                                                    object:nil
                                                                     queue:nil
                                                                usingBlock:^(NSNotification *) {
                                                                    told();
                                                                }]) {}
    ~NotificationObserver() { [NSNotificationCenter.defaultCenter removeObserver:observer_]; }
    NotificationObserver(const NotificationObserver &) = delete;
    NotificationObserver &operator=(const NotificationObserver &) = delete;

private:
    const id observer_;
};

bool hasOption(NSEventModifierFlags flags) {
    return (flags & NSEventModifierFlagOption) != 0;
}

} // namespace

class MacDesktop::Location final : public LocationManager {
public:
    Location() { manager_.delegate = delegate_; }
    ~Location() override {
        manager_.delegate = nil;
        delegate_->_changed = nullptr;
    }

    LocationStatus authorizationStatus() override { return locationStatus([manager_ authorizationStatus]); }
    void setHandler(std::function<void()> changed) override { delegate_->_changed = std::move(changed); }
    void requestWhenInUseAuthorization() override { [manager_ requestWhenInUseAuthorization]; }

private:
    CLLocationManager *const manager_ = [[CLLocationManager alloc] init];
    TarnLocationDelegate *const delegate_ = [[TarnLocationDelegate alloc] init];
};

class MacDesktop::Modifiers final : public ModifierEvents {
public:
    Token monitorFlags(std::function<void(bool)> changed) override {
        return std::make_shared<EventMonitor>([NSEvent
            addLocalMonitorForEventsMatchingMask:NSEventMaskFlagsChanged
                                         handler:^NSEvent *(NSEvent *event) {
                                             changed(hasOption(event.modifierFlags));
                                             return event;
                                         }]);
    }
    Token observeWindowBecameKey(std::function<void()> became) override {
        return std::make_shared<NotificationObserver>(NSWindowDidBecomeKeyNotification, std::move(became));
    }
    Token observeWindowResignedKey(std::function<void()> resigned) override {
        return std::make_shared<NotificationObserver>(NSWindowDidResignKeyNotification, std::move(resigned));
    }
    bool isOptionHeld() override { return hasOption([NSEvent modifierFlags]); }
};

MacDesktop::MacDesktop()
    : location_(std::make_unique<Location>()), modifiers_(std::make_unique<Modifiers>()) {}

MacDesktop::~MacDesktop() = default;

LocationManager &MacDesktop::location() {
    return *location_;
}

ModifierEvents &MacDesktop::modifiers() {
    return *modifiers_;
}

void MacDesktop::activate() {
    // Its successor of macOS 14 only asks, and an application without a menu bar is not given the front.
    [NSApplication.sharedApplication activateIgnoringOtherApps:YES];
}

void MacDesktop::copy(const std::string &text) {
    NSString *string = makeNSString(text);
    if (!string)
        return;
    [NSPasteboard.generalPasteboard clearContents];
    [NSPasteboard.generalPasteboard setString:string forType:NSPasteboardTypeString];
}

void MacDesktop::open(const std::string &url) {
    NSString *string = makeNSString(url);
    NSURL *target = string ? [NSURL URLWithString:string] : nil;
    if (target)
        [NSWorkspace.sharedWorkspace openURL:target];
}

void MacDesktop::quit() {
    [NSApplication.sharedApplication terminate:nil];
}

} // namespace tarn
