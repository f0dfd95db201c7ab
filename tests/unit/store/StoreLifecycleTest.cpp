// The store's life in good order: construction, Initialize, Finalize, destruction, and once more.

#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StoreLifecycleTest : public testing::Test
{
protected:
    StoreLifecycleTest() { CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels); }

    /// Where the first line with this text stands; past the end when there is none.
    static std::size_t placeOf(const std::string& sPart)
    {
        const auto vecTexts = CFakeLog::texts();
        const auto it = std::find_if(vecTexts.begin(), vecTexts.end(), [&sPart](const std::string& sText) {
            return sText.find(sPart) != std::string::npos;
        });
        return static_cast<std::size_t>(it - vecTexts.begin());
    }
    /// What came to its end, and between it the line that the proxy writes when it is finalized: the proxy itself
    /// makes nothing that could be seen to end.
    static std::vector<std::string> endsAndLines()
    {
        std::vector<std::string> vecAll;
        const auto vecLives = CFakeLives::all();
        const auto vecLines = CFakeLog::lines();
        auto itLine = vecLines.begin();
        for (std::size_t uLives = 0; uLives <= vecLives.size(); ++uLives)
        {
            for (; itLine != vecLines.end() && itLine->uLives == uLives; ++itLine)
                if (itLine->sText.starts_with("<<<"))
                    vecAll.push_back(itLine->sText);
            if (uLives < vecLives.size())
                vecAll.push_back(vecLives[uLives]);
        }
        return vecAll;
    }
    static std::vector<long> storeLockPlaces()
    {
        std::vector<long> vecPlaces;
        for (const auto& entry : CFakeLocks::entries("CCDSAPI::m_pcritsec"))
            vecPlaces.push_back(entry.lPlace);
        return vecPlaces;
    }

    CStoreStory m_story;
};

TEST_F(StoreLifecycleTest, InitializeSucceeds)
{
    EXPECT_THAT(m_story.starts(), IsOk());
}

TEST_F(StoreLifecycleTest, FinalizeSucceeds)
{
    m_story.starts();
    EXPECT_THAT(m_story.stops(), IsOk());
}

TEST_F(StoreLifecycleTest, FinalizeSucceedsWithoutInitialize)
{
    EXPECT_THAT(m_story.stops(), IsOk());
}

TEST_F(StoreLifecycleTest, FinalizeSucceedsTwice)
{
    m_story.starts();
    m_story.stops();
    EXPECT_THAT(m_story.stops(), IsOk());
}

TEST_F(StoreLifecycleTest, TheProxyLivesAsLongAsTheStore)
{
    EXPECT_NE(g_pCDSNetProxy, nullptr);
    m_story.ends();
    EXPECT_EQ(g_pCDSNetProxy, nullptr);
}

TEST_F(StoreLifecycleTest, LastOfTwoStoresHoldsTheProxy)
{
    auto pFirst = std::make_unique<CCDSAPI>();
    m_story.beginsAgain();
    pFirst.reset();
    EXPECT_NE(g_pCDSNetProxy, nullptr);
}

TEST_F(StoreLifecycleTest, ConstructorMakesOneReentrantNamedLockBehindTheProxys)
{
    m_story.ends();
    CFakeLocks::record(true);
    m_story.beginsAgain();
    const auto vecCreations = CFakeLocks::creations();
    ASSERT_EQ(vecCreations.size(), 4U);
    EXPECT_EQ(vecCreations[3].sName, "CCDSAPI::m_pcritsec");
    EXPECT_EQ(vecCreations[3].nFlag, 1);
}

TEST_F(StoreLifecycleTest, ConstructorMakesOneUnnamedEventThatIsNotSetBehindTheProxys)
{
    const auto vecCreations = CFakeEvents::creations();
    ASSERT_EQ(vecCreations.size(), 2U);
    EXPECT_EQ(vecCreations[1].nAutoReset, 1);
    EXPECT_EQ(vecCreations[1].sName, "");
    EXPECT_EQ(vecCreations[1].nClear, 1);
}

TEST_F(StoreLifecycleTest, ConstructorMakesTheEventLog)
{
    const auto vecLogs = CFakeLog::creations();
    ASSERT_EQ(vecLogs.size(), 1U); // nothing was traced yet
    EXPECT_EQ(vecLogs[0].sName, "OvnNTLog");
}

TEST_F(StoreLifecycleTest, ConstructorStartsNoThread)
{
    EXPECT_THAT(CFakeThreads::starts(), IsEmpty());
}

TEST_F(StoreLifecycleTest, InitializeTellsAddressAndNumber)
{
    m_story.store().Initialize("10.1.2.3", 4711);
    EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::Initialize: 10.1.2.3. 4711"), 1U);
}

TEST_F(StoreLifecycleTest, AWideNumberPrintsItsLowThirtyTwoBits)
{
    if constexpr (sizeof(unsigned long) > 4)
    {
        m_story.store().Initialize("10.1.2.3", static_cast<unsigned long>(0x100000007ULL));
        EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::Initialize: 10.1.2.3. 7"), 1U);
    }
    m_story.store().Initialize("10.1.2.3", 0xFFFFFFFFUL);
    EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::Initialize: 10.1.2.3. -1"), 1U);
}

TEST_F(StoreLifecycleTest, InitializeTellsAtTheInformationLevel)
{
    CFakeLog::setTraceMask("OvnCDS", ~4U);
    m_story.starts();
    EXPECT_FALSE(CFakeLog::contains("CCDSAPI::Initialize: 10"));
}

TEST_F(StoreLifecycleTest, InitializeStartsTheTimingThreadOnTheStore)
{
    m_story.starts();
    const auto vecStarts = CFakeThreads::starts();
    ASSERT_FALSE(vecStarts.empty());
    EXPECT_EQ(vecStarts[0].sName, "CCDSAPI::Initialize");
    EXPECT_EQ(vecStarts[0].pArg, &m_story.store());
    EXPECT_NE(vecStarts[0].pStopEvent, nullptr);
    EXPECT_FALSE(vecStarts[0].bCreateThread);
}

TEST_F(StoreLifecycleTest, SuccessfulInitializeWritesNoError)
{
    m_story.starts();
    EXPECT_FALSE(CFakeLog::contains("(Error) CCDSAPI::Initialize:"));
}

TEST_F(StoreLifecycleTest, InitializeFailsWhenTheTimingThreadCannotStart)
{
    CFakeThreads::failNextThread(E_CDS_NOTHREAD);
    EXPECT_THAT(m_story.starts(), FailsWith(E_FAIL));
}

TEST_F(StoreLifecycleTest, FailedInitializeIsLogged)
{
    CFakeThreads::failNextThread(E_CDS_NOTHREAD);
    m_story.starts();
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSAPI::Initialize: failed: 0x80004005"), 1U);
    CFakeLog::setTraceMask("OvnCDS", ~1U);
    CFakeLog::clear();
    CFakeThreads::failNextThread(E_CDS_NOTHREAD);
    m_story.starts();
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
}

TEST_F(StoreLifecycleTest, FinalizeIsTold)
{
    m_story.stops();
    EXPECT_EQ(CFakeLog::countExactly("CCDSAPI::Finalize:"), 1U);
}

TEST_F(StoreLifecycleTest, FinalizeIsToldAtTheInformationLevel)
{
    CFakeLog::setTraceMask("OvnCDS", ~4U);
    m_story.stops();
    EXPECT_FALSE(CFakeLog::contains("CCDSAPI::Finalize:"));
}

TEST_F(StoreLifecycleTest, FinalizeLocksOnceAtItsOwnPlaces)
{
    CFakeLocks::record(true);
    m_story.stops();
    EXPECT_THAT(storeLockPlaces(), ElementsAre(168, 194));
}

TEST_F(StoreLifecycleTest, FinalizeFreesDataThenStopsTheThreadThenTheProxy)
{
    m_story.starts();
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    CFakeLog::clear();
    m_story.stops();
    EXPECT_LT(placeOf("CCallData Free"), placeOf("CCDSAPI::timingThread - stopping"));
    EXPECT_LT(placeOf("CCDSAPI::timingThread - stopping"), placeOf("<<<CCDSNetProxy::Finalize"));
    EXPECT_TRUE(CFakeLog::contains("<<<CCDSNetProxy::Finalize"));
}

TEST_F(StoreLifecycleTest, FinalizeFreesStoredAndKeptRecordsOnceEach)
{
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.registersMute("ann", "sip:2");
    const CNews news("sip:2");
    m_story.updates("ann", news);
    CFakeLog::clear();
    m_story.stops();
    EXPECT_EQ(CFakeLog::countContaining("CCallData Free"), 2U);
}

TEST_F(StoreLifecycleTest, FinalizeDropsStoredData)
{
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.stops();
    m_story.registers("all", "*");
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreLifecycleTest, FinalizeDropsKeptData)
{
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.stops();
    m_story.registers("ann", "sip:1");
    EXPECT_THAT(m_story.hears(), IsEmpty());
}

TEST_F(StoreLifecycleTest, RegistrationsSurviveFinalize)
{
    m_story.registersMute("ann", "sip:1");
    m_story.stops();
    EXPECT_THAT(m_story.registersMute("ann", "sip:1"), FailsWith(E_CDS_EXISTS));
    EXPECT_THAT(m_story.unregisters("ann"), IsOk());
}

TEST_F(StoreLifecycleTest, FinalizeStopsTheTimingThread)
{
    m_story.starts();
    m_story.stops();
    EXPECT_EQ(CFakeThreads::alive(), 0U);
}

TEST_F(StoreLifecycleTest, AStoreWorksAgainAfterFinalizeAndInitialize)
{
    m_story.starts();
    m_story.registers("ann", "sip:1");
    m_story.stops();
    EXPECT_THAT(m_story.starts(), IsOk());
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLERID=alice"));
}

TEST_F(StoreLifecycleTest, TheTimingThreadRunsAgainAfterFinalizeAndInitialize)
{
    m_story.starts();
    m_story.stops();
    m_story.starts();
    m_story.registers("all", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(30001);
    EXPECT_THAT(m_story.hears(), ElementsAre("all: sip:1 CALLERID=alice"));
}

TEST_F(StoreLifecycleTest, SecondInitializeTakesTheNewAddress)
{
    m_story.starts(CStoreStory::cThere);
    m_story.starts(CStoreStory::cHere);
    m_story.registers("all", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"), CStoreStory::cHere);
    m_story.lets(30001);
    EXPECT_THAT(m_story.hears(), ElementsAre("all: sip:1 CALLERID=alice"));
}

TEST_F(StoreLifecycleTest, DestructionEndsTheEventLogFirstAndTheTraceLogLast)
{
    CCDSAPI::initLogger();
    m_story.starts();
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.ends();
    EXPECT_THAT(CFakeLog::lifeCycle(),
                ElementsAre("CLogFile OvnNTLog", "CLogFile OvnCDS", "CLogFileRegistry OvnCDS", "~CLogFile OvnNTLog",
                            "~CLogFileRegistry OvnCDS", "~CLogFile OvnCDS"));
}

// What ends later may still use what ends earlier only if it looks whether it is there: the order is part of how the
// store leaves, whether it was finalized or not.
TEST_F(StoreLifecycleTest, ItsPartsEndInOneOrder)
{
    for (const bool bFinalized : {false, true})
    {
        SCOPED_TRACE(bFinalized);
        m_story.ends();
        CFakeLocks::record(true);
        CCDSAPI::initLogger();
        m_story.beginsAgain();
        m_story.starts();
        if (bFinalized)
            m_story.stops();
        CFakeLog::clear();
        CFakeLives::reset();
        m_story.ends();
        std::vector<std::string> vecExpected = {"~CLogFile OvnNTLog", "~CPCritSec CCDSAPI::m_pcritsec", "~CPEvent"};
        if (!bFinalized)
            vecExpected.insert(vecExpected.begin(), {"~CPThread CCDSAPI::Initialize", "<<<CCDSNetProxy::Finalize"});
        // The proxy: its worker's event, then its locks for work items, calls and cached records.
        vecExpected.insert(vecExpected.end(),
                           {"<<<CCDSNetProxy::Finalize", "~CPEvent", "~CPCritSec ", "~CPCritSec ", "~CPCritSec "});
        vecExpected.insert(vecExpected.end(), {"~CLogFileRegistry OvnCDS", "~CLogFile OvnCDS"});
        EXPECT_EQ(endsAndLines(), vecExpected);
        CFakeLocks::record(false);
    }
}

TEST_F(StoreLifecycleTest, DestructionLeavesNoTraceLog)
{
    CCDSAPI::initLogger();
    m_story.ends();
    EXPECT_EQ(CCDSLogging::pCDSLog, nullptr);
    EXPECT_EQ(CCDSLogging::pCDSLogReg, nullptr);
}

TEST_F(StoreLifecycleTest, DestructionLeavesNoLockNoEventAndNoThread)
{
    m_story.ends();
    CFakeLocks::record(true);
    m_story.beginsAgain();
    m_story.starts();
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1"));
    m_story.ends();
    EXPECT_EQ(CFakeLocks::alive(), 0);
    EXPECT_EQ(CFakeEvents::alive(), 0U);
    EXPECT_EQ(CFakeThreads::alive(), 0U);
}

TEST_F(StoreLifecycleTest, AHostNeedsNothingButTheDocumentedSequence)
{
    CCDSAPI::initLogger();
    auto pStore = std::make_unique<CCDSAPI>();
    EXPECT_THAT(pStore->Initialize(CStoreStory::cHere, 1), IsOk());
    EXPECT_THAT(pStore->Register(0, "ann", CStoreStory::cHere, "sip:1", "*", nullptr, 1), IsOk());
    EXPECT_THAT(pStore->Update("ann", CNews("sip:1").data(), false), IsOk());
    EXPECT_THAT(pStore->Finalize(), IsOk());
    pStore.reset();
    EXPECT_EQ(CCDSLogging::pCDSLog, nullptr);
}

TEST_F(StoreLifecycleTest, InitLoggerMakesTheTraceLog)
{
    CCDSAPI::initLogger();
    EXPECT_NE(CCDSLogging::pCDSLog, nullptr);
}

TEST_F(StoreLifecycleTest, FinalizeLoggerEndsTheTraceLog)
{
    CCDSAPI::initLogger();
    CCDSAPI::finalizeLogger();
    EXPECT_EQ(CCDSLogging::pCDSLog, nullptr);
}

TEST_F(StoreLifecycleTest, RecordLocksCarryTheirName)
{
    CFakeLocks::record(true);
    const CNews news("sip:1");
    const auto vecCreations = CFakeLocks::creations();
    ASSERT_EQ(vecCreations.size(), 1U);
    EXPECT_EQ(vecCreations[0].sName, "CCallData::m_pCritsec");
}

TEST_F(StoreLifecycleTest, DumpOfAStoreIsItsProxys)
{
    CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
    m_story.store().Dump(1);
    EXPECT_TRUE(CFakeLog::contains("CCDSWork::CCDSWork()")); // work for its thread
}

} // namespace
