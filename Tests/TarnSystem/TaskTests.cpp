#include "TarnSystem/Task.h"

#include "Support/ManualActor.h"
#include "TarnSystem/Once.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace tarn {
namespace {

using Resume = Callback<std::string>::Resume;

/// Awaits an operation; "broken" is thrown on.
Task<std::unique_ptr<std::string>> await(ManualActor &actor, std::function<void(Resume)> begin) {
    Callback<std::string> operation(actor, std::move(begin));
    auto result = std::make_unique<std::string>(co_await operation);
    if (!actor.isCurrent() || *result == "broken")
        throw std::runtime_error(*result);
    co_return result;
}

/// Writes down what comes of an operation.
Task<void> note(ManualActor &actor, std::string &log, std::function<void(Resume)> begin) {
    try {
        log += *co_await await(actor, std::move(begin)) + ".";
    } catch (const std::runtime_error &error) {
        log += std::string(error.what()) + "!";
    }
}

TEST(Task, StartsWhenAwaitedAndHandsOverResultAndException) {
    ManualActor actor;
    std::string log;
    auto task = note(actor, log, [](const Resume &resume) { resume("one"); });
    EXPECT_EQ(log, "");
    detach(std::move(task));
    detach(note(actor, log, [](const Resume &resume) { resume("broken"); }));
    EXPECT_EQ(log, "one.broken!");
}

TEST(Callback, FirstResultCountsAndIsTakenInOnTheMainThread) {
    ManualActor actor;
    std::string log;
    Resume later;
    const auto hold = [&](Resume resume) { later = std::move(resume); };
    detach(note(actor, log, [](const Resume &resume) { resume("inside"), resume("again"); }));
    detach(note(actor, log, [](const Resume &resume) {
        std::thread([&] { resume("elsewhere"), resume("again"); }).join();
    }));
    EXPECT_EQ(log, "inside.elsewhere.") << "at once, because begin() had the result";
    detach(note(actor, log, hold));
    later("later");
    EXPECT_EQ(log, "inside.elsewhere.later.") << "at once, because this is the main thread";
    later("again");
    detach(note(actor, log, hold));
    std::thread([&] { later("hop"), later("again"); }).join();
    EXPECT_EQ(log, "inside.elsewhere.later.");
    actor.runDue();
    later("again");
    actor.runDue();
    EXPECT_EQ(log, "inside.elsewhere.later.hop.");
}

TEST(Once, OnlyTheFirstClaimSucceeds) {
    Once once;
    EXPECT_TRUE(once.claim());
    EXPECT_FALSE(once.claim() || once.claim());
}

} // namespace
} // namespace tarn
