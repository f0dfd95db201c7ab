// The store without memory: each operation with 0, 1, 2, ... allocations granted, until it needs no more.

#include "CDSEventLog.h"
#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "FailingAllocator.h"
#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <new>
#include <optional>

// A timing pass runs on a thread of the store, where no test can refuse memory. Naming a private member in an explicit
// instantiation is allowed: this one brings the pass to the test's own thread.
void runTimingPassForTest(CCDSAPI& store);
template <auto pfnPass> struct CTimingPassAccess
{
    friend void runTimingPassForTest(CCDSAPI& store) { (store.*pfnPass)(); }
};
template struct CTimingPassAccess<&CCDSAPI::expireUnregData>;

namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Mode = CFailingAllocator::Mode;

// Longer than a string holds by itself, so that every copy of them asks for memory.
const std::string cCall = "sip:a-call-with-a-rather-long-identifier";
const std::string cOther = "sip:another-call-with-a-long-identifier";
const std::string cAnn = "ann, who has a rather long name";
const std::string cBob = "bob, who has a rather long name";
const std::string cEve = "eve, who listens to all of them";
const std::string cStar = "*";
const std::string cAt = "@";
const std::string cNone = "none, but in more than sixteen letters";
const std::string cAddress = "2001:db8:0000:0000:0000:0000:0000:0001";

CNews someNews(const std::string& sCallID, const std::string& sCaller)
{
    CNews news(sCallID);
    news.sets("CALLERID", sCaller).appends("CONNECT_ENTRY", "yes");
    return news;
}

/// Such news, as a registrant hears them.
std::string described(const std::string& sCallID, const std::string& sCaller)
{
    return sCallID + " CALLERID=" + sCaller + " CONNECT_ENTRY+yes";
}

class StoreAllocationTest : public testing::TestWithParam<Mode>
{
protected:
    using CPreparation = std::function<void(CStoreStory&)>;
    using CDeed = std::function<long(CStoreStory&)>;
    using CCheck = std::function<void(CStoreStory&, long)>;

    /// Runs the deed in one fresh story after the other, with one allocation more each time, until none is refused.
    void sweep(const CPreparation& fnPrepare, const CDeed& fnDeed, const CCheck& fnCheck)
    {
        for (std::size_t uGranted = 0; uGranted < cMaxRounds; ++uGranted)
        {
            SCOPED_TRACE(uGranted);
            CStoreStory story;
            fnPrepare(story);
            story.hears();
            bool bHit = false;
            long lResult = 0;
            {
                const CFailingAllocator failing(uGranted, GetParam());
                lResult = fnDeed(story);
                bHit = failing.hit();
            }
            fnCheck(story, lResult);
            if (!bHit)
                return;
            if (HasFailure())
                return; // one is enough
            ++m_uRefused;
        }
        ADD_FAILURE() << "it never has enough";
    }
    /// As a whole: what the sweep showed is a sweep.
    void TearDown() override { EXPECT_GT(m_uRefused, 0U) << "nothing was ever refused"; }

    /// Stores data of a call without a registrant, so that the tables fill.
    static void fill(CStoreStory& story, int nCalls)
    {
        story.registersMute("one who fills", "none", "none");
        for (int i = 0; i < nCalls; ++i)
            story.updates("one who fills", CNews("filler " + std::to_string(i)));
    }
    /// What a new registrant of the call finds there.
    static std::vector<std::string> whatThereIs(CStoreStory& story, const std::string& sCallID)
    {
        story.hears();
        EXPECT_THAT(story.registers("one who looks", sCallID), IsOk());
        std::vector<std::string> vecTexts;
        for (const CHeard& heard : story.hearsInFull())
            if (heard.sWho == "one who looks")
                vecTexts.push_back(heard.sText);
        return vecTexts;
    }
    static constexpr std::size_t cMaxRounds = 5000;
    std::size_t m_uRefused = 0;
};

INSTANTIATE_TEST_SUITE_P(Memory, StoreAllocationTest, testing::Values(Mode::RefuseAllLater, Mode::RefuseOne),
                         [](const auto& named) {
                             return std::string(named.param == Mode::RefuseOne ? "FailsOnce" : "IsUsedUp");
                         });

// Making and starting.

TEST_P(StoreAllocationTest, AStoreIsMadeWholeOrRefusesEverything)
{
    sweep([](CStoreStory& story) { story.ends(); },
          [](CStoreStory& story) {
              try
              {
                  story.beginsAgain();
                  return 0L;
              }
              catch (const std::bad_alloc&)
              {
                  return E_CDS_OUTOFMEMORY;
              }
          },
          [](CStoreStory& story, long lResult) {
              if (lResult < 0)
              {
                  EXPECT_EQ(g_pCDSNetProxy, nullptr);
                  return;
              }
              const long lStarted = story.starts();
              EXPECT_THAT(lStarted, AnyOf(0, E_CDS_OUTOFMEMORY));
              EXPECT_EQ(story.registers("ann", "sip:1"), lStarted);
              EXPECT_EQ(story.updates("ann", CNews("sip:1")), lStarted);
              story.store().Dump(1);
              EXPECT_THAT(story.stops(), IsOk());
          });
}

TEST_P(StoreAllocationTest, WithoutAProxyNothingElseIsMade)
{
    bool bSeen = false;
    sweep(
        [](CStoreStory& story) {
            story.ends();
            CCDSAPI::initLogger();
            CFakeLocks::record(true);
        },
        [](CStoreStory& story) {
            try
            {
                story.beginsAgain();
                return 0L;
            }
            catch (const std::bad_alloc&)
            {
                return E_CDS_OUTOFMEMORY;
            }
        },
        [&bSeen](CStoreStory& story, long) {
            if (CFakeLog::countExactly("(Error) Catch KRException. CCDSAPI::CCDSAPI(), new CPEvent. "
                                       "loc:CDS/CDSStore/CDSStore.52 failed: 0xC1170A28") == 0)
                return;
            bSeen = true;
            EXPECT_EQ(g_pCDSNetProxy, nullptr);
            EXPECT_THAT(CFakeLocks::creations(), IsEmpty());
            EXPECT_EQ(CFakeEvents::creations().size(),
                      2U); // the first store's and its proxy's; its event log is the only one
            const auto vecLogs = CFakeLog::creations();
            EXPECT_EQ(std::count_if(vecLogs.begin(), vecLogs.end(),
                                    [](const auto& arguments) { return arguments.sName == "OvnNTLog"; }),
                      1);
            EXPECT_THAT(story.registers("ann", "sip:1"), FailsWith(E_CDS_OUTOFMEMORY));
            story.store().Dump(1);
            EXPECT_THAT(story.starts(), FailsWith(E_CDS_OUTOFMEMORY));
            EXPECT_THAT(story.stops(), IsOk());
        });
    EXPECT_TRUE(bSeen);
}

TEST_P(StoreAllocationTest, AStoreIsInitializedOrCanBeLater)
{
    sweep([](CStoreStory&) {}, [](CStoreStory& story) { return story.starts(cAddress); },
          [](CStoreStory& story, long lResult) {
              EXPECT_THAT(lResult, AnyOf(0, E_FAIL, E_CDS_OUTOFMEMORY));
              EXPECT_THAT(story.starts(), IsOk());
              EXPECT_EQ(CFakeThreads::alive(), 1U);
          });
}

// Registering.

TEST_P(StoreAllocationTest, ARegistrationIsMadeOrNot)
{
    sweep([](CStoreStory& story) { story.handleOf(cAnn); },
          [](CStoreStory& story) { return story.registersMute(cAnn, cCall, cAt, cAddress); },
          [](CStoreStory& story, long lResult) {
              EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
              const long lAgain = story.registersMute(cAnn, cCall);
              EXPECT_THAT(lAgain, AnyOf(0, E_CDS_EXISTS));
              EXPECT_THAT(story.unregisters(cAnn), IsOk());
              EXPECT_THAT(story.unregisters(cAnn), FailsWith(E_CDS_NOTFOUND));
          });
}

TEST_P(StoreAllocationTest, TheUpdateAfterARegistrationThatFailedFindsTheTablesWhole)
{
    sweep([](CStoreStory& story) { story.registersMute(cBob, cOther); },
          [](CStoreStory& story) { return story.registers(cAnn, cCall, cAt, cAddress); },
          [](CStoreStory& story, long) {
              EXPECT_THAT(story.updatesForOthers(cBob, CNews(cCall)), AnyOf(0, E_CDS_NOTFOUND));
              EXPECT_THAT(story.updates(cBob, CNews(cCall)), IsOk());
              EXPECT_THAT(story.registersMute("last", cOther), IsOk()); // tells all listeners
          });
}

TEST_P(StoreAllocationTest, ARegistrationLosesNoDataThatWasKept)
{
    for (const int nStored : {0, 11, 12, 13}) // the table of stored calls grows on the way
        sweep(
            [nStored](CStoreStory& story) {
                story.leavesBehind(someNews(cCall, "alice"));
                fill(story, nStored);
                story.handleOf(cAnn);
            },
            [](CStoreStory& story) { return story.registers(cAnn, cCall); },
            [](CStoreStory& story, long lResult) {
                EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
                EXPECT_THAT(whatThereIs(story, cCall), ElementsAre(described(cCall, "alice")));
            });
}

TEST_P(StoreAllocationTest, ARefusedRegistrationLosesNoDataThatWasKept)
{
    for (const int nStored : {0, 11, 12, 13})
        sweep(
            [nStored](CStoreStory& story) {
                story.registers(cAnn, cOther);
                story.leavesBehind(someNews(cCall, "alice"));
                fill(story, nStored);
            },
            [](CStoreStory& story) { return story.registers(cAnn, cCall); },
            [](CStoreStory& story, long lResult) {
                EXPECT_THAT(lResult, AnyOf(E_CDS_EXISTS, E_CDS_OUTOFMEMORY));
                EXPECT_THAT(whatThereIs(story, cCall), ElementsAre(described(cCall, "alice")));
            });
}

TEST_P(StoreAllocationTest, ACallWhoseDataCouldNotBeTakenUpIsServedAllTheSame)
{
    // The registration that failed may stand or not: in either case the call lives on and ends like any other.
    sweep(
        [](CStoreStory& story) {
            story.leavesBehind(someNews(cCall, "alice"));
            fill(story, 12);
            story.registersMute(cBob, cOther);
            story.handleOf(cAnn);
        },
        [](CStoreStory& story) { return story.registers(cAnn, cCall); },
        [](CStoreStory& story, long) {
            EXPECT_THAT(story.updates(cBob, someNews(cCall, "new")), IsOk());
            (void)story.unregisters(cAnn); // whether it was registered is not the question
            EXPECT_THAT(whatThereIs(story, cCall), ElementsAre(testing::HasSubstr("CALLERID=new")));
        });
}

TEST_P(StoreAllocationTest, NoticesOfARegistrationAreGivenInOrderUntilOneFails)
{
    bool bSomeOnly = false;
    bool bNone = false;
    sweep(
        [](CStoreStory& story) {
            for (const std::string& sWho : {cAnn, cBob, cEve})
                story.registers(sWho, cCall, cAt);
            story.handleOf("x");
        },
        [](CStoreStory& story) { return story.registersMute("x", cOther, cNone, cAddress); },
        [&](CStoreStory& story, long lResult) {
            std::vector<std::string> vecWho;
            for (const CHeard& heard : story.hearsInFull())
                vecWho.push_back(heard.sWho);
            std::vector<std::string> vecAll{cAnn, cBob, cEve};
            vecAll.resize(std::min(vecWho.size(), vecAll.size()));
            EXPECT_EQ(vecWho, vecAll);
            EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
            EXPECT_EQ(lResult == 0, vecWho.size() == 3);
            bNone = bNone || (vecWho.empty() && story.unregisters("x") == 0);
            bSomeOnly = bSomeOnly || vecWho.size() == 1 || vecWho.size() == 2;
        });
    EXPECT_TRUE(bSomeOnly) << "no message was ever refused";
    EXPECT_TRUE(bNone) << "the notice itself was never refused";
}

TEST_P(StoreAllocationTest, DataThereIsIsSentInOrderUntilAMessageFails)
{
    bool bSomeOnly = false;
    sweep(
        [](CStoreStory& story) {
            fill(story, 3);
            story.handleOf(cAnn);
        },
        [](CStoreStory& story) { return story.registers(cAnn, cStar); },
        [&bSomeOnly](CStoreStory& story, long lResult) {
            const auto vecHeard = story.hears();
            std::vector<std::string> vecAll{cAnn + ": filler 0", cAnn + ": filler 1", cAnn + ": filler 2"};
            EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
            EXPECT_EQ(lResult == 0, vecHeard.size() == 3);
            vecAll.resize(std::min(vecHeard.size(), vecAll.size()));
            EXPECT_THAT(vecHeard, ElementsAreArray(vecAll));
            bSomeOnly = bSomeOnly || vecHeard.size() == 1 || vecHeard.size() == 2;
        });
    EXPECT_TRUE(bSomeOnly) << "no message was ever refused";
}

// Unregistering.

TEST_P(StoreAllocationTest, AnUnregistrationThatFailsLosesNoData)
{
    sweep(
        [](CStoreStory& story) {
            story.registers(cEve, cOther, cAt);
            story.registersMute(cAnn, cCall, cAt, cAddress);
            story.updates(cAnn, someNews(cCall, "alice"));
        },
        [](CStoreStory& story) { return story.unregisters(cAnn); },
        [](CStoreStory& story, long lResult) {
            EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
            const bool bStillThere = story.registersMute(cAnn, cOther) == E_CDS_EXISTS;
            EXPECT_TRUE(lResult < 0 || !bStillThere);
            // The last registrant's call is either still served, or waits for a new one.
            EXPECT_EQ(story.asksFor(cEve, cCall), bStillThere ? 0 : E_CDS_NOTFOUND);
            EXPECT_THAT(whatThereIs(story, cCall), ElementsAre(described(cCall, "alice")));
        });
}

TEST_P(StoreAllocationTest, AnUnregistrationIsDoneOrNot)
{
    sweep(
        [](CStoreStory& story) {
            story.registers(cEve, cCall, cAt);
            story.registers(cAnn, cCall, cAt);
            story.registers(cBob, cCall, cAt);
        },
        [](CStoreStory& story) { return story.unregisters(cAnn); },
        [](CStoreStory& story, long) {
            story.hears();
            EXPECT_THAT(story.updates(cEve, CNews(cCall)), IsOk());
            EXPECT_THAT(story.hears(),
                        AnyOf(ElementsAre(cEve + ": " + cCall, cBob + ": " + cCall),
                              ElementsAre(cEve + ": " + cCall, cAnn + ": " + cCall, cBob + ": " + cCall)));
            EXPECT_THAT(story.unregisters(cEve), IsOk());
            EXPECT_THAT(story.unregisters(cBob), IsOk());
        });
}

// Updating.

TEST_P(StoreAllocationTest, FirstDataIsStoredWholeOrNotAtAll)
{
    bool bSomeOnly = false;
    const CNews news = someNews(cCall, "alice");
    sweep(
        [](CStoreStory& story) {
            story.registers(cAnn, cCall);
            story.registers(cBob, cStar);
        },
        [&news](CStoreStory& story) { return story.updates(cAnn, news); },
        [&bSomeOnly](CStoreStory& story, long lResult) {
            EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
            const std::string sText = described(cCall, "alice");
            const auto vecHeard = story.hears();
            if (lResult == 0)
                EXPECT_THAT(vecHeard, ElementsAre(cAnn + ": " + sText, cBob + ": " + sText));
            else
                EXPECT_THAT(vecHeard, AnyOf(IsEmpty(), ElementsAre(cAnn + ": " + sText)));
            bSomeOnly = bSomeOnly || vecHeard.size() == 1;
            EXPECT_THAT(whatThereIs(story, cCall), AnyOf(IsEmpty(), ElementsAre(sText)));
        });
    EXPECT_TRUE(bSomeOnly) << "no message was ever refused";
}

TEST_P(StoreAllocationTest, LaterDataLeavesAWholeRecord)
{
    const std::string sOld = described(cCall, "alice");
    std::optional<CNews> optLater;
    sweep(
        [&optLater](CStoreStory& story) {
            story.registers(cAnn, cCall);
            story.updates(cAnn, someNews(cCall, "alice"));
            optLater.emplace(cCall).sets("CALLERID", "alicia").appends("NEW_LOG", "x");
        },
        [&optLater](CStoreStory& story) { return story.updates(cAnn, *optLater); },
        [&sOld](CStoreStory& story, long lResult) {
            EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
            const std::string sNew = cCall + " CALLERID=alicia CONNECT_ENTRY+yes";
            const std::string sHeard = cAnn + ": " + cCall + " CALLERID=alicia NEW_LOG+x";
            const auto vecHeard = story.hears();
            EXPECT_THAT(vecHeard, AnyOf(IsEmpty(), ElementsAre(sHeard)));
            const auto vecThere = whatThereIs(story, cCall);
            EXPECT_THAT(vecThere, AnyOf(ElementsAre(sOld), ElementsAre(sOld + " NEW_LOG+x"), ElementsAre(sNew),
                                        ElementsAre(sNew + " NEW_LOG+x")));
            EXPECT_TRUE(lResult < 0 || !vecHeard.empty() || vecThere != std::vector{sNew + " NEW_LOG+x"})
                << "done, the updater is told, and nobody heard";
        });
}

TEST_P(StoreAllocationTest, DataWhoseDifferenceCannotBeMadeIsRefusedAndNotStored)
{
    bool bSeen = false;
    std::optional<CNews> optLater;
    sweep(
        [&optLater](CStoreStory& story) {
            story.registers(cAnn, cCall);
            story.updates(cAnn, someNews(cCall, "alice"));
            optLater.emplace(cCall).sets("CALLERID", "alicia").appends("NEW_LOG", "x");
            CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
            CFakeLog::clear();
        },
        [&optLater](CStoreStory& story) { return story.updates(cAnn, *optLater); },
        [&bSeen](CStoreStory& story, long lResult) {
            if (!CFakeLog::contains("CallData Present") || CFakeLog::contains("insert, after filter"))
                return;
            bSeen = true;
            EXPECT_THAT(lResult, FailsWith(E_CDS_OUTOFMEMORY));
            EXPECT_THAT(story.hears(), IsEmpty());
            EXPECT_THAT(whatThereIs(story, cCall), ElementsAre(described(cCall, "alice")));
        });
    EXPECT_TRUE(bSeen) << "no difference was ever refused";
}

TEST_P(StoreAllocationTest, DataThatCouldNotBeMergedIsNotDelivered)
{
    bool bSeen = false;
    std::optional<CNews> optLater;
    sweep(
        [&optLater](CStoreStory& story) {
            story.registers(cAnn, cCall);
            story.updates(cAnn, someNews(cCall, "alice"));
            optLater.emplace(someNews(cCall, "alicia"));
            CFakeLog::setTraceMask("OvnCDS", 1);
            CFakeLog::clear();
        },
        [&optLater](CStoreStory& story) { return story.updates(cAnn, *optLater); },
        [&bSeen](CStoreStory& story, long) {
            if (!CFakeLog::contains("CCallData::merge: Error(0xC1170A28) appendlogEntry"))
                return;
            bSeen = true;
            EXPECT_THAT(story.hears(), IsEmpty());
        });
    EXPECT_TRUE(bSeen) << "no merge was ever refused";
}

TEST_P(StoreAllocationTest, AChangeThatCouldNotBeStoredIsNotDelivered)
{
    // The entry is stored already, so that all the news is the property.
    const CCDSTimestamp tsEntry = CNews::nextStamp();
    std::optional<CNews> optLater;
    sweep(
        [&](CStoreStory& story) {
            story.registers(cAnn, cCall);
            story.updates(cAnn, CNews(cCall).sets("CALLERID", "alice").appends("CONNECT_ENTRY", "yes", tsEntry));
            optLater.emplace(cCall).sets("CALLERID", "alicia").appends("CONNECT_ENTRY", "yes", tsEntry);
        },
        [&optLater](CStoreStory& story) { return story.updates(cAnn, *optLater); },
        [](CStoreStory& story, long) {
            const bool bDelivered = !story.hears().empty();
            const bool bStored = whatThereIs(story, cCall) == std::vector{described(cCall, "alicia")};
            EXPECT_TRUE(bStored || !bDelivered);
        });
}

TEST_P(StoreAllocationTest, AskingDeliversOrFails)
{
    sweep(
        [](CStoreStory& story) {
            story.registers(cAnn, cCall, cNone);
            story.updates(cAnn, someNews(cCall, "alice"));
        },
        [](CStoreStory& story) { return story.asksFor(cAnn, cCall); },
        [](CStoreStory& story, long lResult) {
            EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
            EXPECT_EQ(story.hears().size(), lResult == 0 ? 1U : 0U);
        });
}

// Ending.

TEST_P(StoreAllocationTest, APassLeavesEveryExpiredCallOrEndsIt)
{
    sweep(
        [](CStoreStory& story) {
            CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
            story.starts();
            story.registers(cEve, cStar, "EOC");
            story.leavesBehind(someNews(cCall, "alice"));
            story.leavesBehind(someNews(cOther, "bob"));
            story.lets(0);
            CFakeClock::scriptTickReads({CFakeClock::cInitialTicks + 30001});
            CFakeLog::clear();
        },
        [](CStoreStory& story) {
            try
            {
                runTimingPassForTest(story.store());
                return 0L;
            }
            catch (const std::bad_alloc&)
            {
                return E_CDS_OUTOFMEMORY;
            }
        },
        [](CStoreStory& story, long) {
            const std::size_t uEnded = CFakeLog::countContaining("CCallData Free");
            EXPECT_LE(story.hears().size(), uEnded);
            // The next pass ends what is left.
            CFakeClock::scriptTickReads({CFakeClock::cInitialTicks + 30001});
            runTimingPassForTest(story.store());
            EXPECT_EQ(CFakeLog::countContaining("CCallData Free"), 2U);
            EXPECT_EQ(story.hears().size(), 2U - uEnded);
        });
}

TEST(StoreWithoutMemoryTest, FinalizeFreesEverythingAllTheSame)
{
    CStoreStory story;
    story.leavesBehind(someNews(cCall, "alice"));
    story.registersMute(cAnn, cOther);
    {
        const CNews news(cOther);
        story.updates(cAnn, news);
    }
    CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
    CFakeLog::clear();
    {
        const CFailingAllocator failing(0);
        EXPECT_EQ(story.stops(), 0);
    }
    EXPECT_EQ(CFakeLog::countContaining("CCallData Free"), 2U);
}

TEST(StoreWithoutMemoryTest, AStoreGoesAllTheSame)
{
    CStoreStory story;
    story.starts();
    story.leavesBehind(someNews(cCall, "alice"));
    story.registersMute(cAnn, cOther, cAt);
    {
        const CNews news(cOther);
        story.updates(cAnn, news);
    }
    CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
    CFakeLog::clear();
    {
        const CFailingAllocator failing(0);
        story.ends();
    }
    EXPECT_EQ(CFakeLog::countContaining("CCallData Free"), 2U);
    EXPECT_EQ(CFakeThreads::alive(), 0U);
}

TEST(StoreWithoutMemoryTest, TheFirstLineOfAProcessIsDroppedAtWorst)
{
    const CFakeWorld world;
    {
        const CFailingAllocator failing(0);
        CCDSLogging::logError("a line");
    }
    CCDSLogging::logError("another line");
    EXPECT_THAT(CFakeLog::texts(), Contains("another line"));
    CCDSLogging::finalizeLogger();
}

// The event log.

TEST(EventLogWithoutMemoryTest, AnArgumentListIsNotReported)
{
    const CFakeWorld world;
    const CEventLogHelp help("", CEventLogHelp::facility_none, CEventLogHelp::severity_none);
    long lNarrow = 0;
    long lWide = 0;
    {
        const CFailingAllocator failing(0);
        lNarrow = help.LogEventVA(1, 2, "one", "two");
        lWide = help.LogEventVW(1, 2, L"one", L"two");
    }
    EXPECT_THAT(lNarrow, FailsWith(E_OUTOFMEMORY));
    EXPECT_THAT(lWide, FailsWith(E_OUTOFMEMORY));
    EXPECT_THAT(CFakeLog::events(), IsEmpty());
}

TEST(EventLogWithoutMemoryTest, AnEmptyArgumentListNeedsNone)
{
    const CFakeWorld world;
    const CEventLogHelp help("", CEventLogHelp::facility_none, CEventLogHelp::severity_none);
    const CFailingAllocator failing(0);
    EXPECT_EQ(help.LogEventVA(1, 0), 0);
    EXPECT_EQ(help.LogEventVW(1, 0), 0);
    EXPECT_EQ(failing.seen(), 0U);
}

TEST(EventLogWithoutMemoryTest, TextsInAnArrayNeedNone)
{
    const CFakeWorld world;
    const CEventLogHelp help("", CEventLogHelp::facility_none, CEventLogHelp::severity_none);
    const char* ppszTexts[] = {"one"};
    const CFailingAllocator failing(0);
    EXPECT_EQ(help.LogEventStrA(1, 1, ppszTexts), 0);
    EXPECT_EQ(failing.seen(), 0U);
}

} // namespace
