// Leaving from every state, however far the store came.

#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class StoreShutdownTest : public testing::Test
{
protected:
    StoreShutdownTest() { CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels); }

    CStoreStory m_story;
};

TEST_F(StoreShutdownTest, ANewStoreCanGoAtOnce)
{
    m_story.ends();
    EXPECT_EQ(CFakeLog::alive(), 0U);
}

TEST_F(StoreShutdownTest, ARunningStoreCanGoWithoutFinalize)
{
    m_story.starts();
    m_story.ends();
    EXPECT_EQ(CFakeThreads::alive(), 0U);
}

TEST_F(StoreShutdownTest, GoingWithoutFinalizeFreesAllRecordsBeforeTheLogEnds)
{
    m_story.starts();
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.registersMute("ann", "sip:2");
    {
        const CNews news("sip:2");
        m_story.updates("ann", news);
    }
    CFakeLog::clear();
    m_story.ends();
    EXPECT_EQ(CFakeLog::countContaining("CCallData Free"), 2U);
    EXPECT_EQ(CFakeLog::alive(), 0U);
}

TEST_F(StoreShutdownTest, DataThatComesAfterFinalizeIsFreedToo)
{
    m_story.starts();
    m_story.stops();
    m_story.registersMute("ann", "sip:1");
    {
        const CNews news("sip:1");
        m_story.updates("ann", news);
    }
    CFakeLog::clear();
    m_story.ends();
    EXPECT_EQ(CFakeLog::countContaining("CCallData Free"), 1U);
    EXPECT_EQ(CFakeLog::alive(), 0U);
}

TEST_F(StoreShutdownTest, SecondInitializeLeavesOneTimingThread)
{
    m_story.starts();
    m_story.starts();
    EXPECT_EQ(CFakeThreads::alive(), 1U);
}

TEST_F(StoreShutdownTest, SecondInitializeKeepsTheData)
{
    m_story.starts();
    m_story.registersMute("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    m_story.starts();
    m_story.registers("all", "*");
    EXPECT_THAT(m_story.hears(), ElementsAre("all: sip:1 CALLERID=alice"));
}

TEST_F(StoreShutdownTest, AStoreWhoseThreadCouldNotStartStillServes)
{
    CFakeThreads::failNextThread(E_CDS_NOTHREAD);
    m_story.starts();
    m_story.registers("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLERID=alice"));
}

TEST_F(StoreShutdownTest, AStoreWhoseThreadCouldNotStartCanBeFinalized)
{
    CFakeThreads::failNextThread(E_CDS_NOTHREAD);
    m_story.starts();
    EXPECT_THAT(m_story.stops(), IsOk());
}

TEST_F(StoreShutdownTest, AStoreWhoseThreadCouldNotStartCanBeInitializedAgain)
{
    CFakeThreads::failNextThread(E_CDS_NOTHREAD);
    m_story.starts();
    EXPECT_THAT(m_story.starts(), IsOk());
    EXPECT_EQ(CFakeThreads::alive(), 1U);
}

TEST_F(StoreShutdownTest, FinalizeWaitsForAPassThatRuns)
{
    std::future<long> futFinalized;
    std::promise<void> promDelivering;
    std::promise<void> promGoOn;
    std::atomic<bool> bFinalized = false;
    bool bFinalizedDuringPass = true;
    m_story.starts();
    m_story.registers("all", "*", "EOC");
    m_story.reactsWith("all", [&](CCallbackMsg*) {
        promDelivering.set_value();
        promGoOn.get_future().wait();
        bFinalizedDuringPass = bFinalized;
        return 0L;
    });
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_TRUE(CFakeClock::awaitWaiters(1));
    CFakeClock::advance(30001);
    promDelivering.get_future().wait();
    futFinalized = std::async(std::launch::async, [&] {
        const long lResult = m_story.stops();
        bFinalized = true;
        return lResult;
    });
    promGoOn.set_value();
    EXPECT_THAT(futFinalized.get(), IsOk());
    EXPECT_FALSE(bFinalizedDuringPass);
    EXPECT_EQ(CFakeThreads::alive(), 0U);
}

// Callbacks that throw.

TEST_F(StoreShutdownTest, AnUpdaterGetsTheExceptionOfACallback)
{
    m_story.registers("ann", "sip:1");
    m_story.reactsWith("ann", [](CCallbackMsg*) -> long { throw std::runtime_error("ann is out"); });
    EXPECT_THROW(m_story.updates("ann", CNews("sip:1")), std::runtime_error);
}

TEST_F(StoreShutdownTest, ARegistrantGetsTheExceptionOfACallback)
{
    m_story.registers("ann", "sip:1", "@", CStoreStory::cHere);
    m_story.reactsWith("ann", [](CCallbackMsg*) -> long { throw std::runtime_error("ann is out"); });
    EXPECT_THROW(m_story.registers("bob", "sip:1"), std::runtime_error);
}

TEST_F(StoreShutdownTest, AnExceptionOfACallbackLeavesTheLockFree)
{
    CFakeLocks::record(true);
    m_story.registers("ann", "sip:1");
    m_story.reactsWith("ann", [](CCallbackMsg*) -> long { throw std::runtime_error("ann is out"); });
    EXPECT_ANY_THROW(m_story.updates("ann", CNews("sip:1")));
    EXPECT_TRUE(CFakeLocks::balanced());
}

TEST_F(StoreShutdownTest, AnExceptionOfACallbackLeavesTheDataStored)
{
    m_story.registers("ann", "sip:1");
    m_story.reactsWith("ann", [](CCallbackMsg*) -> long { throw std::runtime_error("ann is out"); });
    EXPECT_ANY_THROW(m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice")));
    m_story.hears();
    m_story.registers("bob", "sip:1");
    EXPECT_THAT(m_story.hears(), ElementsAre("bob: sip:1 CALLERID=alice"));
}

TEST_F(StoreShutdownTest, AnExceptionOnTheTimingThreadDoesNotEndIt)
{
    m_story.starts();
    m_story.registers("all", "*", "EOC");
    m_story.reactsWith("all", [](CCallbackMsg*) -> long { throw std::runtime_error("all is out"); });
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.lets(30001);
    EXPECT_TRUE(CFakeLog::contains("CCDSAPI::timingThread - pass ended by an exception"));
    EXPECT_FALSE(CFakeLog::contains("CCDSAPI::timingThread - stopping"));
}

TEST_F(StoreShutdownTest, WhatAThrowingCallbackHeldUpIsDeliveredByTheNextPass)
{
    m_story.starts();
    m_story.registers("all", "*", "EOC");
    m_story.reactsWith("all", [](CCallbackMsg*) -> long { throw std::runtime_error("all is out"); });
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.leavesBehind(CNews("sip:2").sets("CALLERID", "bob"));
    m_story.lets(30001);
    m_story.lets(10000);
    EXPECT_THAT(m_story.hears(), ElementsAre("all: sip:1 CALLERID=alice", "all: sip:2 CALLERID=bob"));
}

// Callbacks that call the store although they must not: nothing they do may crash it.

TEST_F(StoreShutdownTest, ACallbackThatUnregistersTheNextOneSilencesIt)
{
    m_story.registers("ann", "sip:1");
    m_story.registers("bob", "sip:1");
    m_story.reactsWith("ann", [this](CCallbackMsg*) { return m_story.unregisters("bob"); });
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLERID=alice"));
}

TEST_F(StoreShutdownTest, AListenerThatUnregistersTheNextOneSilencesIt)
{
    m_story.registersMute("carl", "sip:1");
    m_story.registers("ann", "sip:1", "@");
    m_story.registers("bob", "sip:1", "@");
    m_story.hears();
    m_story.reactsWith("ann", [this](CCallbackMsg*) {
        m_story.reactsWith("ann", nullptr);
        return m_story.unregisters("bob");
    });
    m_story.unregisters("carl");
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: carl unregistered for sip:1 at 10.0.0.1",
                                             "ann: bob unregistered for sip:1 at 10.0.0.1"));
}

TEST_F(StoreShutdownTest, ACallbackMayUnregisterItselfWithoutHarm)
{
    m_story.registers("ann", "sip:1");
    m_story.reactsWith("ann", [this](CCallbackMsg*) { return m_story.unregisters("ann"); });
    EXPECT_THAT(m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice")), IsOk());
    EXPECT_THAT(m_story.unregisters("ann"), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(StoreShutdownTest, ALastDeliveryMayTakeUpTheNextExpiredCallWithoutHarm)
{
    m_story.starts();
    m_story.registers("all", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.leavesBehind(CNews("sip:2").sets("CALLERID", "bob"));
    m_story.reactsWith("all", [this](CCallbackMsg*) { return m_story.registers("zoe", "sip:2"); });
    m_story.lets(30001);
    EXPECT_THAT(m_story.hears(), ElementsAre("all: sip:1 CALLERID=alice", "zoe: sip:2 CALLERID=bob"));
}

// Stores of which a part could not be made.

// The proxy is made first, with locks and an event of its own.
constexpr std::size_t cProxyLocks = 3;
constexpr std::size_t cProxyEvents = 1;

/// Makes the next store's lock or event fail.
struct CMissingPart
{
    const char* pszName;
    void (*pfnFail)();
    const char* pszLocation;
};

class HalfMadeStoreTest : public testing::TestWithParam<CMissingPart>
{
protected:
    HalfMadeStoreTest()
    {
        m_story.ends();
        CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
        GetParam().pfnFail();
        m_story.beginsAgain();
    }

    CStoreStory m_story;
};

TEST_P(HalfMadeStoreTest, SaysWhatIsMissing)
{
    EXPECT_EQ(CFakeLog::countExactly(std::string("(Error) Catch KRException. CCDSAPI::CCDSAPI(), new CPEvent. loc:") +
                                     GetParam().pszLocation + " failed: 0x8000FFFF"),
              1U);
}

TEST_P(HalfMadeStoreTest, HasItsProxyButNoEventLog)
{
    EXPECT_NE(g_pCDSNetProxy, nullptr);
    EXPECT_EQ(CFakeLog::alive(), 1U); // the trace log
}

TEST_P(HalfMadeStoreTest, RefusesEveryOperation)
{
    const CNews news("sip:1");
    EXPECT_THAT(m_story.starts(), FailsWith(E_CDS_OUTOFMEMORY));
    EXPECT_THAT(m_story.registers("ann", "sip:1"), FailsWith(E_CDS_OUTOFMEMORY));
    EXPECT_THAT(m_story.unregisters("ann"), FailsWith(E_CDS_OUTOFMEMORY));
    EXPECT_THAT(m_story.updates("ann", news), FailsWith(E_CDS_OUTOFMEMORY));
    EXPECT_THAT(m_story.asksFor("ann", "sip:1"), FailsWith(E_CDS_OUTOFMEMORY));
}

TEST_P(HalfMadeStoreTest, StillTellsTheTime)
{
    EXPECT_EQ(m_story.store().GetServerTimestamp(0), CFakeClock::cInitialFileTime);
    EXPECT_EQ(m_story.store().GetCallIDTimestamp("sip:1"), CFakeClock::cInitialFileTime);
}

TEST_P(HalfMadeStoreTest, StartsNoThread)
{
    m_story.starts();
    EXPECT_THAT(CFakeThreads::starts(), IsEmpty());
}

TEST_P(HalfMadeStoreTest, CanBeFinalizedAndDestroyed)
{
    EXPECT_THAT(m_story.stops(), IsOk());
    m_story.ends();
    EXPECT_EQ(g_pCDSNetProxy, nullptr);
}

constexpr CMissingPart cMissingParts[] = {
    {"Lock", [] { CFakeLocks::failNextCreation(cdsResult(0x8000FFFFUL), cProxyLocks, "fakes/CPCritSec", 7); },
     "fakes/CPCritSec.7"},
    {"Event", [] { CFakeEvents::failNextCreation(cdsResult(0x8000FFFFUL), cProxyEvents, "fakes/CPEvent", 8); },
     "fakes/CPEvent.8"},
};
INSTANTIATE_TEST_SUITE_P(Missing, HalfMadeStoreTest, testing::ValuesIn(cMissingParts),
                         [](const auto& named) { return std::string(named.param.pszName); });

TEST_F(StoreShutdownTest, AStoreWhoseProxyGetsNoLockRefusesToStart)
{
    m_story.ends();
    CFakeLocks::failNextCreation(E_FAIL, cProxyLocks - 1);
    m_story.beginsAgain();
    EXPECT_EQ(g_pCDSNetProxy, nullptr);
    EXPECT_THAT(m_story.starts(), FailsWith(E_CDS_OUTOFMEMORY));
    m_story.store().Dump(1);
    EXPECT_THAT(m_story.stops(), IsOk());
}

TEST_F(StoreShutdownTest, WithoutALockNoEventIsMade)
{
    m_story.ends();
    const std::size_t uEvents = CFakeEvents::creations().size();
    CFakeLocks::failNextCreation(E_FAIL, cProxyLocks);
    m_story.beginsAgain();
    EXPECT_EQ(CFakeEvents::creations().size(), uEvents + cProxyEvents);
}

TEST_F(StoreShutdownTest, WithoutAnEventTheLockIsThereAlready)
{
    m_story.ends();
    CFakeLocks::record(true);
    CFakeEvents::failNextCreation(E_FAIL, cProxyEvents);
    m_story.beginsAgain();
    EXPECT_THAT(CFakeLocks::creations(), SizeIs(cProxyLocks + 1));
}

TEST_F(StoreShutdownTest, AStoreWithoutEventLogSaysSoAndWorks)
{
    m_story.ends();
    CCDSAPI::initLogger();
    CFakeLog::failNextCreation(cdsResult(0x8000FFFFUL), 0, "fakes/CLogFile", 9);
    m_story.beginsAgain();
    EXPECT_TRUE(CFakeLog::contains(
        "(Error) Catch KRException. CCDSAPI::CCDSAPI(), new CPEvent. loc:fakes/CLogFile.9 failed: 0x8000FFFF"));
    EXPECT_THAT(m_story.starts(), IsOk());
    m_story.registers("ann", "sip:1");
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(m_story.hears(), ElementsAre("ann: sip:1 CALLERID=alice"));
}

} // namespace
