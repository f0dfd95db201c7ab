#include "replay/StoreSink.h"
#include "CDSNames.h"
#include "Fakes.h"
#include "replay/Watcher.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

constexpr const char* cServerIP = "127.0.0.1";
constexpr const char* cRecord = "sip:c1";

CCallChange property(const std::string& sName, const std::string& sText, unsigned long long ullStamp)
{
    return {false, sName, sText + '\0', CCDSTimestamp(ullStamp, 0)};
}

CCallChange entry(const std::string& sName, const std::string& sText, unsigned long long ullStamp)
{
    return {true, sName, sText + '\0', CCDSTimestamp(ullStamp, 0)};
}

/// A store on a clock that stands still, and a registrant of all calls and one of ends.
class StoreSinkTest : public testing::Test
{
protected:
    void SetUp() override
    {
        CFakeThreads::setCreateThreadRefused(true); // nothing is exchanged with peers
        CCDSAPI::initLogger();
        m_pStore = std::make_unique<CCDSAPI>();
        ASSERT_EQ(m_pStore->Initialize(cServerIP, 0), 0);
        m_pAll = std::make_unique<CWatcher>(*m_pStore, "all");
        m_pEnds = std::make_unique<CWatcher>(*m_pStore, "ends");
        ASSERT_EQ(m_pAll->start(cServerIP, "*", "*"), 0);
        ASSERT_EQ(m_pEnds->start(cServerIP, "*", "EOC"), 0);
        m_pSink = std::make_unique<CStoreSink>(*m_pStore, cServerIP);
    }

    void TearDown() override
    {
        m_pSink.reset();
        m_pEnds.reset();
        m_pAll.reset();
        (void)m_pStore->Finalize(); // always 0
        m_pStore.reset();
    }

    /// Lets the store's timing thread make one round after another until uSeconds have passed.
    void pass(unsigned uSeconds)
    {
        for (unsigned u = 0; u < uSeconds; u += 10)
        {
            ASSERT_TRUE(CFakeClock::awaitWaiters(1, 10'000));
            CFakeClock::advance(10'000);
        }
        ASSERT_TRUE(CFakeClock::awaitWaiters(1, 10'000));
    }

    CFakeWorld m_world;
    std::unique_ptr<CCDSAPI> m_pStore;
    std::unique_ptr<CWatcher> m_pAll;
    std::unique_ptr<CWatcher> m_pEnds;
    std::unique_ptr<CStoreSink> m_pSink;
};

TEST_F(StoreSinkTest, DeliversEachMessagesChanges)
{
    ASSERT_TRUE(m_pSink->onCallBegin(cRecord));
    m_pSink->onCallUpdate(cRecord, {property(CDSPROP_CALLERID, "alice", 10), entry(CDSLOG_CONNECT_ENTRY, "x", 10)});
    m_pSink->onCallUpdate(cRecord, {entry(CDSLOG_CONNECT_ENTRY, "y", 20)});
    EXPECT_EQ(m_pAll->deliveries(), 2U);
    EXPECT_EQ(m_pAll->changes(), 3U);
    const CCallRecord record = m_pAll->records().at(cRecord);
    EXPECT_EQ(record.property(CDSPROP_CALLERID), "alice");
    EXPECT_THAT(record.entries(CDSLOG_CONNECT_ENTRY), ElementsAre("x", "y"));
    EXPECT_EQ(m_pSink->updates(), 2U);
    EXPECT_EQ(m_pSink->failures(), 0U);
}

TEST_F(StoreSinkTest, DeliversAnEndedCallALastTime)
{
    ASSERT_TRUE(m_pSink->onCallBegin(cRecord));
    m_pSink->onCallUpdate(cRecord, {property(CDSPROP_CALLERID, "alice", 10)});
    m_pSink->onCallUpdate(cRecord, {entry(CDSLOG_DISCONNECT_ENTRY, "caller;-;BYE", 20)});
    m_pSink->onCallEnd(cRecord);
    pass(30);
    EXPECT_EQ(m_pEnds->deliveries(), 0U);
    pass(10);
    ASSERT_EQ(m_pEnds->deliveries(), 1U);
    const CCallRecord record = m_pEnds->records().at(cRecord);
    EXPECT_EQ(record.property(CDSPROP_CALLERID), "alice");
    EXPECT_THAT(record.entries(CDSLOG_DISCONNECT_ENTRY), ElementsAre("caller;-;BYE"));
}

TEST_F(StoreSinkTest, DoesNotBeginACallAgainThatHasEnded)
{
    EXPECT_TRUE(m_pSink->onCallBegin(cRecord));
    m_pSink->onCallUpdate(cRecord, {property(CDSPROP_CALLERID, "alice", 10)});
    m_pSink->onCallEnd(cRecord);
    EXPECT_FALSE(m_pSink->onCallBegin(cRecord));
    EXPECT_EQ(m_pSink->ended(), 1U);
    pass(40);
    EXPECT_EQ(m_pEnds->deliveries(), 1U) << "as many as calls have ended";
}

TEST_F(StoreSinkTest, KeepsACallThatHasNotEnded)
{
    ASSERT_TRUE(m_pSink->onCallBegin(cRecord));
    m_pSink->onCallUpdate(cRecord, {property(CDSPROP_CALLERID, "alice", 10)});
    pass(60);
    EXPECT_EQ(m_pEnds->deliveries(), 0U);
}

TEST_F(StoreSinkTest, LetsOpenCallsGoWhenItIsDestroyed)
{
    ASSERT_TRUE(m_pSink->onCallBegin(cRecord));
    m_pSink->onCallUpdate(cRecord, {property(CDSPROP_CALLERID, "alice", 10)});
    m_pSink.reset();
    pass(40);
    EXPECT_EQ(m_pEnds->deliveries(), 1U);
}

TEST_F(StoreSinkTest, CountsWhatTheStoreRefuses)
{
    m_pSink->onCallUpdate(cRecord, {property(CDSPROP_CALLERID, "alice", 10)});
    EXPECT_EQ(m_pSink->failures(), 1U);
    EXPECT_EQ(m_pSink->firstFailure(), E_CDS_NOTFOUND);
}

TEST_F(StoreSinkTest, WatchesOneCallOnly)
{
    CWatcher one(*m_pStore, "one");
    ASSERT_EQ(one.start(cServerIP, cRecord, "*"), 0);
    for (const std::string sRecord : {cRecord, "sip:c2"})
    {
        ASSERT_TRUE(m_pSink->onCallBegin(sRecord));
        m_pSink->onCallUpdate(sRecord, {property(CDSPROP_CALLERID, "alice", 10)});
    }
    EXPECT_EQ(one.deliveries(), 1U);
    EXPECT_EQ(m_pAll->deliveries(), 2U);
}

TEST_F(StoreSinkTest, StopsDeliveringToAWatcherThatStopped)
{
    m_pAll->stop();
    ASSERT_TRUE(m_pSink->onCallBegin(cRecord));
    m_pSink->onCallUpdate(cRecord, {property(CDSPROP_CALLERID, "alice", 10)});
    EXPECT_EQ(m_pAll->deliveries(), 0U);
}

} // namespace
