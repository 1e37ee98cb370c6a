// CheckBenchmark ADDRESS KEY AUTHORITIES: the median time in milliseconds that a look for updates takes, from
// a server whose certificate AUTHORITIES is good for, and how many looks there were.

#include "Benchmarks/Measure.h"
#include "Platform/Linux/FetchClient.h"
#include "TarnSystem/Updates/UpdateFeed.h"

int main(int count, char **values) {
    using namespace tarn;
    const auto address = count == 4 ? URL::parse(values[1]) : std::nullopt;
    if (!address)
        bench::fail("ADDRESS KEY AUTHORITIES expected");
    EventLoop loop;
    FetchClient http(loop, values[3]);
    UpdateFeed feed(http, loop, values[2]);
    int checks = 0;
    const auto check = [&]() -> Task<void> {
        auto fetch = feed.fetchSigned(*address, 8);
        co_await fetch;
        ++checks;
        loop.stop();
    };
    const auto work = [&] { detach(check()), loop.run(); };
    bench::report("milliseconds", bench::medians({bench::timed(work)}, 250, 1)[0] / 1000);
    bench::report("checks", checks);
}
