// The timing thread: what it does with the data of calls that nobody is registered for any more.

#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class StoreTimingTest : public testing::Test
{
protected:
    static std::vector<long> storeLockPlaces()
    {
        std::vector<long> vecPlaces;
        for (const auto& entry : CFakeLocks::entries("CCDSAPI::m_pcritsec"))
            vecPlaces.push_back(entry.lPlace);
        return vecPlaces;
    }
    /// What a new registrant of the call finds there.
    std::vector<std::string> whatIsLeftOf(const std::string& sCallID)
    {
        m_story.hears();
        m_story.registers("one who looks", sCallID);
        return m_story.hears();
    }

    CStoreStory m_story;
};

TEST_F(StoreTimingTest, TheThreadNamesItself)
{
    m_story.starts();
    m_story.lets(0);
    EXPECT_THAT(CFakeThreads::namesSet(), Contains("CDSTimingThr"));
}

TEST_F(StoreTimingTest, StartAndStopReachTheLogWhateverIsTraced)
{
    CFakeLog::setTraceMask("OvnCDS", 1);
    m_story.starts();
    m_story.stops();
    EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::timingThread - starting"), 1U);
    EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::timingThread - stopping"), 1U);
}

TEST_F(StoreTimingTest, StartAndStopAreErrorLevelLines)
{
    CFakeLog::setTraceMask("OvnCDS", ~1U);
    m_story.starts();
    m_story.lets(0);
    m_story.stops();
    EXPECT_FALSE(CFakeLog::contains("timingThread"));
}

TEST_F(StoreTimingTest, TheThreadWaitsTenSecondsPerRound)
{
    m_story.starts();
    EXPECT_TRUE(CFakeClock::awaitWaiters(1, 10000));
    CFakeClock::advance(10000);
    EXPECT_TRUE(CFakeClock::awaitWaiters(1, 10000));
}

TEST_F(StoreTimingTest, APassLocksOnceAtItsOwnPlaces)
{
    m_story.starts();
    CFakeLocks::record(true);
    m_story.lets(10000);
    EXPECT_THAT(storeLockPlaces(), ElementsAre(1162, 1193));
}

TEST_F(StoreTimingTest, NoPassBeforeTenSeconds)
{
    m_story.starts();
    CFakeLocks::record(true);
    m_story.lets(9999);
    EXPECT_THAT(storeLockPlaces(), IsEmpty());
}

TEST_F(StoreTimingTest, StoppingTheThreadMakesNoFurtherPass)
{
    m_story.starts();
    m_story.lets(0);
    CFakeLocks::record(true);
    m_story.stops();
    EXPECT_THAT(storeLockPlaces(), Not(Contains(1162)));
}

TEST_F(StoreTimingTest, DataThirtySecondsOldStays)
{
    m_story.starts();
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(30000);
    EXPECT_THAT(whatIsLeftOf("sip:1"), ElementsAre("one who looks: sip:1 CALLERID=alice"));
}

TEST_F(StoreTimingTest, DataOneMillisecondOlderGoes)
{
    m_story.starts();
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(30001);
    EXPECT_THAT(whatIsLeftOf("sip:1"), IsEmpty());
}

TEST_F(StoreTimingTest, YoungerDataStaysInTheSamePass)
{
    m_story.starts();
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(1);
    m_story.leavesBehind(CNews("sip:2").sets("CALLERID", "bob"));
    m_story.lets(30000);
    EXPECT_THAT(whatIsLeftOf("sip:1"), IsEmpty());
    m_story.unregisters("one who looks");
    EXPECT_THAT(whatIsLeftOf("sip:2"), ElementsAre("one who looks: sip:2 CALLERID=bob"));
}

TEST_F(StoreTimingTest, DataIsAsOldAsItsLastUnregistration)
{
    m_story.starts();
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(20000);
    m_story.unregisters("ann");
    m_story.lets(30000);
    EXPECT_THAT(whatIsLeftOf("sip:1"), ElementsAre("one who looks: sip:1 CALLERID=alice"));
}

TEST_F(StoreTimingTest, AgesHaveSixtyFourBits)
{
    m_story.starts();
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(0);
    CFakeClock::scriptTickReads({CFakeClock::cInitialTicks + (1ULL << 32U) + 5});
    m_story.lets(10000);
    EXPECT_THAT(whatIsLeftOf("sip:1"), IsEmpty());
}

TEST_F(StoreTimingTest, AgesAreUnsigned)
{
    m_story.starts();
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(0);
    CFakeClock::scriptTickReads({CFakeClock::cInitialTicks - 1});
    m_story.lets(10000);
    EXPECT_THAT(whatIsLeftOf("sip:1"), IsEmpty());
}

TEST_F(StoreTimingTest, TheTakenUpCallIsNotExpiredAnyMore)
{
    m_story.starts();
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.registersMute("ann", "sip:1");
    m_story.lets(40000);
    EXPECT_THAT(whatIsLeftOf("sip:1"), ElementsAre("one who looks: sip:1 CALLERID=alice"));
}

TEST_F(StoreTimingTest, LeavingTwiceStartsTheTimeAnew)
{
    m_story.starts();
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(20000);
    m_story.registersMute("ann", "sip:1");
    m_story.unregisters("ann");
    m_story.lets(30000);
    EXPECT_THAT(whatIsLeftOf("sip:1"), ElementsAre("one who looks: sip:1 CALLERID=alice"));
}

TEST_F(StoreTimingTest, RegistrantsOfAllCallsHearTheEndOfACallOnce)
{
    m_story.starts();
    m_story.registers("star", "*", "*");
    m_story.registers("at", "*", "@");
    m_story.registers("eoc", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(30001);
    EXPECT_THAT(m_story.hears(),
                ElementsAre("star: sip:1 CALLERID=alice", "at: sip:1 CALLERID=alice", "eoc: sip:1 CALLERID=alice"));
    m_story.lets(10000);
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreTimingTest, OtherEventsHearNothingOfTheEnd)
{
    m_story.starts();
    m_story.registers("other", "*", "END");
    m_story.registers("empty", "*", "");
    m_story.registers("longer", "*", "EOCS");
    m_story.registersMute("mute", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(30001);
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreTimingTest, TheEndComesAsCallDataOfTheRegistrant)
{
    m_story.starts();
    m_story.registers("eoc", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(30001);
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 1U);
    EXPECT_EQ(vecHeard[0].eReason, ccbr_calldata);
    EXPECT_EQ(vecHeard[0].sRegID, "eoc");
    EXPECT_EQ(vecHeard[0].ulReqHandle, m_story.handleOf("eoc"));
    EXPECT_EQ(vecHeard[0].ulTraceID, CStoreStory::traceIDOf("eoc"));
    EXPECT_NE(vecHeard[0].idThread, std::this_thread::get_id());
}

TEST_F(StoreTimingTest, TheRecordIsFreedAfterItsLastDelivery)
{
    CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
    std::size_t uFreedBefore = 1;
    m_story.starts();
    m_story.registers("eoc", "*", "EOC");
    m_story.reactsWith("eoc", [&](CCallbackMsg*) {
        uFreedBefore = CFakeLog::countContaining("CCallData Free");
        return 0L;
    });
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    CFakeLog::clear();
    m_story.lets(30001);
    EXPECT_EQ(uFreedBefore, 0U);
    EXPECT_EQ(CFakeLog::countContaining("CCallData Free"), 1U);
}

TEST_F(StoreTimingTest, ACallOfAnotherServerGoesSilently)
{
    CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
    m_story.starts();
    m_story.registers("eoc", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"), CStoreStory::cThere);
    CFakeLog::clear();
    m_story.lets(30001);
    EXPECT_THAT(m_story.hears(), IsEmpty());
    EXPECT_EQ(CFakeLog::countContaining("CCallData Free"), 1U);
}

TEST_F(StoreTimingTest, TheServerIsComparedWhole)
{
    m_story.starts();
    m_story.registers("eoc", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"), "10.0.0.10");
    m_story.leavesBehind(CNews("sip:2").sets("CALLERID", "bob"), "10.0.0.");
    m_story.lets(30001);
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreTimingTest, TheLastOneToLeaveSaysWhereTheCallLives)
{
    m_story.starts();
    m_story.registers("eoc", "*", "EOC");
    m_story.registersMute("ann", "sip:1", "none", CStoreStory::cThere);
    m_story.registersMute("bob", "sip:1", "none", CStoreStory::cHere);
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.unregisters("ann");
    m_story.unregisters("bob");
    m_story.lets(30001);
    EXPECT_THAT(m_story.hears(), ElementsAre("eoc: sip:1 CALLERID=alice"));
}

TEST_F(StoreTimingTest, SeveralExpiredCallsEndInCallIdOrder)
{
    m_story.starts();
    m_story.registers("eoc", "*", "EOC");
    m_story.leavesBehind(CNews("sip:2"));
    m_story.leavesBehind(CNews("sip:3"));
    m_story.leavesBehind(CNews("sip:1"));
    m_story.leavesBehind(CNews("sip:10"));
    m_story.lets(30001);
    EXPECT_THAT(m_story.hears(), ElementsAre("eoc: sip:1", "eoc: sip:10", "eoc: sip:2", "eoc: sip:3"));
}

TEST_F(StoreTimingTest, OnePassHoldsTheLockThroughAllItsDeliveries)
{
    m_story.starts();
    m_story.registers("eoc", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1"));
    m_story.leavesBehind(CNews("sip:2"));
    m_story.lets(0);
    CFakeLocks::record(true);
    m_story.lets(30001);
    EXPECT_THAT(storeLockPlaces(), ElementsAre(1162, 1193));
    for (const CHeard& heard : m_story.hearsInFull())
        EXPECT_THAT(heard.vecLocks, Contains("CCDSAPI::m_pcritsec"));
}

TEST_F(StoreTimingTest, AStoreWithoutTimingThreadKeepsEverything)
{
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(100000);
    EXPECT_THAT(whatIsLeftOf("sip:1"), ElementsAre("one who looks: sip:1 CALLERID=alice"));
}

} // namespace
