// The data of calls whose last registrant has left, and how a new registrant takes it up.

#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StoreKeptDataTest : public testing::Test
{
protected:
    CStoreStory m_story;
};

TEST_F(StoreKeptDataTest, WhoComesBackFindsTheSameData)
{
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice").appends("CONNECT_ENTRY", "yes"));
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLERID=alice CONNECT_ENTRY+yes"));
}

TEST_F(StoreKeptDataTest, TheRecordItselfComesBack)
{
    m_story.registers("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.unregisters("ann");
    m_story.registers("ann", "sip:1");
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 2U);
    EXPECT_EQ(vecHeard[0].pPayload, vecHeard[1].pPayload);
}

TEST_F(StoreKeptDataTest, OneOfTwoLeavingLeavesTheData)
{
    m_story.registersMute("ann", "sip:1");
    m_story.registersMute("bob", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.unregisters("ann");
    m_story.registers("all", "*");
    EXPECT_THAT(m_story.hears(), ElementsAre("all: sip:1 CALLERID=alice"));
}

TEST_F(StoreKeptDataTest, KeptDataIsNotSentToThoseOfAllCalls)
{
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.registers("all", "*");
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreKeptDataTest, KeptDataCannotBeAskedFor)
{
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.registers("all", "*");
    EXPECT_THAT(m_story.asksFor("all", "sip:1"), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(StoreKeptDataTest, RegistrantsOfAllCallsDoNotHoldACallsData)
{
    m_story.registers("all", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(m_story.asksFor("all", "sip:1"), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(StoreKeptDataTest, ARefusedRegistrationTakesTheDataUpAllTheSame)
{
    m_story.registers("ann", "sip:2");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(m_story.registers("ann", "sip:1"), FailsWith(E_CDS_EXISTS));
    m_story.registers("all", "*");
    EXPECT_THAT(m_story.hears(), ElementsAre("all: sip:1 CALLERID=alice"));
}

TEST_F(StoreKeptDataTest, NewDataWinsOverKeptData)
{
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.registers("bob", "sip:2");
    m_story.updates("bob", CNews("sip:1").sets("CALLEDID", "carl"));
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLEDID=carl"));
}

TEST_F(StoreKeptDataTest, DataThatLostToNewerDataIsGone)
{
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.registers("bob", "sip:2");
    m_story.updates("bob", CNews("sip:1").sets("CALLEDID", "carl"));
    m_story.registers("ann", "sip:1");
    m_story.unregisters("ann");
    m_story.hears();
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLEDID=carl"));
}

TEST_F(StoreKeptDataTest, ACallWithoutDataLeavesNothing)
{
    m_story.registers("ann", "sip:1");
    m_story.unregisters("ann");
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreKeptDataTest, DataOfAllCallsCanBeKeptToo)
{
    m_story.registers("ann", "*", "none");
    m_story.updates("ann", CNews("*").sets("CALLERID", "alice"));
    m_story.unregisters("ann");
    m_story.registers("ann", "*");
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: * CALLERID=alice"));
}

TEST_F(StoreKeptDataTest, KeepingReadsTheClockOnceMore)
{
    m_story.registersMute("ann", "sip:1");
    m_story.registersMute("bob", "sip:2");
    m_story.updates("ann", CNews("sip:1"));
    const std::size_t uBefore = CFakeClock::tickReads();
    m_story.unregisters("bob");
    const std::size_t uWithoutData = CFakeClock::tickReads() - uBefore;
    m_story.unregisters("ann");
    EXPECT_EQ(CFakeClock::tickReads() - uBefore - uWithoutData, uWithoutData + 1);
}

} // namespace
