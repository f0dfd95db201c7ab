// Delivery: who gets a change, in which order, and in what.

#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StoreDeliveryTest : public testing::Test
{
protected:
    std::vector<std::string> whoHears()
    {
        std::vector<std::string> vecWho;
        for (const CHeard& heard : m_story.hearsInFull())
            vecWho.push_back(heard.sWho);
        return vecWho;
    }

    CStoreStory m_story;
};

TEST_F(StoreDeliveryTest, StarAndAtHearOfChanges)
{
    m_story.registers("star", "sip:1", "*");
    m_story.registers("at", "sip:1", "@");
    m_story.hears();
    m_story.updates("star", CNews("sip:1"));
    EXPECT_THAT(whoHears(), ElementsAre("star", "at"));
}

class StoreDeliveryEventTest : public StoreDeliveryTest, public testing::WithParamInterface<const char*>
{
};

TEST_P(StoreDeliveryEventTest, HearsOfNoChange)
{
    m_story.registers("ann", "sip:1", GetParam());
    m_story.registers("all", "*", GetParam());
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alicia"));
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Other, StoreDeliveryEventTest, testing::Values("EOC", "", "**", "@@", "none"));

TEST_F(StoreDeliveryTest, RegistrantsOfAnotherCallHearNothing)
{
    m_story.registers("ann", "sip:1");
    m_story.registers("bob", "sip:10");
    m_story.updates("bob", CNews("sip:1"));
    EXPECT_THAT(whoHears(), ElementsAre("ann"));
}

TEST_F(StoreDeliveryTest, AnUpdaterWithoutInterestHearsNothing)
{
    m_story.registers("ann", "sip:1", "none");
    m_story.registers("bob", "sip:1");
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_THAT(whoHears(), ElementsAre("bob"));
}

TEST_F(StoreDeliveryTest, AnInterestedUpdaterHearsItsOwnChange)
{
    m_story.registers("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_THAT(whoHears(), ElementsAre("ann"));
}

TEST_F(StoreDeliveryTest, TheCallsRegistrantsComeFirstEachGroupInTheOrderItCame)
{
    m_story.registers("zoe", "*");
    m_story.registers("yves", "sip:1");
    m_story.registers("ann", "*", "@");
    m_story.registers("bob", "sip:1", "@");
    m_story.registers("ada", "sip:1");
    m_story.hears();
    m_story.updates("zoe", CNews("sip:1"));
    EXPECT_THAT(whoHears(), ElementsAre("yves", "bob", "ada", "zoe", "ann"));
}

TEST_F(StoreDeliveryTest, WhoComesBackStandsLast)
{
    m_story.registers("ann", "sip:1");
    m_story.registers("bob", "sip:1");
    m_story.unregisters("ann");
    m_story.registers("ann", "sip:1");
    m_story.updates("bob", CNews("sip:1"));
    EXPECT_THAT(whoHears(), ElementsAre("bob", "ann"));
}

TEST_F(StoreDeliveryTest, RegistrantsOfAllCallsHearEachChangeOfEachCallOnce)
{
    m_story.registers("all", "*");
    m_story.updates("all", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.updates("all", CNews("sip:2").sets("CALLERID", "bob"));
    m_story.updates("all", CNews("sip:1").sets("CALLEDID", "carl"));
    EXPECT_THAT(m_story.hears(),
                ElementsAre("all: sip:1 CALLERID=alice", "all: sip:2 CALLERID=bob", "all: sip:1 CALLEDID=carl"));
}

TEST_F(StoreDeliveryTest, WhoIsRegisteredTwiceIsCalledTwice)
{
    m_story.registers("ann for one", "sip:1");
    m_story.registers("ann for all", "*");
    m_story.updates("ann for one", CNews("sip:1"));
    EXPECT_THAT(whoHears(), ElementsAre("ann for one", "ann for all"));
}

TEST_F(StoreDeliveryTest, DataOfAllCallsIsDeliveredOnce)
{
    m_story.registers("all", "*");
    m_story.registers("one", "sip:1");
    m_story.updates("all", CNews("*").sets("CALLERID", "alice"));
    EXPECT_THAT(m_story.hears(), ElementsAre("all: * CALLERID=alice"));
}

TEST_F(StoreDeliveryTest, WhoHasNoCallbackIsPassedOver)
{
    m_story.registersMute("ann", "sip:1");
    m_story.registers("bob", "sip:1");
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_THAT(whoHears(), ElementsAre("bob"));
}

TEST_F(StoreDeliveryTest, AllReceiversGetTheSamePayload)
{
    m_story.registers("ann", "sip:1");
    m_story.registers("bob", "sip:1");
    m_story.registers("all", "*");
    m_story.updates("ann", CNews("sip:1"));
    std::set<const CCallbackData*> setPayloads;
    for (const CHeard& heard : m_story.hearsInFull())
        setPayloads.insert(heard.pPayload);
    EXPECT_EQ(setPayloads.size(), 1U);
}

TEST_F(StoreDeliveryTest, EachReceiverGetsAMessageOfItsOwn)
{
    m_story.registers("ann", "sip:1");
    m_story.registers("all", "*");
    m_story.updates("ann", CNews("sip:1"));
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 2U);
    for (const CHeard& heard : vecHeard)
    {
        EXPECT_EQ(heard.ulReqHandle, m_story.handleOf(heard.sWho));
        EXPECT_EQ(heard.sRegID, heard.sWho);
        EXPECT_EQ(heard.ulTraceID, CStoreStory::traceIDOf(heard.sWho));
    }
}

TEST_F(StoreDeliveryTest, ChangesComeAsCallDataWithoutAddress)
{
    m_story.registers("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1"));
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 1U);
    EXPECT_EQ(vecHeard[0].eReason, ccbr_calldata);
    EXPECT_EQ(vecHeard[0].sCDSIPAddr, "");
}

TEST_F(StoreDeliveryTest, TheFirstChangeOfACallIsTheStoredRecordItself)
{
    m_story.registers("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1"));
    m_story.asksFor("ann", "sip:1");
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 2U);
    EXPECT_EQ(vecHeard[0].pPayload, vecHeard[1].pPayload);
}

TEST_F(StoreDeliveryTest, AReceiverThatFailsDoesNotSilenceTheOthers)
{
    m_story.registers("ann", "sip:1");
    m_story.registers("bob", "sip:1");
    m_story.reactsWith("ann", [](CCallbackMsg*) { return E_FAIL; });
    EXPECT_THAT(m_story.updates("ann", CNews("sip:1")), IsOk());
    EXPECT_THAT(whoHears(), ElementsAre("ann", "bob"));
}

TEST_F(StoreDeliveryTest, AReceiverThatFailsIsLogged)
{
    m_story.registers("ann", "sip:1");
    m_story.reactsWith("ann", [](CCallbackMsg*) { return static_cast<long>(0x8000FFFFUL); });
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSAPI::callCallback: failed: 0x8000FFFF"), 1U);
}

TEST_F(StoreDeliveryTest, AReceiverThatIsContentIsNotLogged)
{
    m_story.registers("ann", "sip:1");
    m_story.reactsWith("ann", [](CCallbackMsg*) { return 1L; });
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_FALSE(CFakeLog::contains("callCallback"));
}

TEST_F(StoreDeliveryTest, ReceiversRunOnTheUpdatersThreadUnderTheLock)
{
    m_story.registers("ann", "sip:1");
    CFakeLocks::record(true);
    m_story.updates("ann", CNews("sip:1"));
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 1U);
    EXPECT_EQ(vecHeard[0].idThread, std::this_thread::get_id());
    EXPECT_THAT(vecHeard[0].vecLocks, testing::Contains("CCDSAPI::m_pcritsec"));
}

TEST_F(StoreDeliveryTest, HandlesComeBackInFullWidth)
{
    static unsigned long s_ulHandle = 0;
    const auto ulHandle = static_cast<unsigned long>(-2L);
    m_story.store().Register(
        ulHandle, "ann", "", "sip:1", "*",
        [](CCallbackMsg* pMessage) {
            s_ulHandle = pMessage->getReqHandle();
            return 0L;
        },
        0);
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_EQ(s_ulHandle, ulHandle);
}

} // namespace
