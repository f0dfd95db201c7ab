// The warning of operations that took long.

#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::Not;

/// A measured operation, and how a test makes it read the clock.
struct COperation
{
    const char* pszName;
    void (*pfnPrepare)(CStoreStory&);
    void (*pfnRun)(CStoreStory&);
    std::size_t uReadsBefore;  ///< by operations around it, before it begins
    std::size_t uReadsBetween; ///< by operations inside it
    std::size_t uReads;        ///< of the whole run
};

void prepareNothing(CStoreStory&) {}
void prepareCall(CStoreStory& story)
{
    story.registers("ann", "sip:1");
    story.updates("ann", CNews("sip:1"));
}
void updateCall(CStoreStory& story)
{
    story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
}
void registerBob(CStoreStory& story)
{
    story.registers("bob", "sip:1", "none");
}
void unregisterAnn(CStoreStory& story)
{
    story.unregisters("ann");
}

// An update with one receiver reads: Update( insertCallData() sendCallData( callCallback() sendCallData() ) ).
const COperation cOperations[] = {
    {"initLogger", prepareNothing, [](CStoreStory&) { CCDSAPI::initLogger(); }, 0, 0, 2},
    {"Register", prepareNothing, registerBob, 0, 2, 4},
    {"sendRegistration", prepareNothing, registerBob, 1, 0, 4},
    {"Unregister", prepareCall, unregisterAnn, 0, 3, 5}, // it reads the time of the kept data too
    {"Update", prepareCall, updateCall, 0, 8, 10},
    {"insertCallData", prepareCall, updateCall, 1, 0, 10},
    {"sendCallData", prepareCall, updateCall, 3, 4, 10},
    {"callCallback", prepareCall, updateCall, 4, 0, 10},
    {"GetCallData", prepareCall, [](CStoreStory& story) { story.asksFor("ann", "sip:1"); }, 0, 2, 4},
    {"GetServerTimestamp", prepareNothing, [](CStoreStory& story) { story.store().GetServerTimestamp(1); }, 0, 0, 2},
    {"GetServerTickCount", prepareNothing, [](CStoreStory& story) { story.store().GetServerTickCount(1); }, 0, 0, 2},
    {"GetCallIDTimestamp", prepareNothing, [](CStoreStory& story) { story.store().GetCallIDTimestamp("sip:1"); }, 0, 0,
     2},
    {"GetCallIDCDSTimestamp", prepareNothing,
     [](CStoreStory& story) {
         CCDSTimestamp tsStamp(0, 0);
         story.store().GetCallIDCDSTimestamp("sip:1", &tsStamp);
     },
     0, 0, 2},
};

class StoreSlowWarningTest : public testing::TestWithParam<COperation>
{
protected:
    StoreSlowWarningTest()
    {
        CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
        GetParam().pfnPrepare(m_story);
        CFakeLog::clear();
    }

    /// Runs the operation as if it alone had taken the time; what lies around it takes none.
    void runTaking(unsigned long long ullMs)
    {
        std::vector<unsigned long long> vecReads(GetParam().uReadsBefore + 1 + GetParam().uReadsBetween, cStart);
        vecReads.push_back(cStart + ullMs);
        vecReads.resize(GetParam().uReads, cStart);
        CFakeClock::scriptTickReads(vecReads);
        GetParam().pfnRun(m_story);
    }
    static std::string warning(const char* pszMs)
    {
        return std::string("(Warning) CCDSAPI::") + GetParam().pszName + ": took " + pszMs + " ms";
    }

    static constexpr unsigned long long cStart = 5'000'000'000ULL;
    CStoreStory m_story;
};

TEST_P(StoreSlowWarningTest, ComesFromThreeHundredMillisecondsOn)
{
    runTaking(300);
    EXPECT_THAT(CFakeLog::texts(), Contains(warning("300")));
}

TEST_P(StoreSlowWarningTest, DoesNotComeBefore)
{
    runTaking(299);
    EXPECT_FALSE(CFakeLog::contains(": took "));
}

TEST_P(StoreSlowWarningTest, LooksAtThirtyTwoBitsOfTheDuration)
{
    runTaking((1ULL << 32U) + 299);
    EXPECT_FALSE(CFakeLog::contains(": took "));
}

TEST_P(StoreSlowWarningTest, TellsThirtyTwoBitsOfTheDuration)
{
    runTaking((1ULL << 32U) + 300);
    EXPECT_THAT(CFakeLog::texts(), Contains(warning("300")));
}

TEST_P(StoreSlowWarningTest, IsAnErrorLevelLine)
{
    CFakeLog::setTraceMask("OvnCDS", ~1U);
    runTaking(300);
    EXPECT_FALSE(CFakeLog::contains(": took "));
}

TEST_P(StoreSlowWarningTest, CostsTwoClockReadsPerMeasuredOperation)
{
    const std::size_t uBefore = CFakeClock::tickReads();
    GetParam().pfnRun(m_story);
    EXPECT_EQ(CFakeClock::tickReads() - uBefore, GetParam().uReads);
}

INSTANTIATE_TEST_SUITE_P(Of, StoreSlowWarningTest, testing::ValuesIn(cOperations),
                         [](const auto& named) { return std::string(named.param.pszName); });

TEST(UnmeasuredOperationsTest, NeverWarn)
{
    CStoreStory story;
    CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
    CFakeClock::stepTicksPerRead(1000);
    story.starts();
    story.store().Dump(1);
    story.store().SetNetProxyCallback(nullptr);
    story.store().SetCDRDataCallBack(nullptr);
    story.stops();
    const CCDSAPI another;
    EXPECT_FALSE(CFakeLog::contains(": took "));
}

} // namespace
