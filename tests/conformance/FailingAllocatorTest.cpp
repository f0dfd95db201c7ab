// The allocator that refuses on request.
#include "FailingAllocator.h"
#include "CPCritSec.h"
#include "FakeLocks.h"
#include "Fakes.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {
struct alignas(64) CAligned
{
    char c[64];
};

/// Keeps the compiler from leaving out an allocation that nobody looks at.
template <typename Pointer> bool given(Pointer p)
{
    asm volatile("" : : "r"(p) : "memory");
    return p != nullptr;
}
} // namespace

TEST(FailingAllocatorTest, RefusesAfterTheGranted)
{
    bool bFirst = false;
    bool bThrown = false;
    bool bNull = false;
    bool bAlignedNull = false;
    bool bMallocNull = false;
    std::size_t uSeen = 0;
    {
        const CFailingAllocator failing(1);
        const std::unique_ptr<int> pGranted(new int(1));
        bFirst = given(pGranted.get());
        try
        {
            const std::unique_ptr<int> pRefused(new int(2));
            (void)given(pRefused.get()); // never reached
        }
        catch (const std::bad_alloc&)
        {
            bThrown = true;
        }
        const std::unique_ptr<int> pNothrow(new (std::nothrow) int(3));
        bNull = !given(pNothrow.get());
        const std::unique_ptr<CAligned> pAligned(new (std::nothrow) CAligned);
        bAlignedNull = !given(pAligned.get());
        void* const pMemory = std::malloc(10);
        bMallocNull = !given(pMemory);
        std::free(pMemory);
        uSeen = failing.seen();
    }
    EXPECT_TRUE(bFirst);
    EXPECT_TRUE(bThrown);
    EXPECT_TRUE(bNull);
    EXPECT_TRUE(bAlignedNull);
    EXPECT_TRUE(bMallocNull);
    EXPECT_EQ(uSeen, 5U);
}

TEST(FailingAllocatorTest, MayRefuseJustOne)
{
    bool bSecond = true;
    bool bThird = false;
    {
        const CFailingAllocator failing(1, CFailingAllocator::Mode::RefuseOne);
        const std::unique_ptr<int> p1(new (std::nothrow) int(1));
        const std::unique_ptr<int> p2(new (std::nothrow) int(2));
        const std::unique_ptr<int> p3(new (std::nothrow) int(3));
        bSecond = given(p2.get());
        bThird = given(p3.get());
        (void)given(p1.get());
    }
    EXPECT_FALSE(bSecond);
    EXPECT_TRUE(bThird);
}

TEST(FailingAllocatorTest, LeavesOtherThreadsAlone)
{
    bool bGiven = false;
    std::thread other;
    {
        const CAllocationPause pause;
        other = std::thread([&bGiven] {
            const std::unique_ptr<int> p(new (std::nothrow) int(1));
            bGiven = given(p.get());
        });
    }
    {
        const CFailingAllocator failing(0);
        other.join();
    }
    EXPECT_TRUE(bGiven);
}

TEST(FailingAllocatorTest, DoesNotCountWhatTheFakesRecord)
{
    const CFakeWorld fakes;
    CFakeLocks::record(true);
    CPCritSec cs("cs", 1);
    std::size_t uSeen = 1;
    {
        const CFailingAllocator failing(0);
        cs.enter(1);
        cs.leave(2);
        uSeen = failing.seen();
    }
    EXPECT_EQ(uSeen, 0U);
    EXPECT_EQ(CFakeLocks::entries().size(), 2U);
}

TEST(FailingAllocatorTest, SweepTriesEveryAllocation)
{
    const CSweepResult result = sweepAllocations([] {
        std::vector<std::unique_ptr<std::string>> vecTexts;
        for (int n = 0; n < 3; ++n)
        {
            auto pText = std::make_unique<std::string>(100, 'x');
            vecTexts.push_back(std::move(pText));
        }
        return vecTexts.size() == 3;
    });
    EXPECT_TRUE(result.bCompleted);
    EXPECT_EQ(result.uRefused, 9U) << "three objects, three texts, three growths";
    EXPECT_EQ(result.uSurvived, 0U);
}

TEST(FailingAllocatorTest, SweepEndsWhenMemoryIsNotTheTrouble)
{
    const CSweepResult result = sweepAllocations([] { return false; });
    EXPECT_FALSE(result.bCompleted);
    EXPECT_EQ(result.uRounds, 1U);
}
