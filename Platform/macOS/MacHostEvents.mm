#include "Platform/macOS/MacHostEvents.h"

#include "Platform/macOS/FileChanges.h"

#import <Foundation/Foundation.h>
#import <IOKit/IOKitLib.h>
#import <IOKit/IOMessage.h>
#import <IOKit/pwr_mgt/IOPMLib.h>
#import <dispatch/dispatch.h>
#include <signal.h>

#include <utility>

namespace tarn {

struct MacHostEvents::State {
    ~State() {
        for (dispatch_source_t source : signals)
            dispatch_source_cancel(source);
        if (id observer = clockObserver)
            [NSNotificationCenter.defaultCenter removeObserver:observer];
        if (powerPort) {
            IODeregisterForSystemPower(&powerNotifier);
            IOServiceClose(rootDomain);
            IONotificationPortDestroy(powerPort);
        }
    }

    void watchSignal(int number, Event event) {
        // A dispatch source sees a signal beside its usual effect, which would end the process. A signal that
        // is ignored would stay so in the programs that are started (sigaction(2)); a handled one does not.
        ::signal(number, [](int) {});
        dispatch_source_t source = dispatch_source_create(
            DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(number), 0, dispatch_get_main_queue());
        const std::weak_ptr<Handler> weak = handler;
        dispatch_source_set_event_handler(source, ^{
            if (const auto told = weak.lock())
                (*told)(event);
        });
        dispatch_activate(source);
        signals.push_back(source);
    }

    void watchPower() {
        rootDomain = IORegisterForSystemPower(this, &powerPort, powerChanged, &powerNotifier);
        if (rootDomain != 0)
            IONotificationPortSetDispatchQueue(powerPort, dispatch_get_main_queue());
    }

    static void powerChanged(void *state, io_service_t, uint32_t message, void *argument) {
        const auto *self = static_cast<State *>(state);
        // The system waits for this answer before it goes to sleep.
        if (message == kIOMessageCanSystemSleep || message == kIOMessageSystemWillSleep)
            IOAllowPowerChange(self->rootDomain, reinterpret_cast<intptr_t>(argument));
        else if (message == kIOMessageSystemHasPoweredOn)
            (*self->handler)(Event::woke);
    }

    void watchClock() {
        const std::weak_ptr<Handler> weak = handler;
        clockObserver =
            [NSNotificationCenter.defaultCenter addObserverForName:NSSystemClockDidChangeNotification
                                                            object:nil
                                                             queue:NSOperationQueue.mainQueue
                                                        usingBlock:^(NSNotification *) {
                                                            if (const auto told = weak.lock())
                                                                (*told)(Event::clockSet);
                                                        }];
    }

    std::vector<std::string> settings;
    /// What is still in the queue when this is gone finds nobody to tell.
    std::shared_ptr<Handler> handler;
    std::vector<dispatch_source_t> signals;
    std::vector<std::unique_ptr<FileChanges>> files;
    id clockObserver = nil;
    io_connect_t rootDomain = 0;
    IONotificationPortRef powerPort = nullptr;
    io_object_t powerNotifier = 0;
};

MacHostEvents::MacHostEvents(std::vector<std::string> settings) : state_(std::make_unique<State>()) {
    state_->settings = std::move(settings);
}

MacHostEvents::~MacHostEvents() = default;

void MacHostEvents::start(Handler handler) {
    state_->handler = std::make_shared<Handler>(std::move(handler));
    state_->watchSignal(SIGTERM, Event::stop);
    state_->watchSignal(SIGINT, Event::stop);
    state_->watchSignal(SIGHUP, Event::settingsChanged);
    state_->watchPower();
    state_->watchClock();
    for (const auto &path : state_->settings)
        state_->files.push_back(std::make_unique<FileChanges>(
            path, [told = state_->handler] { (*told)(Event::settingsChanged); }));
}

} // namespace tarn
