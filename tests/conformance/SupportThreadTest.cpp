// How the support library's threads get their turns.
#include "CPEvent.h"
#include "CPThread.h"
#include "CPortable.h"

#include <thread>

#include <gtest/gtest.h>
#include <sched.h>

namespace {

void notePolicy(void* pnPolicy)
{
    *static_cast<int*>(pnPolicy) = sched_getscheduler(0);
}

class SupportThreadTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (sched_getscheduler(0) != SCHED_OTHER)
            GTEST_SKIP() << "the tests themselves do not run with the usual policy";
        bool bGranted = false;
        std::thread([&bGranted] {
            const sched_param parameters{};
            bGranted = sched_setscheduler(0, SCHED_BATCH, &parameters) == 0;
        }).join();
        if (!bGranted)
            GTEST_SKIP() << "this system grants no other policy";
    }

    int m_nPolicy = -1; // of the thread
};

TEST_F(SupportThreadTest, AThreadWaitsForItsTurn)
{
    {
        CPEvent event(1, "", 1);
        const CPThread thread("Background", notePolicy, &m_nPolicy, &event);
    }
    EXPECT_EQ(m_nPolicy, SCHED_BATCH);
}

TEST_F(SupportThreadTest, AThreadOfAProcessWithAnotherPolicyKeepsThat)
{
    std::thread([this] {
        const sched_param parameters{};
        ASSERT_EQ(sched_setscheduler(0, SCHED_IDLE, &parameters), 0);
        CPEvent event(1, "", 1);
        const CPThread thread("Background", notePolicy, &m_nPolicy, &event);
    }).join();
    EXPECT_EQ(m_nPolicy, SCHED_IDLE);
}

} // namespace
