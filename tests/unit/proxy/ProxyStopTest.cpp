// How the proxy stops, from every state, and what it shows of itself.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class ProxyStopTest : public testing::Test
{
protected:
    long stopsProxy() { return m_server.proxy().Finalize(); }

    CProxyWorld m_world;
    CServer m_server;
};

TEST_F(ProxyStopTest, SucceedsWithoutAStart)
{
    EXPECT_THAT(stopsProxy(), IsOk());
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("CCDSNetProxy::Finalize", "<<<CCDSNetProxy::Finalize"));
    EXPECT_FALSE(CFakeLog::contains("CCDSAPI::Unregister"));
}

TEST_F(ProxyStopTest, SucceedsTwice)
{
    m_server.starts();
    m_server.stops();
    CFakeLog::clear();
    EXPECT_THAT(stopsProxy(), IsOk());
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("CCDSNetProxy::Finalize", "<<<CCDSNetProxy::Finalize"));
}

TEST_F(ProxyStopTest, StopsWorkerThenServerThenClient)
{
    CFakeGuid::script({"the proxy"});
    m_server.starts();
    m_server.stops();
    EXPECT_LT(placeInLog("CCDSNetProxy::Finalize"), placeInLog("CCDSNetProxy::workerThread - stopping"));
    EXPECT_LT(placeInLog("CCDSNetProxy::workerThread - stopping"), placeInLog("CCDSAPI::Unregister: RegID=the proxy"));
    EXPECT_LT(placeInLog("CCDSAPI::Unregister: RegID=the proxy"), placeInLog("xpServerRequestThreadFunc - stopping"));
    EXPECT_LT(placeInLog("xpServerRequestThreadFunc - stopping"), placeInLog("xpClientRequestThreadFunc - stopping"));
    EXPECT_LT(placeInLog("xpClientResponseThreadFunc - stopping"), placeInLog("<<<CCDSNetProxy::Finalize"));
    EXPECT_THAT(CFakeChannels::lifeCycle(),
                ElementsAre("server new", "server initialize", "client new", "client initialize", "server uninitialize",
                            "server delete", "client uninitialize", "client delete"));
}

TEST_F(ProxyStopTest, PollsEvery200Milliseconds)
{
    m_server.starts();
    m_server.stops();
    EXPECT_THAT(CFakeClock::sleeps(), Each(200UL));
}

TEST_F(ProxyStopTest, LeavesNoThreadAndNoChannel)
{
    m_server.starts();
    m_server.stops();
    EXPECT_EQ(CFakeThreads::alive(), 0U);
    EXPECT_EQ(CFakeChannels::alive(), 0U);
}

TEST_F(ProxyStopTest, SucceedsRightAfterTheStart)
{
    for (int nRound = 0; nRound < 1000; ++nRound)
    {
        CFakeLog::clear();
        ASSERT_THAT(m_server.proxy().Initialize("10.0.0.1", &m_server.store()), IsOk());
        ASSERT_THAT(stopsProxy(), IsOk());
    }
    EXPECT_EQ(CFakeThreads::alive(), 0U);
}

TEST_F(ProxyStopTest, AStoreThatIsDestroyedRunningStopsItsProxy)
{
    auto pServer = std::make_unique<CServer>("10.0.0.2");
    pServer->starts();
    pServer.reset();
    EXPECT_EQ(CFakeThreads::alive(), 0U);
    EXPECT_EQ(CFakeChannels::alive(), 0U);
}

TEST_F(ProxyStopTest, AStartAfterAStopHandlesNewWork)
{
    m_server.starts();
    m_server.stops();
    m_server.starts();
    CFakeChannels::request("10.0.0.2", "18;NETREQ_CLIENT_PING");
    CProxyWorld::settle();
    EXPECT_EQ(CFakeChannels::answers().size(), 1U);
}

TEST_F(ProxyStopTest, ClientCallsAndEntriesOutliveAStop)
{
    m_server.starts();
    m_server.registers("ann", "sip:1", "10.0.0.2");
    CProxyWorld::settle();
    m_server.stops();
    m_server.starts();
    CFakeLog::clear();
    m_server.store().Dump(0);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countContaining("   callid sip:1, regid "), 2U);
}

TEST_F(ProxyStopTest, TheEndFreesWhatIsLeftWithoutATraceOfWorkItems)
{
    m_server.starts();
    m_server.registers("ann", "sip:1", "10.0.0.2");
    CProxyWorld::settle(); // the request waits for its response
    CFakeLog::clear();
    m_server.beginsAgain();
    EXPECT_FALSE(CFakeLog::contains("CCDSWork::~CCDSWork()"));
    EXPECT_EQ(CFakeLog::countContaining("CClientCall::~CClientCall - 0x"), 1U);
}

TEST_F(ProxyStopTest, TimeQueriesUnderWayOutliveTheStop)
{
    m_server.starts();
    m_server.stops();
    CFakeChannels::setPeerTime("10.0.0.2", 4711);
    EXPECT_EQ(m_server.store().GetServerTimestamp(0x0A000002UL), CFakeClock::fileTime());
}

// The dump.

TEST_F(ProxyStopTest, ADumpIsTheWorkers)
{
    m_server.starts();
    m_server.stops();
    CFakeLog::clear();
    m_server.store().Dump(1); // nobody works any more
    EXPECT_FALSE(CFakeLog::contains("-- call on server."));
}

TEST_F(ProxyStopTest, ADumpShowsPeersCallsAndEntriesInOrder)
{
    CFakeGuid::script({"the proxy", "call 1", "call 2"});
    m_server.starts();
    CFakeChannels::scriptSends({0, CFakeChannels::cPeerDown});
    m_server.registers("ann", "sip:1", "10.0.0.9");
    CProxyWorld::settle();
    m_server.registers("bob", "sip:2", "10.0.0.2");
    m_server.registers("eve", "sip:2", "10.0.0.2");
    CProxyWorld::settle();
    CFakeLog::clear();
    m_server.store().Dump(1);
    CProxyWorld::settle();
    auto vecTexts = CFakeLog::texts();
    std::erase_if(vecTexts, [](const std::string& sText) { return sText.find("CCDSWork") != std::string::npos; });
    EXPECT_THAT(vecTexts,
                ElementsAre("-- connected state.", "   10.0.0.2 - Disconnected", "   10.0.0.9 - Connected",
                            "-- call on server.", "   callid sip:1, regid call 1, regcount 1, server 10.0.0.9",
                            "   callid sip:2, regid call 2, regcount 2, server 10.0.0.2", "-- destination of calldata.",
                            "   callid sip:1, regid call 1, client 1, server 10.0.0.9",
                            "   callid sip:2, regid call 2, client 1, server 10.0.0.2", "-- CDR."));
    EXPECT_EQ(CFakeChannels::dumps(), 1U);
}

TEST_F(ProxyStopTest, ADumpCountsAsTheKindItIs)
{
    m_server.starts();
    m_server.store().Dump(0);
    m_server.store().Dump(-1);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("-- call on server."), 2U);
}

TEST_F(ProxyStopTest, ADebugHookIsAcceptedAndNeverCalled)
{
    static bool s_bCalled = false;
    CCDSNetProxy::SetDbgOutHook([](unsigned long, const char*, va_list) { s_bCalled = true; });
    CCDSNetProxy::SetDbgOutHook(nullptr);
    m_server.starts();
    EXPECT_FALSE(s_bCalled);
}

TEST_F(ProxyStopTest, TheLockOfTheCdrCacheIsNeverEntered)
{
    CFakeLocks::record(true);
    m_server.beginsAgain();
    const auto vecCreations = CFakeLocks::creations();
    ASSERT_GE(vecCreations.size(), 3U);
    m_server.starts();
    m_server.registers("ann", "sip:1", "10.0.0.2");
    m_server.store().Dump(0);
    CProxyWorld::settle();
    m_server.stops();
    std::size_t uEntered = 0;
    for (const auto& entry : CFakeLocks::entries(""))
    {
        EXPECT_NE(entry.pLock, vecCreations[1].pLock);
        ++uEntered;
    }
    EXPECT_GT(uEntered, 0U);
    EXPECT_TRUE(CFakeLocks::balanced());
    CFakeLocks::record(false);
}

} // namespace
