#include "Platform/Linux/EventLoop.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <gmock/gmock.h>
#include <string>
#include <sys/epoll.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tarn {
namespace {

using namespace std::chrono_literals;

TEST(EventLoop, JobsOfManyThreadsRunInTheirOrderOnTheMainThread) {
    EventLoop loop;
    constexpr int jobs = 5000;
    std::array<std::vector<int>, 4> seen;
    std::size_t missing = seen.size() * jobs;
    std::vector<std::jthread> threads;
    for (auto &list : seen)
        threads.emplace_back([&] {
            EXPECT_FALSE(loop.isCurrent());
            for (int job = 0; job < jobs; ++job)
                loop.post([&, job] {
                    EXPECT_TRUE(loop.isCurrent());
                    list.push_back(job);
                    if (--missing == 0)
                        loop.stop();
                });
        });
    loop.run();
    for (const auto &list : seen)
        EXPECT_TRUE(std::ranges::is_sorted(list));
}

TEST(EventLoop, TimersRunByTheirTimeAndNeverEarly) {
    EventLoop loop;
    std::string fired;
    const auto after = [&](MainActor::Duration delay, char name) {
        const auto due = loop.now() + delay;
        return loop.postAfter(delay, [&, due, name] {
            EXPECT_GE(loop.now(), due);
            fired += name;
        });
    };
    after(300ms, 'd');
    const auto dropped = after(200ms, 'x');
    after(100ms + 1ns, 'b');
    after(-1s, 'a');
    std::jthread([&] {
        loop.cancel(after(150ms, 'x'));
        after(200ms, 'c');
    }).join();
    loop.postAfter(50ms, [&] {
        loop.cancel(dropped);
        loop.cancel(dropped);
        loop.cancel(0);
    });
    loop.postAfter(400ms, [&] { loop.stop(); });
    loop.run();
    EXPECT_EQ(fired, "abcd");
}

TEST(EventLoop, EndlessPostsStarveNeitherTimersNorDescriptors) {
    EventLoop loop;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    bool isReadable = false;
    const auto readable = [](sd_event_source *source, int, std::uint32_t, void *flag) {
        *static_cast<bool *>(flag) = true;
        return sd_event_source_set_enabled(source, SD_EVENT_OFF);
    };
    ASSERT_GE(sd_event_add_io(loop.event(), nullptr, ends[0], EPOLLIN, readable, &isReadable), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    const std::function<void()> again = [&] { loop.post(again); };
    for (int i = 0; i < 1000; ++i)
        again();
    const auto start = loop.now();
    loop.postAfter(20ms, [&] { loop.stop(); });
    loop.run();
    EXPECT_TRUE(isReadable);
    EXPECT_LT(loop.now() - start, 5s);
}

} // namespace
} // namespace tarn
