// Registering and unregistering: what is taken, what is refused, and what is sent at once.

#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class StoreRegistrationTest : public testing::Test
{
protected:
    void callHasData(const std::string& sCallID, const std::string& sCaller)
    {
        m_story.registersMute("writer of " + sCallID, sCallID, "none");
        m_story.updates("writer of " + sCallID, CNews(sCallID).sets("CALLERID", sCaller));
    }

    CStoreStory m_story;
};

TEST_F(StoreRegistrationTest, ANewIdIsTaken)
{
    EXPECT_THAT(m_story.registers("ann", "sip:1"), IsOk());
}

TEST_F(StoreRegistrationTest, AKnownIdIsRefused)
{
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.registers("ann", "sip:2"), FailsWith(E_CDS_EXISTS));
}

TEST_F(StoreRegistrationTest, ARefusedIdLeavesTheFirstRegistrationAsItIs)
{
    m_story.registers("ann", "sip:1", "*");
    const unsigned long ulOther = m_story.handleOf("other");
    m_story.store().Register(ulOther, "ann", CStoreStory::cThere, "sip:2", "none", CStoreStory::callback, 99);
    m_story.updates("ann", CNews("sip:1"));
    m_story.updates("ann", CNews("sip:2"));
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 1U);
    EXPECT_EQ(vecHeard[0].sText, "sip:1");
    EXPECT_EQ(vecHeard[0].ulReqHandle, m_story.handleOf("ann"));
    EXPECT_EQ(vecHeard[0].ulTraceID, CStoreStory::traceIDOf("ann"));
}

TEST_F(StoreRegistrationTest, ARefusedIdIsNoticedByNobody)
{
    m_story.registers("ann", "sip:1", "@");
    m_story.registersMute("bob", "sip:1");
    m_story.hears();
    m_story.registers("bob", "sip:1");
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreRegistrationTest, ARefusedIdGetsNoData)
{
    callHasData("sip:1", "alice");
    m_story.registers("ann", "sip:2");
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

// The data there is.

TEST_F(StoreRegistrationTest, StarGetsTheDataThereIsAtOnce)
{
    callHasData("sip:1", "alice");
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLERID=alice"));
}

TEST_F(StoreRegistrationTest, TheDataThereIsComesInAMessageOfTheRegistrant)
{
    callHasData("sip:1", "alice");
    m_story.registers("ann", "sip:1");
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 1U);
    EXPECT_EQ(vecHeard[0].ulReqHandle, m_story.handleOf("ann"));
    EXPECT_EQ(vecHeard[0].sRegID, "ann");
    EXPECT_EQ(vecHeard[0].eReason, ccbr_calldata);
    EXPECT_EQ(vecHeard[0].ulTraceID, CStoreStory::traceIDOf("ann"));
    EXPECT_EQ(vecHeard[0].sCDSIPAddr, "");
}

TEST_F(StoreRegistrationTest, TheDataThereIsComesWhole)
{
    callHasData("sip:1", "alice");
    m_story.updates("writer of sip:1", CNews("sip:1").sets("CALLEDID", "bob").appends("CONNECT_ENTRY", "yes"));
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLEDID=bob CALLERID=alice CONNECT_ENTRY+yes"));
}

TEST_F(StoreRegistrationTest, WithoutDataNothingIsSent)
{
    callHasData("sip:2", "bob");
    EXPECT_THAT(m_story.registers("ann", "sip:1"), IsOk());
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreRegistrationTest, StarForAllCallsGetsEveryCallInCallIdOrder)
{
    callHasData("sip:2", "bob");
    callHasData("sip:10", "carl");
    callHasData("sip:1", "alice");
    m_story.registers("ann", "*");
    EXPECT_THAT(m_story.hears(),
                ElementsAre("ann: sip:1 CALLERID=alice", "ann: sip:10 CALLERID=carl", "ann: sip:2 CALLERID=bob"));
}

TEST_F(StoreRegistrationTest, WithoutCallbackNothingIsSent)
{
    callHasData("sip:1", "alice");
    EXPECT_THAT(m_story.registersMute("ann", "sip:1", "*"), IsOk());
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreRegistrationTest, AnyEventIsTakenWithoutCallback)
{
    EXPECT_THAT(m_story.registersMute("ann", "sip:1", "@"), IsOk());
    EXPECT_THAT(m_story.registersMute("bob", "sip:1", ""), IsOk());
    EXPECT_THAT(m_story.registersMute("carl", "*", "EOC"), IsOk());
}

class StoreRegistrationEventTest : public StoreRegistrationTest, public testing::WithParamInterface<const char*>
{
};

TEST_P(StoreRegistrationEventTest, GetsNoDataAtOnce)
{
    callHasData("sip:1", "alice");
    m_story.registers("ann", "sip:1", GetParam());
    for (const CHeard& heard : m_story.hearsInFull())
        EXPECT_NE(heard.eReason, ccbr_calldata);
}

INSTANTIATE_TEST_SUITE_P(OtherThanStar, StoreRegistrationEventTest,
                         testing::Values("@", "EOC", "", "**", " *", "none"));

// Notices.

TEST_F(StoreRegistrationTest, AListenerHearsOfLaterRegistrationsAndUnregistrations)
{
    m_story.registers("ann", "sip:1", "@");
    m_story.hears();
    m_story.registersMute("bob", "sip:2", "none", CStoreStory::cThere);
    m_story.unregisters("bob");
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: bob registered for sip:2 at 10.0.0.2",
                                             "ann: bob unregistered for sip:2 at 10.0.0.2"));
}

TEST_F(StoreRegistrationTest, AListenerHearsOfItsOwnRegistration)
{
    m_story.registers("ann", "sip:1", "@");
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: ann registered for sip:1 at 10.0.0.1"));
}

TEST_F(StoreRegistrationTest, AListenerDoesNotHearOfItsOwnUnregistration)
{
    m_story.registers("ann", "sip:1", "@");
    m_story.hears();
    m_story.unregisters("ann");
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreRegistrationTest, ANoticeNamesTheOneConcernedAndBelongsToTheListener)
{
    m_story.registers("ann", "sip:1", "@");
    m_story.hears();
    m_story.registersMute("bob", "sip:2");
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 1U);
    EXPECT_EQ(vecHeard[0].sRegID, "bob");
    EXPECT_EQ(vecHeard[0].eReason, ccbr_registration);
    EXPECT_EQ(vecHeard[0].ulReqHandle, m_story.handleOf("ann"));
    EXPECT_EQ(vecHeard[0].ulTraceID, CStoreStory::traceIDOf("ann"));
    EXPECT_EQ(vecHeard[0].sCDSIPAddr, "");
}

TEST_F(StoreRegistrationTest, ANoticeHasTheZeroStamp)
{
    m_story.registers("ann", "sip:1", "@");
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 1U);
    EXPECT_TRUE(vecHeard[0].tsNotice == CCDSTimestamp(0, 0));
}

TEST_F(StoreRegistrationTest, ListenersHearByCallIdThenInTheOrderTheyCame)
{
    m_story.registers("dora", "sip:2", "@");
    m_story.registers("carl", "sip:1", "@");
    m_story.registers("bob", "sip:1", "@");
    m_story.registers("ann", "*", "@");
    m_story.hears();
    m_story.registersMute("x", "sip:9");
    std::vector<std::string> vecWho;
    for (const CHeard& heard : m_story.hearsInFull())
        vecWho.push_back(heard.sWho);
    EXPECT_THAT(vecWho, ElementsAre("ann", "carl", "bob", "dora"));
}

TEST_F(StoreRegistrationTest, AListenerWithoutCallbackIsPassedOver)
{
    m_story.registersMute("ann", "sip:1", "@");
    m_story.registers("bob", "sip:1", "@");
    EXPECT_THAT(m_story.hears(), ElementsAre("bob: bob registered for sip:1 at 10.0.0.1"));
}

TEST_F(StoreRegistrationTest, OnlyAtListensToRegistrations)
{
    m_story.registers("ann", "sip:1", "*");
    m_story.registers("bob", "sip:1", "@@");
    m_story.registers("carl", "sip:1", "EOC");
    m_story.registersMute("x", "sip:1");
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreRegistrationTest, NoticesComeBeforeTheDataThereIs)
{
    callHasData("sip:1", "alice");
    m_story.registers("ann", "*", "@");
    m_story.hears();
    m_story.registers("bob", "sip:1", "*");
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: bob registered for sip:1 at 10.0.0.1", "bob: sip:1 CALLERID=alice"));
}

TEST_F(StoreRegistrationTest, WhatACallbackReturnsDoesNotMatter)
{
    callHasData("sip:1", "alice");
    for (const char* pszWho : {"ann", "bob"})
        m_story.reactsWith(pszWho, [](CCallbackMsg*) { return E_FAIL; });
    EXPECT_THAT(m_story.registers("ann", "*", "@"), IsOk());
    EXPECT_THAT(m_story.registers("bob", "sip:1", "*"), IsOk());
    EXPECT_THAT(m_story.unregisters("bob"), IsOk());
}

TEST_F(StoreRegistrationTest, AFailingListenerDoesNotSilenceTheNext)
{
    m_story.registers("ann", "sip:1", "@");
    m_story.registers("bob", "sip:1", "@");
    m_story.hears();
    m_story.reactsWith("ann", [](CCallbackMsg*) { return E_FAIL; });
    m_story.registersMute("x", "sip:1");
    EXPECT_THAT(m_story.hears(), ElementsAre(StartsWith("ann: x"), StartsWith("bob: x")));
}

// Unregistering.

TEST_F(StoreRegistrationTest, AnUnregisteredIdCanComeBack)
{
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.unregisters("ann"), IsOk());
    EXPECT_THAT(m_story.registers("ann", "sip:1"), IsOk());
}

TEST_F(StoreRegistrationTest, AnUnknownIdCannotLeave)
{
    EXPECT_THAT(m_story.unregisters("ann"), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(StoreRegistrationTest, AnUnknownIdIsNoticedByNobody)
{
    m_story.registers("bob", "sip:1", "@");
    m_story.hears();
    m_story.unregisters("ann");
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreRegistrationTest, WhoHasLeftIsNotCalledAnyMore)
{
    m_story.registers("ann", "sip:1");
    m_story.registers("bob", "sip:1");
    m_story.unregisters("ann");
    m_story.updates("bob", CNews("sip:1"));
    EXPECT_THAT(m_story.hears(), ElementsAre("bob: sip:1"));
}

TEST_F(StoreRegistrationTest, LeavingFromTheMiddleKeepsTheOthersOrder)
{
    for (const char* pszWho : {"carl", "bob", "ann"})
        m_story.registers(pszWho, "sip:1");
    m_story.unregisters("bob");
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_THAT(m_story.hears(), ElementsAre("carl: sip:1", "ann: sip:1"));
}

TEST_F(StoreRegistrationTest, OneIdLeavingLeavesTheOtherIdsOfTheSameParty)
{
    const unsigned long ulHandle = m_story.handleOf("ann");
    m_story.store().Register(ulHandle, "one", CStoreStory::cHere, "sip:1", "*", CStoreStory::callback, 1);
    m_story.store().Register(ulHandle, "two", CStoreStory::cHere, "sip:1", "*", CStoreStory::callback, 2);
    m_story.unregisters("one");
    m_story.updates("two", CNews("sip:1"));
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 1U);
    EXPECT_EQ(vecHeard[0].sRegID, "two");
}

// Threads, locks, lines.

TEST_F(StoreRegistrationTest, CallbacksRunOnTheCallersThreadUnderTheLock)
{
    callHasData("sip:1", "alice");
    CFakeLocks::record(true);
    m_story.registers("ann", "sip:1", "@");
    m_story.registers("bob", "sip:1", "*");
    m_story.unregisters("bob");
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 4U);
    for (const CHeard& heard : vecHeard)
    {
        EXPECT_EQ(heard.idThread, std::this_thread::get_id());
        EXPECT_THAT(heard.vecLocks, testing::Contains("CCDSAPI::m_pcritsec"));
    }
}

TEST_F(StoreRegistrationTest, EachOperationLocksOnceAtItsOwnPlaces)
{
    callHasData("sip:1", "alice");
    CFakeLocks::record(true);
    m_story.registers("ann", "sip:1");
    m_story.registers("ann", "sip:1");
    m_story.unregisters("ann");
    m_story.unregisters("ann");
    std::vector<long> vecPlaces;
    for (const auto& entry : CFakeLocks::entries("CCDSAPI::m_pcritsec"))
        vecPlaces.push_back(entry.lPlace);
    EXPECT_THAT(vecPlaces, ElementsAre(326, 433, 326, 433, 458, 543, 458, 543));
}

class StoreRegistrationTraceTest : public StoreRegistrationTest
{
protected:
    StoreRegistrationTraceTest() { CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels); }

    static void traceAllBut(std::uint32_t dwLevel) { CFakeLog::setTraceMask("OvnCDS", ~dwLevel); }
};

TEST_F(StoreRegistrationTraceTest, RegisterTellsItsArguments)
{
    m_story.store().Register(7, "ann", "10.0.0.9", "sip:1", "EOC", nullptr, 0xABCD);
    EXPECT_EQ(CFakeLog::countExactly(
                  "CCDSAPI::Register: \"ann\",\"sip:1\",IP=\"10.0.0.9\",CCOID=0x0000ABCD, Req=7, event=EOC"),
              1U);
}

TEST_F(StoreRegistrationTraceTest, RegisterTellsItsArgumentsAtTheInformationLevel)
{
    traceAllBut(4);
    m_story.registers("ann", "sip:1");
    EXPECT_FALSE(CFakeLog::contains("CCOID="));
}

TEST_F(StoreRegistrationTraceTest, AWideTraceIdIsPrintedAndHandedBackByItsLowThirtyTwoBits)
{
    if constexpr (sizeof(unsigned long) > 4)
    {
        const auto ulWide = static_cast<unsigned long>(0x10000ABCDULL);
        m_story.store().Register(m_story.handleOf("ann"), "ann", "", "sip:1", "*", CStoreStory::callback, ulWide);
        EXPECT_TRUE(CFakeLog::contains(",CCOID=0x0000ABCD, Req="));
        const CNews news("sip:1");
        m_story.updates("ann", news);
        m_story.unregisters("ann");
        EXPECT_EQ(CFakeLog::countContaining("CCOID=0x0000ABCD,"), 3U);
        const auto vecHeard = m_story.hearsInFull();
        ASSERT_EQ(vecHeard.size(), 1U);
        EXPECT_EQ(vecHeard[0].ulTraceID, 0xABCDU);
    }
}

TEST_F(StoreRegistrationTraceTest, WideHandlesPrintTheirLowThirtyTwoBits)
{
    m_story.store().Register(static_cast<unsigned long>(-1L), "ann", "", "sip:1", "EOC", nullptr, 0);
    EXPECT_TRUE(CFakeLog::contains(", Req=-1, event=EOC"));
}

TEST_F(StoreRegistrationTraceTest, ANewRegistrationIsTold)
{
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(CFakeLog::find("pregiddata"),
                testing::MatchesRegex("CCDSAPI::Register: \"ann\",\"sip:1\", pregiddata - 0x[0-9A-F]{8}"));
}

TEST_F(StoreRegistrationTraceTest, ANewRegistrationIsToldAtTheErrorLevel)
{
    traceAllBut(1);
    m_story.registers("ann", "sip:1");
    EXPECT_FALSE(CFakeLog::contains("pregiddata"));
}

TEST_F(StoreRegistrationTraceTest, ARefusedRegistrationIsAnErrorAndNotTold)
{
    m_story.registers("ann", "sip:1");
    CFakeLog::clear();
    m_story.registers("ann", "sip:1");
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSAPI::Register: failed: 0xC1170A2F"), 1U);
    traceAllBut(1);
    CFakeLog::clear();
    m_story.registers("ann", "sip:1");
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
    EXPECT_FALSE(CFakeLog::contains("pregiddata"));
}

TEST_F(StoreRegistrationTraceTest, EachRecordSentAtOnceIsTold)
{
    callHasData("sip:1", "alice");
    callHasData("sip:2", "bob");
    m_story.registers("ann", "*");
    EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::Register: Sending current call data"), 2U);
}

TEST_F(StoreRegistrationTraceTest, EachRecordSentAtOnceIsToldAtTheInformationLevel)
{
    callHasData("sip:1", "alice");
    traceAllBut(4);
    m_story.registers("ann", "*");
    EXPECT_FALSE(CFakeLog::contains("Sending current call data"));
}

TEST_F(StoreRegistrationTraceTest, UnregisterTellsTheIdFirstAndAlways)
{
    CFakeLog::setTraceMask("OvnCDS", 0x100);
    m_story.unregisters("ann");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("CCDSAPI::Unregister: RegID=ann"));
}

TEST_F(StoreRegistrationTraceTest, UnregisterNamesTheSameObjectAsRegister)
{
    m_story.registers("ann", "sip:1");
    const std::string sRegistered = CFakeLog::find("pregiddata");
    CFakeLog::clear();
    m_story.unregisters("ann");
    const std::string sUnregistered = CFakeLog::find("pregiddata");
    EXPECT_THAT(sUnregistered, StartsWith("CCDSAPI::Unregister: \"ann\",\"sip:1\", pregiddata - 0x"));
    EXPECT_EQ(sUnregistered.substr(sUnregistered.size() - 10), sRegistered.substr(sRegistered.size() - 10));
}

TEST_F(StoreRegistrationTraceTest, UnregisterNamesTheObjectAtTheErrorLevel)
{
    m_story.registers("ann", "sip:1");
    CFakeLog::clear();
    traceAllBut(1);
    m_story.unregisters("ann");
    EXPECT_FALSE(CFakeLog::contains("pregiddata"));
}

TEST_F(StoreRegistrationTraceTest, UnregisterTellsWhatTheRegistrantHasSent)
{
    m_story.store().Register(0, "ann", "", "sip:1", "none", nullptr, 0xABCD);
    for (int i = 0; i < 2; ++i)
        m_story.updates("ann", CNews("sip:1").sets("A", "1").sets("B", "2").sets("C", "3").appends("L", "x"));
    m_story.unregisters("ann");
    EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::Unregister: \"ann\",CCOID=0x0000ABCD,updates=2, setprops=6, applog=2"),
              1U);
}

TEST_F(StoreRegistrationTraceTest, UnregisterTellsTheCountsAtTheInformationLevel)
{
    m_story.registers("ann", "sip:1");
    traceAllBut(4);
    m_story.unregisters("ann");
    EXPECT_FALSE(CFakeLog::contains("updates="));
}

TEST_F(StoreRegistrationTraceTest, UnregisterSaysFirstWhoThenWhatWasSentThenWhichObject)
{
    m_story.registers("ann", "sip:1");
    CFakeLog::clear();
    m_story.unregisters("ann");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre(HasSubstr("RegID="), HasSubstr("updates="), HasSubstr("pregiddata")));
}

TEST_F(StoreRegistrationTraceTest, AnUnknownIdIsAnErrorWithoutCounts)
{
    m_story.unregisters("ann");
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSAPI::Unregister: failed: 0xC1170A2E"), 1U);
    traceAllBut(1);
    CFakeLog::clear();
    m_story.unregisters("ann");
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
    EXPECT_FALSE(CFakeLog::contains("updates="));
}

TEST_F(StoreRegistrationTraceTest, TheCountsOfAReusedObjectAddUp)
{
    m_story.registersMute("ann", "sip:1");
    CNews news("sip:1");
    m_story.updates("ann", news.sets("A", "1"));
    m_story.updates("ann", news.sets("A", "2"));
    m_story.unregisters("ann");
    EXPECT_TRUE(CFakeLog::contains("updates=2, setprops=3, applog=0"));
}

TEST_F(StoreRegistrationTraceTest, ARefusedUpdateCountsToo)
{
    m_story.registersMute("ann", "sip:1");
    m_story.updatesForOthers("ann", CNews("sip:1").sets("A", "1"));
    m_story.unregisters("ann");
    EXPECT_TRUE(CFakeLog::contains("updates=1, setprops=1, applog=0"));
}

TEST_F(StoreRegistrationTraceTest, OthersUpdatesDoNotCount)
{
    m_story.registersMute("ann", "sip:1");
    m_story.registersMute("bob", "sip:1");
    m_story.updates("bob", CNews("sip:1").sets("A", "1"));
    m_story.updates("nobody", CNews("sip:1").sets("A", "1"));
    m_story.unregisters("ann");
    EXPECT_TRUE(CFakeLog::contains("updates=0, setprops=0, applog=0"));
}

} // namespace
