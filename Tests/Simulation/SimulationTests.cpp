#include "Simulation/Simulation.h"

#include <gtest/gtest.h>

namespace tarn::sim {
namespace {

std::string trace(const Result &result) {
    std::string text;
    for (const auto &line : result.lines)
        text += line + "\n";
    return text;
}

class Seeds : public testing::TestWithParam<std::uint64_t> {};

TEST_P(Seeds, NobodyIsLeftOffline) {
    const auto result = simulate({.seed = GetParam(), .days = 20});
    EXPECT_EQ(result.violation, "") << trace(result);
    // Otherwise nothing was tried.
    EXPECT_GT(result.checks, 100U);
    EXPECT_GT(result.deaths, 10U);
}

INSTANTIATE_TEST_SUITE_P(Simulation, Seeds, testing::Values(101, 102, 103, 104));

class Broken : public testing::TestWithParam<const char *> {};

TEST_P(Broken, IsFoundOut) {
    EXPECT_NE(simulate({.seed = 7, .days = 20, .broken = GetParam()}).violation, "");
}

INSTANTIATE_TEST_SUITE_P(Simulation, Broken, testing::ValuesIn(brokenParts));

TEST(Simulation, EqualSeedsGiveEqualTraces) {
    const auto once = simulate({.seed = 5, .days = 5});
    EXPECT_EQ(once.fingerprint, simulate({.seed = 5, .days = 5}).fingerprint);
    EXPECT_NE(once.fingerprint, simulate({.seed = 6, .days = 5}).fingerprint);
}

} // namespace
} // namespace tarn::sim
