// What the fakes promise to tests beyond the platform's guarantees.
#include "Fakes.h"
#include "CPCritSec.h"
#include "CPEvent.h"
#include "CPThread.h"
#include "CPortable.h"
#include "KRException.h"
#include "KRLogLib.h"
#include "KRRegLib.h"
#include "LockSteps.h"

#include <future>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

class FakesTest : public testing::Test
{
protected:
    CFakeWorld m_fakes;
};

TEST_F(FakesTest, ClockStandsUntilMoved)
{
    EXPECT_EQ(CPortable::GetTickCountULL(), CFakeClock::cInitialTicks);
    EXPECT_EQ(CPortable::GetTickCountULL(), CFakeClock::cInitialTicks);
    CFakeClock::advance(5);
    EXPECT_EQ(CPortable::GetTickCountULL(), CFakeClock::cInitialTicks + 5);
    unsigned long long ullFileTime = 0;
    CPortable::GetCurrentULLFileTimeUTC(&ullFileTime);
    EXPECT_EQ(ullFileTime, CFakeClock::cInitialFileTime + 50'000);
    EXPECT_EQ(CFakeClock::tickReads(), 3U);
    EXPECT_EQ(CFakeClock::fileTimeReads(), 1U);
}

TEST_F(FakesTest, ClockStepsPerRead)
{
    CFakeClock::setTicks(100);
    CFakeClock::stepTicksPerRead(7);
    EXPECT_EQ(CPortable::GetTickCountULL(), 100U);
    EXPECT_EQ(CPortable::GetTickCountULL(), 107U);
    CFakeClock::scriptTickReads({1, 2});
    EXPECT_EQ(CPortable::GetTickCountULL(), 1U);
    EXPECT_EQ(CPortable::GetTickCountULL(), 2U);
    EXPECT_EQ(CPortable::GetTickCountULL(), 114U);
}

TEST_F(FakesTest, AwaitSeesOnlyWaitsThatAreNotOver)
{
    CPEvent event(1, "", 1);
    auto waited = std::async(std::launch::async, [&] {
        const unsigned long ulFirst = event.wait(100, nullptr);
        return ulFirst == CP_WAIT_TIMEOUT ? event.wait(200, nullptr) : 1;
    });
    ASSERT_TRUE(CFakeClock::awaitWaiters(1, 100));
    CFakeClock::advance(99);
    EXPECT_EQ(CFakeClock::waiters(), 1U);
    CFakeClock::advance(1);
    ASSERT_TRUE(CFakeClock::awaitWaiters(1, 200));
    event.set();
    EXPECT_EQ(CFakeClock::waiters(), 0U) << "a wait that is over counts no more";
    EXPECT_EQ(waited.get(), 0U);
}

TEST_F(FakesTest, SleepMayMoveTheClock)
{
    CFakeClock::setSleepAdvances(true);
    CPortable::Sleep(200);
    EXPECT_EQ(CFakeClock::ticks(), CFakeClock::cInitialTicks + 200);
    EXPECT_THAT(CFakeClock::sleeps(), ElementsAre(200U));
}

TEST_F(FakesTest, LocksAreOnRecordWhenAsked)
{
    CPCritSec before("before", 1);
    enterStep(before, 1);
    leaveStep(before, 2);
    CFakeLocks::record(true);
    CPCritSec cs("cs", 1);
    enterStep(cs, 3);
    enterStep(cs, 4);
    EXPECT_THAT(CFakeLocks::heldByThisThread(), ElementsAre("cs", "cs"));
    leaveStep(cs, 5);
    EXPECT_FALSE(CFakeLocks::balanced());
    leaveStep(cs, 6);
    EXPECT_TRUE(CFakeLocks::balanced());
    ASSERT_EQ(CFakeLocks::creations().size(), 1U);
    EXPECT_EQ(CFakeLocks::creations()[0].nFlag, 1);
    std::vector<long> vecPlaces;
    for (const CFakeLocks::CEntry& entry : CFakeLocks::entries("cs"))
        vecPlaces.push_back(entry.lPlace);
    EXPECT_THAT(vecPlaces, ElementsAre(3, 4, 5, 6));
}

TEST_F(FakesTest, ConstructionsFailOnRequest)
{
    CFakeLocks::failNextCreation(-1);
    EXPECT_THROW(CPCritSec("", 1), KRException);
    CFakeEvents::failNextCreation(-2, 1, "place", 3);
    const CPEvent good(1, "", 1);
    try
    {
        const CPEvent bad(1, "", 1);
        ADD_FAILURE() << "it was made";
    }
    catch (const KRException& exception)
    {
        EXPECT_EQ(exception.code(), -2);
        EXPECT_STREQ(exception.location(), "place.3");
    }
    const CPEvent goodAgain(1, "", 1);
    EXPECT_EQ(CFakeEvents::alive(), 2U);
}

TEST_F(FakesTest, ThreadsFailOnRequest)
{
    CPEvent evStop(1, "", 1);
    CFakeThreads::failNextThread(-1);
    EXPECT_THROW(CPThread(
                     "t", [](void*) {}, nullptr, &evStop),
                 KRException);
    CFakeThreads::failNextCreateThread();
    EXPECT_EQ(CPortable::CreateThread([](void*) {}, nullptr, "c"), 0U);
    {
        const CPThread thread(
            "t", [](void*) { CPortable::SetCurrentThreadName("n"); }, nullptr, &evStop);
        EXPECT_EQ(CFakeThreads::alive(), 1U);
    }
    EXPECT_EQ(CFakeThreads::alive(), 0U);
    ASSERT_EQ(CFakeThreads::starts().size(), 1U);
    EXPECT_EQ(CFakeThreads::starts()[0].sName, "t");
    EXPECT_EQ(CFakeThreads::starts()[0].pStopEvent, &evStop);
    EXPECT_THAT(CFakeThreads::namesSet(), ElementsAre("n"));
}

TEST_F(FakesTest, LogTellsHowItWasMade)
{
    using namespace KRLogLib;
    {
        CLogFile log("FakesTest", nullptr, false, true, false);
        EXPECT_EQ(log.traceMask().load(), 0U);
        const CLogFileRegistry registry(&log, "a", "b", nullptr, nullptr, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13,
                                        14);
        EXPECT_EQ(log.traceMask().load(), 4U);
        CFakeLog::setTraceMask("FakesTest", 0xFF);
        EXPECT_EQ(log.traceMask().load(), 0xFFU);
    }
    EXPECT_THAT(CFakeLog::lifeCycle(), ElementsAre("CLogFile FakesTest", "CLogFileRegistry FakesTest",
                                                   "~CLogFileRegistry FakesTest", "~CLogFile FakesTest"));
    ASSERT_EQ(CFakeLog::registries().size(), 1U);
    EXPECT_THAT(CFakeLog::registries()[0].arrNumbers, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14));
    EXPECT_EQ(CFakeLog::alive(), 0U);
    CFakeWorld::reset();
    EXPECT_EQ(CFakeLog::traceMask("FakesTest"), 0U);
}

TEST_F(FakesTest, TheTestsMaskHoldsAgainstALaterBinding)
{
    using namespace KRLogLib;
    CFakeLog::setTraceMask("FakesTestMask", 0x10);
    CLogFile log("FakesTestMask", nullptr, false, true, false);
    const CLogFileRegistry registry(&log, "a", "b", nullptr, nullptr, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14);
    EXPECT_EQ(log.traceMask().load(), 0x10U);
}

TEST_F(FakesTest, ConfigurationFailsOnRequest)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "n", 5);
    KRRegLib::CRegLib store;
    KRRegLib::CRegKey key;
    CFakeConfiguration::failKeys(-1);
    EXPECT_EQ(store.rootKey().createOrOpenKey("Orvane\\CDS", &key), -1);
    CFakeConfiguration::failKeys(0);
    EXPECT_EQ(store.rootKey().createOrOpenKey("Orvane\\CDS", &key), 0);
    CFakeConfiguration::failQueries(-2);
    unsigned long ulValue = 0;
    EXPECT_EQ(key.queryValue("n", &ulValue), -2);
    CFakeConfiguration::failQueries(0);
    EXPECT_EQ(key.queryValue("n", &ulValue), 0);
    EXPECT_EQ(ulValue, 5U);
    CFakeConfiguration::failWrites(-3);
    EXPECT_EQ(key.setValue("n", 6UL), -3);
    EXPECT_EQ(CFakeConfiguration::number("Orvane\\CDS", "n"), 5U);
    EXPECT_EQ(CFakeConfiguration::operations().back(), "set Orvane\\CDS\\n");
}

TEST_F(FakesTest, IdentifiersFollowTheScript)
{
    CFakeGuid::script({"first", "second"});
    EXPECT_EQ(CPortable::newPUUID(), "first");
    EXPECT_EQ(CPortable::newPUUID(), "second");
    EXPECT_EQ(CPortable::newPUUID().size(), 36U);
    EXPECT_EQ(CFakeGuid::calls(), 3U);
}
