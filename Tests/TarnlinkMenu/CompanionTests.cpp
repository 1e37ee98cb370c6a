// Permission for the location and the Option key, against a desktop that does what the test says.

#include "Support/FakeDesktop.h"
#include "Support/ManualActor.h"
#include "Support/MapDefaults.h"
#include "TarnlinkMenu/LocationAuthorizer.h"
#include "TarnlinkMenu/ModifierWatcher.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

using namespace std::chrono_literals;
using enum LocationStatus;

TEST(LocationAuthorizer, AsksOnceByItselfAndWheneverTheUserWantsIt) {
    FakeDesktop desktop;
    MapDefaults defaults;
    ManualActor actor;
    for (const auto *expected : {"activate;ask;", ""}) {
        LocationAuthorizer location(desktop, defaults, actor);
        location.requestOnceAfterLaunch(4), location.requestOnceAfterLaunch(4);
        actor.advance(3999ms);
        EXPECT_EQ(desktop.calls, "");
        actor.advance(1ms);
        EXPECT_EQ(desktop.calls, expected) << "never answered, and left alone the second time";
        EXPECT_EQ(defaults.boolean("LocationAskedAtLaunch"), true);
        desktop.calls.clear(), location.requestIfNeeded();
        EXPECT_EQ(std::exchange(desktop.calls, ""), "activate;ask;");
    }
}

TEST(LocationAuthorizer, WhatIsDecidedIsNotAsked) {
    for (const auto status : {restricted, denied, authorized}) {
        FakeDesktop desktop;
        MapDefaults defaults;
        ManualActor actor;
        std::make_unique<LocationAuthorizer>(desktop, defaults, actor)->requestOnceAfterLaunch(4);
        LocationAuthorizer location(desktop, defaults, actor);
        int told = 0;
        const auto subscription = location.observe([&] { told += location.status() == status ? 1 : 9; });
        location.requestOnceAfterLaunch(4);
        desktop.change(status), desktop.change(status);
        location.requestIfNeeded(), location.requestOnceAfterLaunch(4);
        actor.run();
        EXPECT_EQ(told, 1);
        EXPECT_TRUE(desktop.calls.empty() && defaults.values.empty()) << "it may become undecided again";
    }
}

TEST(ModifierWatcher, RevealsUntilTheMenuCloses) {
    FakeDesktop desktop;
    auto watcher = std::make_unique<ModifierWatcher>(desktop);
    watcher->start(), watcher->start();
    std::string seen;
    const auto see = [&] { seen += watcher->revealed() ? '1' : '0'; };
    desktop.becameKey(), see();
    desktop.flags(false), see();
    desktop.flags(true), desktop.flags(false), see();
    desktop.resignedKey(), see();
    desktop.optionHeld = true, desktop.becameKey(), see();
    desktop.optionHeld = false, desktop.becameKey(), see();
    EXPECT_EQ(seen, "001011");
    watcher.reset();
    EXPECT_FALSE(desktop.flags || desktop.becameKey || desktop.resignedKey);
}

} // namespace
} // namespace tarn
