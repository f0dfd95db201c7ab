// Locks, events and threads.
#include "CPCritSec.h"
#include "CPEvent.h"
#include "CPThread.h"
#include "CPortable.h"
#include "ConformanceWorld.h"
#include "LockSteps.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>

namespace {
/// Only a failing test waits so long.
constexpr unsigned long cHangMs = 30'000;
} // namespace

class ThreadingTest : public testing::Test
{
protected:
    CConformanceWorld m_world;
};

TEST_F(ThreadingTest, LockKeepsItsName)
{
    static constexpr char cName[] = "ThreadingTest::cs";
    const CPCritSec cs(cName, 1);
    EXPECT_EQ(cs.name(), cName);
}

TEST_F(ThreadingTest, LockIsReentrant)
{
    CPCritSec cs("cs", 1);
    enterStep(cs, 1);
    enterStep(cs, 2);
    leaveStep(cs, 3);
    auto entered = std::async(std::launch::async, [&cs] {
        enterStep(cs, 4);
        leaveStep(cs, 5);
    });
    EXPECT_EQ(entered.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout)
        << "one leave of two has opened the lock";
    leaveStep(cs, 6);
    entered.get();
}

TEST_F(ThreadingTest, LockExcludesOtherThreads)
{
    CPCritSec cs("cs", 1);
    long lPlain = 0; // no atomic: the lock is all that keeps it whole
    std::vector<std::thread> vecThreads;
    for (int nThread = 0; nThread < 4; ++nThread)
    {
        vecThreads.emplace_back([&] {
            for (int n = 0; n < 5000; ++n)
            {
                cs.enter(1);
                const long lRead = lPlain;
                std::atomic_signal_fence(std::memory_order_seq_cst); // the compiler must not join the two
                lPlain = lRead + 1;
                cs.leave(2);
            }
        });
    }
    for (std::thread& thread : vecThreads)
        thread.join();
    EXPECT_EQ(lPlain, 20'000);
}

TEST_F(ThreadingTest, EventIsNotSetAtFirst)
{
    CPEvent event(1, "", 1);
    EXPECT_EQ(event.wait(0, nullptr), CP_WAIT_TIMEOUT);
}

TEST_F(ThreadingTest, EventResetsItself)
{
    CPEvent event(1, "", 1);
    event.set();
    EXPECT_EQ(event.wait(cHangMs, nullptr), 0U);
    EXPECT_EQ(event.wait(0, nullptr), CP_WAIT_TIMEOUT);
}

TEST_F(ThreadingTest, SetsThatNobodyWaitedForCountAsOne)
{
    CPEvent event(1, "", 1);
    event.set();
    event.set();
    event.set();
    EXPECT_EQ(event.wait(0, nullptr), 0U);
    EXPECT_EQ(event.wait(0, nullptr), CP_WAIT_TIMEOUT);
}

TEST_F(ThreadingTest, ResetTakesASetBack)
{
    CPEvent event(1, "", 1);
    event.set();
    event.reset();
    EXPECT_EQ(event.wait(0, nullptr), CP_WAIT_TIMEOUT);
}

TEST_F(ThreadingTest, WaitEndsWhenTheTimeRunsOut)
{
    CPEvent event(1, "", 1);
    const unsigned long long ullBefore = CPortable::GetTickCountULL();
    EXPECT_EQ(m_world.waitWhileTimePasses(&event, 20), CP_WAIT_TIMEOUT);
    EXPECT_GE(CPortable::GetTickCountULL() - ullBefore, 20U);
}

TEST_F(ThreadingTest, SetEndsAWaitOfAnotherThread)
{
    CPEvent event(1, "", 1);
    auto waited = std::async(std::launch::async, [&] { return event.wait(cHangMs, nullptr); });
    event.set();
    EXPECT_EQ(waited.get(), 0U);
}

TEST_F(ThreadingTest, EverySetEndsOneWaitOfMany)
{
    CPEvent event(1, "", 1);
    CPEvent taken(1, "", 1);
    std::atomic<int> nEnded{0};
    std::vector<std::thread> vecThreads;
    for (int n = 0; n < 3; ++n)
    {
        vecThreads.emplace_back([&] {
            if (event.wait(cHangMs, nullptr) == 0)
                ++nEnded;
            taken.set();
        });
    }
    for (int n = 0; n < 3; ++n)
    {
        event.set();
        ASSERT_EQ(taken.wait(cHangMs, nullptr), 0U);
        EXPECT_EQ(nEnded, n + 1);
    }
    for (std::thread& thread : vecThreads)
        thread.join();
}

namespace {
struct CStoppable
{
    CPEvent evStop{1, "", 1};
    CPEvent evStarted{1, "", 1};
    std::atomic<bool> bStopped{false};
    std::atomic<pthread_t> thread{};

    static void run(void* pArg)
    {
        auto* const pSelf = static_cast<CStoppable*>(pArg);
        pSelf->thread = pthread_self();
        pSelf->evStarted.set();
        if (pSelf->evStop.wait(cHangMs, nullptr) == 0)
            pSelf->bStopped = true;
    }
};

void waitForEvent(void* pArg)
{
    (void)static_cast<CPEvent*>(pArg)->wait(cHangMs, nullptr); // the caller sees whether it returns
}
} // namespace

TEST_F(ThreadingTest, ThreadStartsInTheConstructorAndStopsInTheDestructor)
{
    CStoppable stoppable;
    {
        const CPThread thread("ThreadingTest", CStoppable::run, &stoppable, &stoppable.evStop);
        ASSERT_EQ(stoppable.evStarted.wait(cHangMs, nullptr), 0U);
        EXPECT_FALSE(pthread_equal(stoppable.thread, pthread_self()));
        EXPECT_FALSE(stoppable.bStopped);
    }
    EXPECT_TRUE(stoppable.bStopped) << "the destructor returned before the thread";
}

TEST_F(ThreadingTest, AThreadThatHasReturnedIsJoinedToo)
{
    CPEvent evStop(1, "", 1);
    CPEvent evGo(1, "", 1);
    evGo.set();
    const CPThread thread("ThreadingTest", waitForEvent, &evGo, &evStop);
}

TEST_F(ThreadingTest, CreatedThreadRunsUntilJoined)
{
    CPEvent evGo(1, "", 1);
    const CPThreadHandle hThread = CPortable::CreateThread(waitForEvent, &evGo, "a name longer than the system keeps");
    ASSERT_NE(hThread, 0U);
    evGo.set();
    CPortable::JoinThread(hThread);
    EXPECT_EQ(evGo.wait(0, nullptr), CP_WAIT_TIMEOUT) << "the thread did not take the set";
}

TEST_F(ThreadingTest, JoiningNoThreadDoesNothing)
{
    CPortable::JoinThread(0);
}
