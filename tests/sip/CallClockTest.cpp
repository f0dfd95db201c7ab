#include "calls/CallClock.h"

#include <gtest/gtest.h>

namespace {

constexpr std::int64_t cSecond = 1'000'000;
constexpr std::int64_t cStart = 1'795'219'810 * cSecond;

/// A clock whose times count from its first stamp, in seconds.
class CallClockTest : public testing::Test
{
protected:
    void SetUp() override { EXPECT_EQ(take(0), 0); }
    std::int64_t take(std::int64_t llSeconds)
    {
        return (m_clock.take(cStart + llSeconds * cSecond) - cStart) / cSecond;
    }
    std::int64_t now() const { return (m_clock.now() - cStart) / cSecond; }

    CCallClock m_clock;
};

TEST_F(CallClockTest, FollowsTheStamps)
{
    EXPECT_EQ(take(4), 4);
    EXPECT_EQ(take(3), 4) << "a little disorder";
    EXPECT_EQ(take(14), 14);
    EXPECT_EQ(m_clock.stampOf(m_clock.now()), cStart + 14 * cSecond);
}

TEST_F(CallClockTest, DoubtsAStepUntilTheNextMessageGoesOnFromThere)
{
    EXPECT_EQ(take(3600), 3600);
    EXPECT_EQ(now(), 0);
    EXPECT_EQ(take(3595), 3600);
    EXPECT_EQ(now(), 3600);
}

TEST_F(CallClockTest, ForgetsAStepThatTheNextMessageDoesNotFollow)
{
    (void)take(3600);
    EXPECT_EQ(take(1), 1);
    (void)take(-3600);
    EXPECT_EQ(take(2), 2);
    (void)take(3600);
    EXPECT_EQ(take(3), 3) << "two strays with a message between them agree about nothing";
    EXPECT_EQ(now(), 3);
}

TEST_F(CallClockTest, TakesTimeFromWhereTheClockWasSetBackTo)
{
    EXPECT_EQ(take(-3600), 0);
    EXPECT_EQ(take(-3599), 1);
    EXPECT_EQ(take(-3595), 5);
    EXPECT_EQ(m_clock.stampOf(m_clock.now()), cStart - 3595 * cSecond);
}

TEST_F(CallClockTest, LetsNoTimePassBetweenTwoClocksThatDiffer)
{
    for (int n = 0; n < 10; ++n)
    {
        (void)take(-3600);
        (void)take(-3600);
        (void)take(0);
        (void)take(0);
    }
    EXPECT_EQ(now(), 0);
    (void)take(100);
    EXPECT_EQ(take(100), 100);
}

} // namespace
