// Leaving from every state, however far the store came.

#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "KRException.h"
#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <new>
#include <stdexcept>
#include <thread>

namespace {

using testing::Contains;
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
    std::promise<void> promFinalizing;
    std::atomic<bool> bFinalized = false;
    bool bFinalizedDuringPass = true;
    m_story.starts();
    m_story.registers("all", "*", "EOC");
    m_story.reactsWith("all", [&](CCallbackMsg*) {
        promDelivering.set_value();
        promFinalizing.get_future().wait();
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield(); // a chance for a Finalize that would not wait
        bFinalizedDuringPass = bFinalized;
        return 0L;
    });
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_TRUE(CFakeClock::awaitWaiters(1));
    CFakeClock::advance(30001);
    promDelivering.get_future().wait();
    futFinalized = std::async(std::launch::async, [&] {
        promFinalizing.set_value();
        const long lResult = m_story.stops();
        bFinalized = true;
        return lResult;
    });
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

// Two exceptions are not passed on: they have a result code, which the caller gets instead.

struct CCodedException
{
    const char* pszName;
    long (*pfnCallback)(CCallbackMsg*);
    long lResult;
};

class StoreCodedExceptionTest : public testing::TestWithParam<CCodedException>
{
protected:
    StoreCodedExceptionTest() { CFakeLocks::record(true); }

    void goesWrong(const std::string& sWho) { m_story.reactsWith(sWho, GetParam().pfnCallback); }
    void isWellAgain(const std::string& sWho) { m_story.reactsWith(sWho, nullptr); }

    CStoreStory m_story;
};

TEST_P(StoreCodedExceptionTest, IsTheResultOfAnUpdateWhoseDataStays)
{
    m_story.registers("ann", "sip:1");
    m_story.registers("bob", "sip:1");
    goesWrong("ann");
    EXPECT_THAT(m_story.updates("bob", CNews("sip:1").sets("CALLERID", "alice")), FailsWith(GetParam().lResult));
    EXPECT_TRUE(CFakeLocks::balanced());
    isWellAgain("ann");
    m_story.hears();
    EXPECT_THAT(m_story.asksFor("bob", "sip:1"), IsOk());
    EXPECT_THAT(m_story.hears(), ElementsAre("bob: sip:1 CALLERID=alice"));
}

TEST_P(StoreCodedExceptionTest, IsTheResultOfARegistrationThatStays)
{
    for (const char* pszEvent : {"@", "*"}) // of the listener; of the new registrant, who gets what there is
    {
        SCOPED_TRACE(pszEvent);
        m_story.beginsAgain();
        const std::string sFailing = std::string(pszEvent) == "@" ? "listener" : "new";
        m_story.registers("listener", "*", "@");
        m_story.registersMute("ann", "sip:1");
        m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
        goesWrong(sFailing);
        EXPECT_THAT(m_story.registers("new", "sip:1"), FailsWith(GetParam().lResult));
        EXPECT_TRUE(CFakeLocks::balanced());
        isWellAgain(sFailing);
        m_story.hears();
        EXPECT_THAT(m_story.updates("new", CNews("sip:1").sets("CALLEDID", "bob")), IsOk());
        EXPECT_THAT(m_story.hears(), Contains("new: sip:1 CALLEDID=bob"));
    }
}

TEST_P(StoreCodedExceptionTest, IsTheResultOfAnUnregistrationThatIsDone)
{
    m_story.registersMute("ann", "sip:1");
    m_story.registers("listener", "*", "@");
    goesWrong("listener");
    EXPECT_THAT(m_story.unregisters("ann"), FailsWith(GetParam().lResult));
    EXPECT_TRUE(CFakeLocks::balanced());
    isWellAgain("listener");
    EXPECT_THAT(m_story.unregisters("ann"), FailsWith(E_CDS_NOTFOUND));
}

TEST_P(StoreCodedExceptionTest, IsTheResultOfAskingForData)
{
    m_story.registers("ann", "sip:1", "none");
    m_story.updates("ann", CNews("sip:1"));
    goesWrong("ann");
    EXPECT_THAT(m_story.asksFor("ann", "sip:1"), FailsWith(GetParam().lResult));
    EXPECT_TRUE(CFakeLocks::balanced());
    isWellAgain("ann");
    EXPECT_THAT(m_story.asksFor("ann", "sip:1"), IsOk());
}

constexpr CCodedException cCodedExceptions[] = {
    {"NoMemory", [](CCallbackMsg*) -> long { throw std::bad_alloc(); }, E_CDS_OUTOFMEMORY},
    {"Refusal", [](CCallbackMsg*) -> long { throw KRException(cdsResult(0x8000FFFFUL), "host", 7); },
     cdsResult(0x8000FFFFUL)},
};
INSTANTIATE_TEST_SUITE_P(Thrown, StoreCodedExceptionTest, testing::ValuesIn(cCodedExceptions),
                         [](const auto& named) { return std::string(named.param.pszName); });

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

/// Whom a registrant that calls the store back disturbs: an update that all of ann, bob and all hear of.
class StoreReentryTest : public StoreShutdownTest
{
protected:
    /// What is heard of an update during which ann does this, once.
    std::vector<std::string> heardWhileAnn(const std::function<long()>& fnDeed)
    {
        m_story.registers("ann", "sip:1");
        m_story.registers("bob", "sip:1");
        m_story.registers("all", "*");
        m_story.reactsWith("ann", [this, &fnDeed](CCallbackMsg* pMessage) {
            m_story.reactsWith("ann", nullptr);
            m_lResult = fnDeed();
            m_sDelivered = describe(dynamic_cast<CCallData&>(*pMessage->getCallbackData())); // must still live
            return 0L;
        });
        EXPECT_THAT(m_story.updates("bob", CNews("sip:1").sets("CALLERID", "alice")), IsOk());
        return m_story.hears();
    }

    long m_lResult = -1;
    std::string m_sDelivered;
};

TEST_F(StoreReentryTest, ACallbackMayUpdateTheCallWithoutHarm)
{
    const auto vecHeard =
        heardWhileAnn([this] { return m_story.updates("ann", CNews("sip:1").sets("CALLEDID", "bob")); });
    EXPECT_THAT(m_lResult, IsOk());
    // The first data of a call is delivered as it is stored, so that the rest hear it with what came in between.
    EXPECT_THAT(vecHeard, ElementsAre("ann: sip:1 CALLERID=alice", "ann: sip:1 CALLEDID=bob", "bob: sip:1 CALLEDID=bob",
                                      "all: sip:1 CALLEDID=bob", "bob: sip:1 CALLEDID=bob CALLERID=alice",
                                      "all: sip:1 CALLEDID=bob CALLERID=alice"));
}

TEST_F(StoreReentryTest, ACallbackMayRegisterForTheCallWithoutHarm)
{
    const auto vecHeard = heardWhileAnn([this] { return m_story.registers("zoe", "sip:1"); });
    EXPECT_THAT(m_lResult, IsOk());
    // The new one got what there is when it registered, and is not among those the delivery began with.
    EXPECT_THAT(vecHeard, ElementsAre("ann: sip:1 CALLERID=alice", "zoe: sip:1 CALLERID=alice",
                                      "bob: sip:1 CALLERID=alice", "all: sip:1 CALLERID=alice"));
    EXPECT_EQ(m_sDelivered, "sip:1 CALLERID=alice");
}

TEST_F(StoreReentryTest, ACallbackMayAskForTheCallWithoutHarm)
{
    const auto vecHeard = heardWhileAnn([this] { return m_story.asksFor("bob", "sip:1"); });
    EXPECT_THAT(m_lResult, IsOk());
    EXPECT_THAT(vecHeard, ElementsAre("ann: sip:1 CALLERID=alice", "bob: sip:1 CALLERID=alice",
                                      "bob: sip:1 CALLERID=alice", "all: sip:1 CALLERID=alice"));
    EXPECT_EQ(m_sDelivered, "sip:1 CALLERID=alice");
}

TEST_F(StoreReentryTest, ALastDeliveryMayUpdateTheCallWithoutHarm)
{
    m_story.starts();
    m_story.registers("all", "*", "EOC");
    m_story.leavesBehind(CNews("sip:1").sets("CALLERID", "alice"));
    m_story.reactsWith("all", [this](CCallbackMsg* pMessage) {
        m_lResult = m_story.updates("all", CNews("sip:1").sets("CALLEDID", "bob"));
        m_sDelivered = describe(dynamic_cast<CCallData&>(*pMessage->getCallbackData()));
        return 0L;
    });
    m_story.lets(30001);
    EXPECT_THAT(m_lResult, IsOk());
    EXPECT_THAT(m_story.hears(), ElementsAre("all: sip:1 CALLERID=alice"));
    EXPECT_EQ(m_sDelivered, "sip:1 CALLERID=alice"); // what is delivered has left the store
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

TEST_P(HalfMadeStoreTest, SaysSoAtTheErrorLevel)
{
    m_story.ends();
    CFakeLog::setTraceMask("OvnCDS", ~1U);
    CFakeLog::clear();
    GetParam().pfnFail();
    m_story.beginsAgain();
    EXPECT_THAT(CFakeLog::texts(), IsEmpty());
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
    EXPECT_EQ(m_story.store().GetServerTickCount(0), CFakeClock::cInitialTicks);
    CCDSTimestamp tsStamp(0, 0);
    EXPECT_THAT(m_story.store().GetCallIDCDSTimestamp("sip:1", &tsStamp), IsOk());
    EXPECT_EQ(tsStamp.value(), CFakeClock::cInitialFileTime);
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
