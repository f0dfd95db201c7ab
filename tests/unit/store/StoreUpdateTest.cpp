// Updates: what is taken into a call's record, what is refused, and what GetCallData hands out.

#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class StoreUpdateTest : public testing::Test
{
protected:
    static std::vector<long> storeLockPlaces()
    {
        std::vector<long> vecPlaces;
        for (const auto& entry : CFakeLocks::entries("CCDSAPI::m_pcritsec"))
            vecPlaces.push_back(entry.lPlace);
        return vecPlaces;
    }
    /// What is stored, as a new registrant of the call gets it.
    std::vector<std::string> stored(const std::string& sCallID)
    {
        m_story.hears();
        m_story.registers("one who looks", sCallID);
        return m_story.hears();
    }

    CStoreStory m_story;
};

// Refusals.

TEST_F(StoreUpdateTest, NoDataIsRefused)
{
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.store().Update("ann", nullptr, false), FailsWith(E_CDS_NULLDATA));
}

TEST_F(StoreUpdateTest, NoDataIsNotEvenWorthALine)
{
    m_story.registers("ann", "sip:1");
    CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
    CFakeLog::clear();
    m_story.store().Update("ann", nullptr, true);
    EXPECT_THAT(CFakeLog::texts(), IsEmpty());
}

TEST_F(StoreUpdateTest, NoDataTakesNoLock)
{
    CFakeLocks::record(true);
    m_story.store().Update("ann", nullptr, true);
    EXPECT_THAT(CFakeLocks::entries(), IsEmpty());
}

TEST_F(StoreUpdateTest, AnUnknownUpdaterIsRefused)
{
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.updates("bob", CNews("sip:1").sets("CALLERID", "alice")), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(StoreUpdateTest, AnUnknownUpdatersDataIsNeitherDeliveredNorStored)
{
    m_story.registers("ann", "sip:1");
    m_story.updates("bob", CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(m_story.hears(), IsEmpty());
    EXPECT_THAT(stored("sip:1"), IsEmpty());
}

TEST_F(StoreUpdateTest, DataThatNobodyElseWantsIsRefusedWhenAsked)
{
    m_story.registersMute("bob", "sip:2");
    EXPECT_THAT(m_story.updatesForOthers("bob", CNews("sip:1").sets("CALLERID", "alice")), FailsWith(E_CDS_NOTFOUND));
    EXPECT_THAT(stored("sip:1"), IsEmpty());
}

TEST_F(StoreUpdateTest, TheUpdaterItselfDoesNotCountAsSomebodyElse)
{
    m_story.registersMute("ann", "sip:1");
    EXPECT_THAT(m_story.updatesForOthers("ann", CNews("sip:1")), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(StoreUpdateTest, RegistrantsOfAllCallsDoNotCountAsSomebodyElse)
{
    m_story.registersMute("ann", "sip:1");
    m_story.registersMute("all", "*");
    EXPECT_THAT(m_story.updatesForOthers("ann", CNews("sip:1")), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(StoreUpdateTest, OneOtherRegistrantIsEnoughEvenWithoutCallback)
{
    m_story.registersMute("ann", "sip:1");
    m_story.registersMute("bob", "sip:1", "none");
    EXPECT_THAT(m_story.updatesForOthers("ann", CNews("sip:1")), IsOk());
}

TEST_F(StoreUpdateTest, ItDoesNotMatterWhichOfTwoUpdates)
{
    m_story.registersMute("ann", "sip:1");
    m_story.registersMute("bob", "sip:1", "none");
    EXPECT_THAT(m_story.updatesForOthers("bob", CNews("sip:1")), IsOk());
}

TEST_F(StoreUpdateTest, AnUpdaterFromElsewhereNeedsOneRegistrant)
{
    m_story.registersMute("ann", "sip:1");
    m_story.registersMute("bob", "sip:2");
    EXPECT_THAT(m_story.updatesForOthers("bob", CNews("sip:1")), IsOk());
}

TEST_F(StoreUpdateTest, WithoutTheQuestionDataNeedsNoRegistrant)
{
    m_story.registersMute("bob", "sip:2");
    EXPECT_THAT(m_story.updates("bob", CNews("sip:1").sets("CALLERID", "alice")), IsOk());
    EXPECT_THAT(stored("sip:1"), ElementsAre("one who looks: sip:1 CALLERID=alice"));
}

// What is stored and delivered.

TEST_F(StoreUpdateTest, TheFirstDataIsDeliveredWhole)
{
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice").appends("CONNECT_ENTRY", "yes")),
                IsOk());
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLERID=alice CONNECT_ENTRY+yes"));
}

TEST_F(StoreUpdateTest, TheFirstDataIsDeliveredEvenWhenEmpty)
{
    m_story.registers("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1"));
}

TEST_F(StoreUpdateTest, LaterDataIsDeliveredWhenNew)
{
    m_story.registers("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice").appends("CONNECT_ENTRY", "yes"));
    m_story.hears();
    m_story.updates("ann", CNews("sip:1").sets("CALLEDID", "bob").appends("CONNECT_ENTRY", "again"));
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLEDID=bob CONNECT_ENTRY+again"));
}

TEST_F(StoreUpdateTest, LaterDataIsMergedIntoTheRecord)
{
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice").appends("CONNECT_ENTRY", "yes"));
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alicia").appends("CONNECT_ENTRY", "again"));
    EXPECT_THAT(stored("sip:1"),
                ElementsAre("one who looks: sip:1 CALLERID=alicia CONNECT_ENTRY+yes CONNECT_ENTRY+again"));
}

TEST_F(StoreUpdateTest, WhatIsOldIsNotDeliveredWithTheNew)
{
    m_story.registers("ann", "sip:1");
    CNews news("sip:1");
    m_story.updates("ann", news.sets("CALLERID", "alice").appends("CONNECT_ENTRY", "yes"));
    m_story.hears();
    m_story.updates("ann", news.sets("CALLEDID", "bob"));
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLEDID=bob"));
}

TEST_F(StoreUpdateTest, WhatChangesNothingIsDeliveredToNobody)
{
    m_story.registers("ann", "sip:1");
    const CCDSTimestamp tsOld = CNews::nextStamp();
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.hears();
    EXPECT_THAT(m_story.updates("ann", CNews("sip:1").sets("CALLERID", "older", tsOld)), IsOk());
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreUpdateTest, TheSameDataTwiceIsDeliveredOnce)
{
    m_story.registers("ann", "sip:1");
    CNews news("sip:1");
    news.sets("CALLERID", "alice").appends("CONNECT_ENTRY", "yes");
    m_story.updates("ann", news);
    EXPECT_THAT(m_story.updates("ann", news), IsOk());
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLERID=alice CONNECT_ENTRY+yes"));
}

TEST_F(StoreUpdateTest, AForcedValueIsStoredButNotDelivered)
{
    m_story.registers("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.hears();
    EXPECT_THAT(m_story.updates("ann", CNews("sip:1").sets("CALLERID", "forced", CCDSTimestamp(0, 0))), IsOk());
    EXPECT_THAT(m_story.hears(), IsEmpty());
    EXPECT_THAT(stored("sip:1"), ElementsAre("one who looks: sip:1 CALLERID=forced"));
}

TEST_F(StoreUpdateTest, TheDataSaysWhichCallItIsAbout)
{
    m_story.registers("ann", "sip:1");
    m_story.registers("bob", "sip:2");
    m_story.updates("ann", CNews("sip:2").sets("CALLERID", "alice"));
    EXPECT_THAT(m_story.hears(), ElementsAre("bob: sip:2 CALLERID=alice"));
}

TEST_F(StoreUpdateTest, TheCallersRecordIsNotKept)
{
    m_story.registersMute("ann", "sip:1");
    {
        CNews news("sip:1");
        m_story.updates("ann", news.sets("CALLERID", "alice"));
        news.sets("CALLERID", "changed").sets("CALLEDID", "added");
    }
    EXPECT_THAT(stored("sip:1"), ElementsAre("one who looks: sip:1 CALLERID=alice"));
}

TEST_F(StoreUpdateTest, TheCallersRecordIsNotWhatIsDelivered)
{
    m_story.registers("ann", "sip:1");
    const CNews news("sip:1");
    m_story.updates("ann", news);
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 1U);
    EXPECT_NE(vecHeard[0].pPayload, news.data());
}

TEST_F(StoreUpdateTest, ACallbacksCopyOutlivesTheDelivery)
{
    std::unique_ptr<CCallbackData> pCopy;
    m_story.registers("ann", "sip:1");
    m_story.reactsWith("ann", [&pCopy](CCallbackMsg* pMessage) {
        pCopy.reset(pMessage->getCallbackData()->clone());
        return 0L;
    });
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.updates("ann", CNews("sip:1").sets("CALLEDID", "bob"));
    m_story.stops();
    ASSERT_NE(pCopy, nullptr);
    EXPECT_EQ(describe(dynamic_cast<CCallData&>(*pCopy)), "sip:1 CALLEDID=bob");
}

TEST_F(StoreUpdateTest, EachUpdateLocksOnceAtItsOwnPlaces)
{
    m_story.registers("ann", "sip:1");
    CFakeLocks::record(true);
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.updates("bob", CNews("sip:1"));
    EXPECT_THAT(storeLockPlaces(), ElementsAre(573, 666, 573, 666));
}

// Asking for a call's data.

TEST_F(StoreUpdateTest, WhoAsksGetsTheWholeRecord)
{
    m_story.registers("ann", "sip:1", "none");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.updates("ann", CNews("sip:1").sets("CALLEDID", "bob"));
    EXPECT_THAT(m_story.asksFor("ann", "sip:1"), IsOk());
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLEDID=bob CALLERID=alice"));
}

TEST_F(StoreUpdateTest, WhoAsksGetsAMessageOfHisOwn)
{
    m_story.registers("ann", "sip:1", "none");
    m_story.updates("ann", CNews("sip:1"));
    m_story.asksFor("ann", "sip:1");
    const auto vecHeard = m_story.hearsInFull();
    ASSERT_EQ(vecHeard.size(), 1U);
    EXPECT_EQ(vecHeard[0].eReason, ccbr_calldata);
    EXPECT_EQ(vecHeard[0].sRegID, "ann");
    EXPECT_EQ(vecHeard[0].ulReqHandle, m_story.handleOf("ann"));
    EXPECT_EQ(vecHeard[0].ulTraceID, CStoreStory::traceIDOf("ann"));
}

TEST_F(StoreUpdateTest, WhoAsksMayBeRegisteredForAnotherCall)
{
    m_story.registersMute("ann", "sip:1");
    m_story.registers("bob", "sip:2", "none");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(m_story.asksFor("bob", "sip:1"), IsOk());
    EXPECT_THAT(m_story.hears(), ElementsAre("bob: sip:1 CALLERID=alice"));
}

TEST_F(StoreUpdateTest, WhatIsNotStoredCannotBeAskedFor)
{
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.asksFor("ann", "sip:1"), FailsWith(E_CDS_NOTFOUND));
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreUpdateTest, AStrangerCannotAsk)
{
    m_story.registers("ann", "sip:1", "none");
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_THAT(m_story.asksFor("bob", "sip:1"), FailsWith(E_CDS_NOTFOUND));
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreUpdateTest, WhoHasNoCallbackAsksInVainButWithoutError)
{
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_THAT(m_story.asksFor("ann", "sip:1"), IsOk());
}

TEST_F(StoreUpdateTest, AskingDoesNotDependOnTheCallbacksResult)
{
    m_story.registers("ann", "sip:1", "none");
    m_story.updates("ann", CNews("sip:1"));
    m_story.reactsWith("ann", [](CCallbackMsg*) { return E_FAIL; });
    EXPECT_THAT(m_story.asksFor("ann", "sip:1"), IsOk());
}

TEST_F(StoreUpdateTest, AskingLocksOnceAtItsOwnPlaces)
{
    m_story.registers("ann", "sip:1");
    CFakeLocks::record(true);
    m_story.asksFor("ann", "sip:1");
    EXPECT_THAT(storeLockPlaces(), ElementsAre(789, 825));
}

// Lines.

class StoreUpdateTraceTest : public StoreUpdateTest
{
protected:
    StoreUpdateTraceTest() { CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels); }

    /// The lines from now on that say how far an update has come.
    static std::vector<std::string> steps()
    {
        std::vector<std::string> vecSteps;
        for (const std::string& sText : CFakeLog::texts())
            for (const char* pszStart : {"CCallData::trace: ", "CCDSAPI::insCallData", "CCallData::merge"})
                if (sText.starts_with(pszStart))
                    vecSteps.push_back(sText.substr(0, sText.find_last_not_of(' ') + 1));
        return vecSteps;
    }
};

TEST_F(StoreUpdateTraceTest, TheUpdaterIsToldFirstBeforeTheLock)
{
    const CNews news("sip:1");
    CFakeLocks::record(true);
    CFakeLog::clear();
    m_story.updates("ann", news);
    const auto vecLines = CFakeLog::lines();
    ASSERT_FALSE(vecLines.empty());
    EXPECT_EQ(vecLines[0].sText, "CCDSAPI::Update: \"ann\"");
    EXPECT_THAT(vecLines[0].vecLocks, IsEmpty());
}

TEST_F(StoreUpdateTraceTest, TheUpdaterIsToldAtTheErrorLevel)
{
    CFakeLog::setTraceMask("OvnCDS", 1);
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_TRUE(CFakeLog::contains("CCDSAPI::Update: \"ann\""));
    CFakeLog::setTraceMask("OvnCDS", ~1U);
    CFakeLog::clear();
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_FALSE(CFakeLog::contains("CCDSAPI::Update: \"ann\""));
}

TEST_F(StoreUpdateTraceTest, AKnownUpdaterIsToldWithTheObject)
{
    m_story.store().Register(0, "ann", "", "sip:1", "none", nullptr, 0xABCD);
    const CNews news("sip:1");
    m_story.updates("ann", news);
    EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::Update: \"ann\",CCOID=0x0000ABCD, calldata=" + identity(news.data())),
              1U);
}

TEST_F(StoreUpdateTraceTest, AKnownUpdaterIsToldAtTheInformationLevel)
{
    m_story.registers("ann", "sip:1");
    CFakeLog::setTraceMask("OvnCDS", ~4U);
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_FALSE(CFakeLog::contains("calldata="));
}

TEST_F(StoreUpdateTraceTest, ARefusalForWantOfRegistrantsIsAlwaysTold)
{
    m_story.registersMute("ann", "sip:1");
    CFakeLog::setTraceMask("OvnCDS", 0x100);
    const CNews news("sip:1");
    CFakeLog::clear();
    m_story.updatesForOthers("ann", news);
    EXPECT_THAT(CFakeLog::texts(),
                ElementsAre("CCDSAPI::Update: callid=\"sip:1\" no registrants found - ignorning calldata=" +
                            identity(news.data())));
}

TEST_F(StoreUpdateTraceTest, WantOfRegistrantsIsToldOfAnUnknownUpdaterToo)
{
    m_story.updatesForOthers("nobody", CNews("sip:1"));
    EXPECT_TRUE(CFakeLog::contains("no registrants found - ignorning"));
}

TEST_F(StoreUpdateTraceTest, AFailedUpdateIsAnError)
{
    m_story.updates("nobody", CNews("sip:1"));
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSAPI::Update: failed: 0xC1170A2E"), 1U);
    CFakeLog::setTraceMask("OvnCDS", ~1U);
    CFakeLog::clear();
    m_story.updates("nobody", CNews("sip:1"));
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
}

TEST_F(StoreUpdateTraceTest, AFailedCallbackIsAnError)
{
    m_story.registers("ann", "sip:1");
    m_story.reactsWith("ann", [](CCallbackMsg*) { return E_FAIL; });
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSAPI::callCallback: failed: 0x80004005"), 1U);
    CFakeLog::setTraceMask("OvnCDS", ~1U);
    CFakeLog::clear();
    EXPECT_THAT(m_story.asksFor("ann", "sip:1"), IsOk());
    EXPECT_FALSE(CFakeLog::contains("CCDSAPI::callCallback:"));
}

TEST_F(StoreUpdateTraceTest, AnUpdateThatChangesNothingSaysSo)
{
    m_story.registersMute("ann", "sip:1");
    CNews news("sip:1");
    m_story.updates("ann", news.sets("CALLERID", "alice"));
    m_story.updates("ann", news);
    EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::Update: bChanged=0,Diff=0x00000000"), 1U);
}

TEST_F(StoreUpdateTraceTest, AForcedValueSaysThatThereIsNothingToDeliver)
{
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "forced", CCDSTimestamp(0, 0)));
    EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::Update: bChanged=1,Diff=0x00000000"), 1U);
}

TEST_F(StoreUpdateTraceTest, NothingToDeliverIsToldAtTheInformationLevel)
{
    m_story.registersMute("ann", "sip:1");
    CNews news("sip:1");
    m_story.updates("ann", news.sets("CALLERID", "alice"));
    CFakeLog::setTraceMask("OvnCDS", ~4U);
    m_story.updates("ann", news);
    EXPECT_FALSE(CFakeLog::contains("bChanged="));
}

TEST_F(StoreUpdateTraceTest, TheFirstUpdateOfACallTellsItsSteps)
{
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(steps(), ElementsAre("CCallData::trace: Update", "CCDSAPI::insCallData: Adding CallData",
                                     "CCallData::trace: Update, difference"));
}

TEST_F(StoreUpdateTraceTest, ALaterUpdateTellsItsSteps)
{
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    CFakeLog::clear();
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alicia"));
    EXPECT_THAT(steps(), ElementsAre("CCallData::trace: Update",                           //
                                     "CCDSAPI::insCallData: CallData Present(bChanged=0)", //
                                     "CCallData::trace: insert, cur",                      //
                                     "CCallData::trace: insert, after filter",             //
                                     "CCallData::trace: merge,  new",                      // two blanks
                                     "CCallData::trace: merge, cur",                       //
                                     "CCallData::merge: After merging prop(bChanged=1)",   //
                                     "CCallData::merge: After merging Logs(bChanged=1)",   //
                                     "CCDSAPI::insCallData: After Merge(bChanged=1)",      //
                                     "CCallData::trace: insert, after merge",              //
                                     "CCallData::trace: Update, difference"));
}

TEST_F(StoreUpdateTraceTest, TheFilterSeesTheRecordAsItWas)
{
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    CFakeLog::clear();
    m_story.updates("ann", CNews("sip:1").sets("CALLEDID", "bob"));
    const auto vecTexts = CFakeLog::texts();
    const auto it = std::find_if(vecTexts.begin(), vecTexts.end(), [](const std::string& sText) {
        return sText.starts_with("CCallData::trace: insert, after filter");
    });
    ASSERT_LT(it - vecTexts.begin() + 3, static_cast<std::ptrdiff_t>(vecTexts.size()));
    EXPECT_THAT(*(it + 2), testing::HasSubstr("name=CALLERID"));
    EXPECT_THAT(*(it + 3), testing::Not(testing::HasSubstr("name=CALLEDID")));
}

TEST_F(StoreUpdateTraceTest, WithoutTheInformationLevelNoStepIsTold)
{
    CFakeLog::setTraceMask("OvnCDS", ~4U);
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alicia"));
    EXPECT_THAT(steps(), IsEmpty());
}

TEST_F(StoreUpdateTraceTest, RecordsAreMadeAndFreedAsTold)
{
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    {
        CNews news("sip:1");
        news.sets("CALLEDID", "bob");
        CFakeLog::clear();
        m_story.updates("ann", news);
        m_story.updates("ann", news);
    }
    // The difference of the first update, the empty one of the second, and the news itself, made before.
    EXPECT_EQ(CFakeLog::countContaining("CCallData Malloc"), 2U);
    EXPECT_EQ(CFakeLog::countContaining("CCallData Free"), 3U);
}

TEST_F(StoreUpdateTraceTest, TheFirstUpdateOfACallMakesItsRecordAndNoOther)
{
    m_story.registers("ann", "sip:1");
    m_story.registers("all", "*");
    CNews news("sip:1");
    news.sets("CALLERID", "alice").appends("CONNECT_ENTRY", "yes");
    CFakeLog::clear();
    m_story.updates("ann", news);
    EXPECT_EQ(CFakeLog::countContaining("CCallData Malloc"), 1U);
    EXPECT_EQ(CFakeLog::countContaining("CCallData Free"), 0U);
}

// A stamp that the store took for itself would come between two of its host's, which are to follow each other closely.
TEST_F(StoreUpdateTraceTest, NothingButATimeQueryTakesAStamp)
{
    m_story.starts();
    const std::size_t uBefore = CFakeClock::fileTimeReads();
    CNews first("sip:1");
    first.sets("CALLERID", "alice").appends("CONNECT_ENTRY", "yes");
    CNews later("sip:1");
    later.sets("CALLEDID", "bob").appends("CONNECT_ENTRY", "again");
    m_story.registers("listener", "*", "@");
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.updates("ann", first), IsOk());
    EXPECT_THAT(m_story.updates("ann", later), IsOk());
    EXPECT_THAT(m_story.updates("ann", later), IsOk());
    EXPECT_THAT(m_story.asksFor("ann", "sip:1"), IsOk());
    EXPECT_THAT(m_story.unregisters("ann"), IsOk());
    m_story.registers("ann", "sip:1");
    m_story.unregisters("ann");
    m_story.lets(30001);
    m_story.store().Dump(1);
    m_story.stops();
    EXPECT_EQ(CFakeClock::fileTimeReads(), uBefore);
    (void)m_story.store().GetServerTimestamp(0);
    EXPECT_EQ(CFakeClock::fileTimeReads(), uBefore + 1);
}

} // namespace
