// Time stamps: taking the current time.

#include "CDSParams.h"
#include "ModelSupport.h"

using namespace model;

namespace {

/// The sequence of stamps belongs to the process, so every case starts with a clock value of its own.
class TimestampClockTest : public CModelTest
{
protected:
    TimestampClockTest() { CFakeClock::setFileTime(m_ullNow); }

    /// Sets the clock, takes the current time.
    static CCDSTimestamp takenAt(unsigned long long ullFileTime)
    {
        CFakeClock::setFileTime(ullFileTime);
        return taken();
    }

    static CCDSTimestamp taken()
    {
        CCDSTimestamp tsStamp(0, -5);
        CCDSTimestamp::getCurrent(&tsStamp);
        return tsStamp;
    }

    const unsigned long long m_ullNow = nextClock();

private:
    static unsigned long long nextClock()
    {
        static unsigned long long ullNext = 140'000'000'000'000'000ULL;
        return ullNext += 1'000'000;
    }
};

} // namespace

TEST_F(TimestampClockTest, TheDefaultStampIsTheCurrentTime)
{
    EXPECT_EQ(CCDSTimestamp(), at(m_ullNow, 0));
}

TEST_F(TimestampClockTest, StampsWithinOneTickAreNumberedFromZero)
{
    for (long i = 0; i < 5; ++i)
        EXPECT_EQ(taken(), at(m_ullNow, i));
}

TEST_F(TimestampClockTest, AllWhoTakeStampsShareOneNumbering)
{
    EXPECT_EQ(taken(), at(m_ullNow, 0));
    EXPECT_EQ(CCDSTimestamp(), at(m_ullNow, 1));
    EXPECT_EQ(taken(), at(m_ullNow, 2));
}

TEST_F(TimestampClockTest, LaterStampsOfOneTickAreGreater)
{
    const CCDSTimestamp tsFirst = taken();
    const CCDSTimestamp tsSecond = taken();
    EXPECT_TRUE(tsSecond > tsFirst);
}

TEST_F(TimestampClockTest, NumbersStartAgainWhenTheClockMoves)
{
    (void)taken();
    (void)taken();
    EXPECT_EQ(takenAt(m_ullNow + 1), at(m_ullNow + 1, 0));
}

TEST_F(TimestampClockTest, NumbersStartAgainWhenTheClockStepsBack)
{
    const CCDSTimestamp tsFirst = taken();
    const CCDSTimestamp tsBack = takenAt(m_ullNow - 1);
    EXPECT_EQ(tsBack, at(m_ullNow - 1, 0));
    EXPECT_TRUE(tsBack < tsFirst);
}

TEST_F(TimestampClockTest, OnlyTheValueTakenLastCounts)
{
    EXPECT_EQ(takenAt(m_ullNow).incrementValue(), 0);
    EXPECT_EQ(takenAt(m_ullNow).incrementValue(), 1);
    EXPECT_EQ(takenAt(m_ullNow - 1).incrementValue(), 0);
    EXPECT_EQ(takenAt(m_ullNow).incrementValue(), 0); // as if it were new
}

TEST_F(TimestampClockTest, ReadsTheClockOncePerStamp)
{
    const std::size_t uBefore = CFakeClock::fileTimeReads();
    (void)taken();
    EXPECT_EQ(CFakeClock::fileTimeReads(), uBefore + 1);
    (void)CCDSTimestamp();
    EXPECT_EQ(CFakeClock::fileTimeReads(), uBefore + 2);
}

TEST_F(TimestampClockTest, NothingElseTakesAStamp)
{
    EXPECT_EQ(taken(), at(m_ullNow, 0));
    const std::size_t uBefore = CFakeClock::fileTimeReads();
    CCDSTimestamp tsStamp(5, 5);
    tsStamp.set(6, 6);
    tsStamp.set(at(7, 7));
    tsStamp.increment();
    (void)(tsStamp < at(8) || tsStamp > at(8) || tsStamp >= at(8) || tsStamp == at(8));
    (void)tsStamp.toString();
    std::string sText;
    (void)tsStamp.serialize(&sText);
    (void)tsStamp.deserialize(sText);
    EXPECT_EQ(CFakeClock::fileTimeReads(), uBefore);
    EXPECT_EQ(taken(), at(m_ullNow, 1));
}
