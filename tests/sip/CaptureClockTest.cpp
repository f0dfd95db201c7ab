#include "capture/CaptureClock.h"
#include "capture/MessageReorder.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

constexpr std::int64_t cNow = 1'795'219'810; // 2026-11-21
constexpr std::int64_t cMicro = 1'000'000;

class CaptureClockTest : public testing::Test
{
protected:
    std::int64_t believe(std::int64_t llSeconds, std::int64_t llMicros = 0)
    {
        return m_clock.believe(llSeconds, llMicros);
    }

    CIntakeCounts m_counts;
    CCaptureClock m_clock{m_counts};
};

TEST_F(CaptureClockTest, BelievesStampsThatAreNearEachOther)
{
    EXPECT_EQ(believe(cNow, 5), cNow * cMicro + 5);
    EXPECT_EQ(believe(cNow - 1), (cNow - 1) * cMicro);
    EXPECT_EQ(believe(cNow + 30 * 86'400 - 2), (cNow + 30 * 86'400 - 2) * cMicro);
    EXPECT_TRUE(m_counts.warnings().empty());
}

TEST_F(CaptureClockTest, GivesAnAbsurdStampTheTimeBelievedLast)
{
    (void)believe(cNow, 5);
    EXPECT_EQ(believe(0), cNow * cMicro + 5);
    EXPECT_EQ(believe(CCaptureClock::cEarliest - 1), cNow * cMicro + 5);
    EXPECT_EQ(believe(CCaptureClock::cLatest), cNow * cMicro + 5);
    EXPECT_EQ(believe(cNow, 1'000'000), cNow * cMicro + 5);
    EXPECT_EQ(believe(cNow, -1), cNow * cMicro + 5);
    EXPECT_EQ(m_counts.count("time stamp absurd: not believed"), 5U);
}

TEST_F(CaptureClockTest, GivesAStampFarFromItsNeighboursTheTimeBelievedLast)
{
    (void)believe(cNow);
    EXPECT_EQ(believe(cNow + 6 * 31'536'000), cNow * cMicro);
    EXPECT_EQ(believe(cNow - 31 * 86'400), cNow * cMicro);
    EXPECT_EQ(believe(cNow + 1), (cNow + 1) * cMicro);
    EXPECT_EQ(m_counts.count("time stamp far from its neighbours: not believed"), 2U);
}

TEST_F(CaptureClockTest, FollowsAClockThatWasSet)
{
    (void)believe(cNow);
    constexpr std::int64_t cLater = cNow + 100 * 86'400;
    EXPECT_EQ(believe(cLater), cNow * cMicro);
    EXPECT_EQ(believe(cLater + 1), cNow * cMicro);
    EXPECT_EQ(believe(cLater + 2), (cLater + 2) * cMicro);
    EXPECT_EQ(believe(cLater + 3), (cLater + 3) * cMicro);
    EXPECT_EQ(m_counts.count("capture clock was set: believed from here on"), 1U);
}

TEST_F(CaptureClockTest, NeverGivesTheZeroStamp)
{
    EXPECT_GT(believe(0), 0);
}

TEST(MessageReorderTest, OrdersByTimeAndKeepsTheOrderOfEqualTimes)
{
    std::vector<std::string> vecSeen;
    CMessageReorder reorder([&](CCapturedMessage&& message) { vecSeen.push_back(message.sBytes); });
    reorder.add({3 * cMicro, {}, {}, "c"});
    reorder.add({2 * cMicro + 1, {}, {}, "b1"});
    reorder.add({2 * cMicro + 1, {}, {}, "b2"});
    EXPECT_TRUE(vecSeen.empty());
    reorder.add({4 * cMicro, {}, {}, "d"});
    EXPECT_THAT(vecSeen, ElementsAre("b1", "b2"));
    reorder.flush();
    EXPECT_THAT(vecSeen, ElementsAre("b1", "b2", "c", "d"));
}

TEST(MessageReorderTest, HoldsABoundedNumber)
{
    std::size_t uSeen = 0;
    CMessageReorder reorder([&](CCapturedMessage&&) { ++uSeen; });
    for (std::size_t u = 0; u < CMessageReorder::cMaxHeld + 5; ++u)
        reorder.add({cMicro, {}, {}, ""});
    EXPECT_EQ(uSeen, 5U);
}

} // namespace
