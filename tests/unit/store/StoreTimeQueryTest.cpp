// Time queries: of this machine's clocks, or of whoever was set to be asked.

#include "CDSNetProxyCallback.h"
#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace {

/// Answers time queries, or fails them, and keeps what it was asked.
class CTimeTeller final : public CDSNetProxyCallback
{
public:
    long getCallIDTimestamp(const std::string& sCallID, int nReserved, unsigned long long* pullTimestamp) override
    {
        noteCall(sCallID, nReserved);
        return answer(pullTimestamp, 11ULL);
    }
    long getCallIDCDSTimestamp(const std::string& sCallID, CCDSTimestamp* ptsStamp) override
    {
        noteCall(sCallID, 0);
        return answer(ptsStamp, CCDSTimestamp(22, 2));
    }
    long getServerTickCount(unsigned long ulServer, int nReserved, unsigned long* pulTickCount) override
    {
        noteServer(ulServer, nReserved);
        return answer(pulTickCount, m_ulTickCount);
    }
    long getServerTimestamp(unsigned long ulServer, int nReserved, unsigned long long* pullTimestamp) override
    {
        noteServer(ulServer, nReserved);
        return answer(pullTimestamp, 44ULL);
    }

    bool m_bFails = false;        // writes nothing then
    bool m_bFailsTalking = false; // writes its answer all the same
    unsigned long m_ulTickCount = 33;
    std::string m_sCallID{};
    unsigned long m_ulServer = 0;
    int m_nReserved = 0;

private:
    void noteCall(const std::string& sCallID, int nReserved)
    {
        m_sCallID = sCallID;
        m_nReserved = nReserved;
    }
    void noteServer(unsigned long ulServer, int nReserved)
    {
        m_ulServer = ulServer;
        m_nReserved = nReserved;
    }
    template <class TValue> long answer(TValue* pOut, const TValue& value) const
    {
        if (m_bFails)
            return E_FAIL;
        *pOut = value;
        return m_bFailsTalking ? E_FAIL : 0;
    }
};

class StoreTimeQueryTest : public testing::Test
{
protected:
    CCDSAPI& store() { return m_story.store(); }

    CStoreStory m_story;
    CTimeTeller m_teller;
};

// With nobody to ask.

TEST_F(StoreTimeQueryTest, ServerTimestampIsTheLocalFileTime)
{
    EXPECT_EQ(store().GetServerTimestamp(0x0A000002), CFakeClock::cInitialFileTime);
}

TEST_F(StoreTimeQueryTest, ServerTickCountIsTheLocalShortOne)
{
    CFakeClock::setTicks((1ULL << 32U) + 17);
    EXPECT_EQ(store().GetServerTickCount(0x0A000002), 17U);
}

TEST_F(StoreTimeQueryTest, CallTimestampIsTheLocalFileTime)
{
    EXPECT_EQ(store().GetCallIDTimestamp("sip:1"), CFakeClock::cInitialFileTime);
}

TEST_F(StoreTimeQueryTest, CallStampsAreTakenFromTheLocalSeries)
{
    CCDSTimestamp tsFirst(0, 0);
    CCDSTimestamp tsSecond(0, 0);
    EXPECT_THAT(store().GetCallIDCDSTimestamp("sip:1", &tsFirst), IsOk());
    EXPECT_THAT(store().GetCallIDCDSTimestamp("sip:1", &tsSecond), IsOk());
    EXPECT_EQ(tsFirst.value(), CFakeClock::cInitialFileTime);
    EXPECT_TRUE(tsSecond > tsFirst);
}

TEST_F(StoreTimeQueryTest, ANewStoreAsksNobody)
{
    store().SetNetProxyCallback(&m_teller);
    store().SetNetProxyCallback(nullptr);
    EXPECT_EQ(store().GetServerTimestamp(1), CFakeClock::cInitialFileTime);
}

// With somebody to ask.

class StoreAskedTimeQueryTest : public StoreTimeQueryTest
{
protected:
    StoreAskedTimeQueryTest() { store().SetNetProxyCallback(&m_teller); }
};

TEST_F(StoreAskedTimeQueryTest, ServerTimestampIsWhatWasAnswered)
{
    EXPECT_EQ(store().GetServerTimestamp(0x0A000002), 44U);
}

TEST_F(StoreAskedTimeQueryTest, ServerTimestampPassesServerAndOne)
{
    store().GetServerTimestamp(0x0A000002);
    EXPECT_EQ(m_teller.m_ulServer, 0x0A000002U);
    EXPECT_EQ(m_teller.m_nReserved, 1);
}

TEST_F(StoreAskedTimeQueryTest, ServerTimestampIsZeroWithoutAnAnswer)
{
    m_teller.m_bFails = true;
    EXPECT_EQ(store().GetServerTimestamp(1), 0U);
}

TEST_F(StoreAskedTimeQueryTest, ServerTimestampTakesTheAnswerOfAFailure)
{
    m_teller.m_bFailsTalking = true;
    EXPECT_EQ(store().GetServerTimestamp(1), 44U);
}

TEST_F(StoreAskedTimeQueryTest, ServerTickCountIsWhatWasAnswered)
{
    EXPECT_EQ(store().GetServerTickCount(0x0A000002), 33U);
}

TEST_F(StoreAskedTimeQueryTest, ServerTickCountPassesServerAndOne)
{
    store().GetServerTickCount(0x0A000003);
    EXPECT_EQ(m_teller.m_ulServer, 0x0A000003U);
    EXPECT_EQ(m_teller.m_nReserved, 1);
}

TEST_F(StoreAskedTimeQueryTest, ServerTickCountHasThirtyTwoBits)
{
    m_teller.m_ulTickCount = static_cast<unsigned long>(-1L);
    EXPECT_EQ(store().GetServerTickCount(1), 0xFFFFFFFFUL);
}

TEST_F(StoreAskedTimeQueryTest, ServerTickCountIsZeroWithoutAnAnswer)
{
    m_teller.m_bFails = true;
    EXPECT_EQ(store().GetServerTickCount(1), 0U);
}

TEST_F(StoreAskedTimeQueryTest, CallTimestampIsWhatWasAnswered)
{
    EXPECT_EQ(store().GetCallIDTimestamp("sip:1"), 11U);
}

TEST_F(StoreAskedTimeQueryTest, CallTimestampPassesCallAndOne)
{
    store().GetCallIDTimestamp("sip:7");
    EXPECT_EQ(m_teller.m_sCallID, "sip:7");
    EXPECT_EQ(m_teller.m_nReserved, 1);
}

TEST_F(StoreAskedTimeQueryTest, CallTimestampIsZeroWithoutAnAnswer)
{
    m_teller.m_bFails = true;
    EXPECT_EQ(store().GetCallIDTimestamp("sip:1"), 0U);
}

TEST_F(StoreAskedTimeQueryTest, CallStampIsWhatWasAnswered)
{
    CCDSTimestamp tsStamp(0, 0);
    store().GetCallIDCDSTimestamp("sip:8", &tsStamp);
    EXPECT_TRUE(tsStamp == CCDSTimestamp(22, 2));
    EXPECT_EQ(m_teller.m_sCallID, "sip:8");
}

TEST_F(StoreAskedTimeQueryTest, CallStampQuerySucceedsEvenWhenItFails)
{
    m_teller.m_bFails = true;
    CCDSTimestamp tsStamp(5, 6);
    EXPECT_THAT(store().GetCallIDCDSTimestamp("sip:1", &tsStamp), IsOk());
    EXPECT_TRUE(tsStamp == CCDSTimestamp(5, 6));
}

TEST_F(StoreAskedTimeQueryTest, RecordsOfTheStoreAreStampedByWhoWasAsked)
{
    CCallData data(&store(), "sip:9");
    std::string sValue = "alice";
    EXPECT_THAT(data.setProperty("CALLERID", reinterpret_cast<unsigned char*>(sValue.data()), 5), IsOk());
    CCDSTimestamp tsStamp(0, 0);
    EXPECT_THAT(data.getPropertyUpdateTimestamp("CALLERID", &tsStamp), IsOk());
    EXPECT_TRUE(tsStamp == CCDSTimestamp(22, 2));
    EXPECT_EQ(m_teller.m_sCallID, "sip:9");
}

// The store's lock is no part of it.

TEST_F(StoreTimeQueryTest, NoQueryTakesTheStoresLock)
{
    CFakeLocks::record(true);
    CCDSTimestamp tsStamp(0, 0);
    store().GetServerTimestamp(1);
    store().GetServerTickCount(1);
    store().GetCallIDTimestamp("sip:1");
    store().GetCallIDCDSTimestamp("sip:1", &tsStamp);
    EXPECT_THAT(CFakeLocks::entries(), testing::IsEmpty());
}

TEST_F(StoreTimeQueryTest, QueriesAreAnsweredWhileAnotherThreadHoldsTheStore)
{
    unsigned long long ullTimestamp = 0;
    m_story.registers("ann", "sip:1");
    m_story.reactsWith("ann", [&](CCallbackMsg*) {
        std::thread([&] { ullTimestamp = store().GetServerTimestamp(1); }).join();
        return 0L;
    });
    m_story.updates("ann", CNews("sip:1"));
    EXPECT_EQ(ullTimestamp, CFakeClock::cInitialFileTime);
}

} // namespace
