// The receive threads: what comes in is checked and queued; nothing ends a thread but the stop.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

using testing::Contains;
using testing::Each;
using testing::Not;

const std::string cStatus("20;NETRSP_CLIENT_STATUS;1;0\0", 28);

class ProxyReceiveTest : public testing::Test
{
protected:
    ProxyReceiveTest() { m_server.starts(); }

    static std::size_t pauses()
    {
        const auto vecSleeps = CFakeClock::sleeps();
        return static_cast<std::size_t>(std::count(vecSleeps.begin(), vecSleeps.end(), 1000UL));
    }
    static void bytes(const std::string& sBytes)
    {
        CFakeChannels::serverReceives(0, "10.0.0.2", &sBytes);
        CProxyWorld::settle();
    }
    /// Sends a request by hand, and waits.
    std::uint32_t asks()
    {
        m_server.registers("ann", "sip:1", "10.0.0.2");
        CProxyWorld::settle();
        return static_cast<std::uint32_t>(CFakeChannels::sent().back().ulRequestID);
    }

    CProxyWorld m_world;
    CServer m_server;
};

TEST_F(ProxyReceiveTest, ThreadsSayThatTheyStart)
{
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpServerRequestThreadFunc - starting"), 1U);
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpClientRequestThreadFunc - starting"), 1U);
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpClientResponseThreadFunc - starting"), 1U);
}

TEST_F(ProxyReceiveTest, ThreadsSayThatTheyStop)
{
    m_server.stops();
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpServerRequestThreadFunc - stopping"), 1U);
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpClientRequestThreadFunc - stopping"), 1U);
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpClientResponseThreadFunc - stopping"), 1U);
}

TEST_F(ProxyReceiveTest, EveryReceiveBeginsWithPresetArguments)
{
    CFakeChannels::serverReceives(CMLIB_SERVER_CONNECTED, "10.0.0.2");
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
    CFakeChannels::confirm(99);
    CProxyWorld::settle();
    const auto vecPresets = CFakeChannels::presets();
    EXPECT_EQ(vecPresets.size(), 6U);
    for (const auto& preset : vecPresets)
    {
        EXPECT_EQ(preset.ulPeer, 0U);
        EXPECT_EQ(preset.ulContext1, preset.bResponse ? 0U : 0xFFFFFFFFU);
        EXPECT_TRUE(preset.bBufferNull);
        EXPECT_EQ(preset.ulSize, 0U);
        EXPECT_EQ(preset.ulContext2, preset.bResponse ? 0U : 0xFFFFFFFFU);
    }
}

TEST_F(ProxyReceiveTest, NothingToReportOnTheServerChannelMeansAPause)
{
    CFakeLog::clear();
    CFakeChannels::serverReceives(CMLIB_NOTHING, "0.0.0.0");
    CFakeChannels::serverReceives(CMLIB_NOTHING_YET, "0.0.0.0");
    CProxyWorld::settle();
    EXPECT_EQ(pauses(), 2U);
    EXPECT_TRUE(CFakeLog::texts().empty());
}

TEST_F(ProxyReceiveTest, NothingToReportOnTheClientChannelMeansAPause)
{
    CFakeLog::clear();
    CFakeChannels::clientReceives(CMLIB_NOTHING, "0.0.0.0");
    CFakeChannels::clientReceives(CMLIB_NOTHING_YET, "0.0.0.0");
    CProxyWorld::settle();
    EXPECT_EQ(pauses(), 2U);
    EXPECT_TRUE(CFakeLog::texts().empty());
}

TEST_F(ProxyReceiveTest, APeerThatConnectsIsQueued)
{
    CFakeChannels::serverReceives(CMLIB_SERVER_CONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpServerRequestThreadFunc, server connected, ipaddr 0x0A000002"),
              1U);
    EXPECT_EQ(CFakeLog::countContaining("WT_OP_SERVER_CLIENTCONNECTED - 0x"), 1U);
    EXPECT_TRUE(CFakeLog::contains(", ipaddr 0x0A000002"));
}

TEST_F(ProxyReceiveTest, APeerThatLeavesIsQueued)
{
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpServerRequestThreadFunc, server disconnected, ipaddr 0x0A000002"),
              1U);
    EXPECT_EQ(CFakeLog::countContaining("WT_OP_SERVER_CLIENTDISCONNECTED - 0x"), 1U);
}

TEST_F(ProxyReceiveTest, ARequestIsQueuedAndAnsweredInItsContext)
{
    CFakeChannels::request("10.0.0.2", "18;NETREQ_CLIENT_PING", 0xABCD, 0x1234);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpServerRequestThreadFunc, receiveRequest, ipaddr 0x0A000002"), 1U);
    const auto vecAnswers = CFakeChannels::answers();
    ASSERT_EQ(vecAnswers.size(), 1U);
    EXPECT_EQ(vecAnswers[0].ulPeer, 0x0A000002U);
    EXPECT_EQ(vecAnswers[0].ulContext1, 0xABCDU);
    EXPECT_EQ(vecAnswers[0].ulContext2, 0x1234U);
}

TEST_F(ProxyReceiveTest, ARequestWithoutBytesIsOnlyNoted)
{
    CFakeLog::clear();
    CFakeChannels::serverReceives(0, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(CFakeLog::texts(),
                testing::ElementsAre("CCDSNetProxy::xpServerRequestThreadFunc, receiveRequest, ipaddr 0x0A000002"));
}

TEST_F(ProxyReceiveTest, AFailureOnTheServerChannelIsToldAndFollowedByAPause)
{
    CFakeChannels::serverReceives(0xC1200D77U, "10.0.0.2");
    CProxyWorld::settle();
    // Two blanks before the address.
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::xpServerRequestThreadFunc, receiveRequest, ipaddr  "
                                     "0x0A000002 failed: 0xC1200D77"),
              1U);
    EXPECT_EQ(pauses(), 1U);
}

TEST_F(ProxyReceiveTest, AFailureOnTheClientChannelIsToldAndFollowedByAPause)
{
    CFakeChannels::clientReceives(0xC1200D78U, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::xpClientRequestThreadFunc, receiveRequest, ipaddr  "
                                     "0x0A000002 failed: 0xC1200D78"),
              1U);
    EXPECT_EQ(pauses(), 1U);
}

TEST_F(ProxyReceiveTest, FailuresEndNoThread)
{
    for (int nRound = 0; nRound < 3; ++nRound)
    {
        CFakeChannels::serverReceives(0xC1200D77U, "10.0.0.2");
        CFakeChannels::clientReceives(0xC1200D77U, "10.0.0.2");
        CFakeChannels::response(99, 0xC1200D77U, nullptr);
    }
    CFakeChannels::request("10.0.0.2", "18;NETREQ_CLIENT_PING");
    CProxyWorld::settle();
    EXPECT_EQ(CFakeChannels::answers().size(), 1U);
    asks();
    EXPECT_EQ(CFakeChannels::sent().size(), 1U);
}

TEST_F(ProxyReceiveTest, BytesThatComeWithAnEventAreFreed) // the leak checker looks
{
    const std::string sBytes(100, 'x');
    CFakeChannels::serverReceives(CMLIB_SERVER_CONNECTED, "10.0.0.2", &sBytes);
    CFakeChannels::serverReceives(0xC1200D77U, "10.0.0.2", &sBytes);
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2", &sBytes);
    CFakeChannels::clientReceives(0, "10.0.0.2", &sBytes);
    CProxyWorld::settle();
    EXPECT_TRUE(CFakeChannels::answers().empty());
}

TEST_F(ProxyReceiveTest, AServerThatCameUpIsQueued)
{
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpClientRequestThreadFunc, client connected, ipaddr 0x0A000002"),
              1U);
    EXPECT_EQ(CFakeLog::countContaining("WT_OP_CLIENT_SERVERCONNECTED - 0x"), 1U);
}

TEST_F(ProxyReceiveTest, AServerThatWentDownIsQueuedAsIfItCameUp)
{
    CFakeChannels::clientReceives(CMLIB_CLIENT_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpClientRequestThreadFunc, client disconnected, ipaddr 0x0A000002"),
              1U);
    EXPECT_EQ(CFakeLog::countContaining("WT_OP_CLIENT_SERVERCONNECTED - 0x"), 1U);
    EXPECT_FALSE(CFakeLog::contains("WT_OP_CLIENT_SERVERDISCONNECTED"));
}

TEST_F(ProxyReceiveTest, ARequestOnTheClientChannelIsDropped)
{
    const std::string sBytes("18;NETREQ_CLIENT_PING\0", 22);
    CFakeLog::clear();
    CFakeChannels::clientReceives(0, "10.0.0.2", &sBytes);
    CProxyWorld::settle();
    EXPECT_TRUE(CFakeLog::texts().empty());
}

TEST_F(ProxyReceiveTest, EveryResponseIsNoted)
{
    CFakeChannels::response(98, 0xC1200DB5U, nullptr);
    CFakeChannels::confirm(99);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::xpClientResponseThreadFunc, receiveResponse, ipaddr 0x0A000002"),
              2U);
}

TEST_F(ProxyReceiveTest, AResponseThatNobodyWaitsForIsDropped)
{
    CFakeChannels::confirm(99);
    CProxyWorld::settle();
    EXPECT_FALSE(CFakeLog::contains("WT_OP_CLIENT_RECEIVERESPONSE"));
    EXPECT_FALSE(CFakeLog::contains("pwork is NULL"));
}

TEST_F(ProxyReceiveTest, AResponseEndsItsWorkItem)
{
    const auto dwID = asks();
    EXPECT_NE(m_server.proxy().getCCDSWork(dwID), nullptr);
    CFakeChannels::confirm(dwID);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("-- response string \"20;NETRSP_CLIENT_STATUS;1;0\""), 1U);
    EXPECT_EQ(m_server.proxy().getCCDSWork(dwID), nullptr);
}

TEST_F(ProxyReceiveTest, AFailedExchangeIsHandledWhateverCameWithIt)
{
    const auto dwID = asks();
    const std::string sBogus("no response at all", 19);
    CFakeChannels::response(dwID, 0xC1200D99U, &sBogus);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countContaining("WT_OP_CLIENT_RECEIVERESPONSE - 0x"), 1U);
    EXPECT_FALSE(CFakeLog::contains("bogus response buffer"));
    EXPECT_FALSE(CFakeLog::contains("-- response string"));
    EXPECT_EQ(m_server.proxy().getCCDSWork(dwID), nullptr);
}

TEST_F(ProxyReceiveTest, ABadResponseEndsItsWorkItemUnhandled)
{
    const auto dwID = asks();
    const std::string sBogus("Xo response at all", 19);
    CFakeChannels::response(dwID, 0, &sBogus);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("(Error) xpClientResponseThreadFunc, bogus response buffer \"5\""), 1U);
    EXPECT_FALSE(CFakeLog::contains("WT_OP_CLIENT_RECEIVERESPONSE"));
    EXPECT_EQ(m_server.proxy().getCCDSWork(dwID), nullptr);
}

TEST_F(ProxyReceiveTest, AResponseWithoutBytesIsBad)
{
    const auto dwID = asks();
    CFakeChannels::response(dwID, 0, nullptr);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("(Error) xpClientResponseThreadFunc, bogus response buffer \"" +
                                     std::string(386, ' ') + "\""),
              1U);
    EXPECT_EQ(m_server.proxy().getCCDSWork(dwID), nullptr);
}

TEST_F(ProxyReceiveTest, AResponseWithoutTerminatorIsReadNoFurtherThanItGoes) // the address checker looks
{
    const auto dwID = asks();
    const std::string sNoEnd("20;NETRSP_CLIENT_STATUS;1;0");
    CFakeChannels::response(dwID, 0, &sNoEnd);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("-- response string \"20;NETRSP_CLIENT_STATUS;1;0\""), 1U);
}

TEST_F(ProxyReceiveTest, ASecondResponseReplacesTheFirst)
{
    // Both arrive while the worker is held up by a request that is being sent.
    const std::string sFirst("20;NETRSP_CLIENT_STATUS;1;1\0", 28);
    const std::string sSecond("20;NETRSP_CLIENT_STATUS;1;2\0", 28);
    CFakeChannels::whileSending([&](const CFakeChannels::CSent& sent) {
        CFakeChannels::response(sent.ulRequestID, 0, &sFirst);
        CFakeChannels::response(sent.ulRequestID, 0, &sSecond);
        EXPECT_TRUE(CFakeChannels::awaitReceivers());
    });
    asks();
    EXPECT_FALSE(CFakeLog::contains("-- response string \"20;NETRSP_CLIENT_STATUS;1;1\""));
    EXPECT_EQ(CFakeLog::countExactly("-- response string \"20;NETRSP_CLIENT_STATUS;1;2\""), 1U);
    EXPECT_EQ(CFakeLog::countContaining("CCDSNetProxy::workerThread - pwork is NULL, id - "), 1U);
}

TEST_F(ProxyReceiveTest, AResponseCannotNameAPeersRequest)
{
    // The worker is held up; the number of the peer's request is the next one.
    std::uint32_t dwNext = 0;
    CFakeChannels::whileSending([&](const CFakeChannels::CSent& sent) {
        dwNext = static_cast<std::uint32_t>(sent.ulRequestID) + 1;
        CFakeChannels::request("10.0.0.2", "18;NETREQ_CLIENT_PING");
        EXPECT_TRUE(CFakeChannels::awaitReceivers());
        CFakeChannels::confirm(dwNext);
        EXPECT_TRUE(CFakeChannels::awaitReceivers());
    });
    asks();
    EXPECT_EQ(CFakeChannels::answers().size(), 1U);
    EXPECT_FALSE(CFakeLog::contains("WT_OP_CLIENT_RECEIVERESPONSE"));
}

// Buffers that are no requests.

TEST_F(ProxyReceiveTest, ABufferThatIsNoListIsToldAndDropped)
{
    bytes(std::string("no list\0", 8));
    EXPECT_TRUE(CFakeLog::contains(
        "(Error) CCDSNetProxy::xpServerRequestThreadFunc, bogus receive buffer at 0, ipaddr 0x0A000002, buf 0x"));
    EXPECT_TRUE(CFakeLog::contains(", size 8"));
    EXPECT_TRUE(CFakeChannels::answers().empty());
}

TEST_F(ProxyReceiveTest, ABadBufferIsShownFromItsErrorOn)
{
    bytes(std::string("3;abc;") + std::string(200, 'x') + '\0'); // 207 bytes, wrong from position 6 on
    EXPECT_TRUE(CFakeLog::contains("bogus receive buffer at 6, "));
    EXPECT_EQ(CFakeLog::countContaining("(Error) buf 0x"), 2U);
}

TEST_F(ProxyReceiveTest, ABadBufferIsShownInSlicesOf128Bytes)
{
    bytes(std::string(299, 'x') + '\0');
    std::vector<unsigned long> vecPlaces;
    for (const std::string& sText : CFakeLog::texts())
        if (sText.rfind("(Error) buf 0x", 0) == 0)
        {
            vecPlaces.push_back(std::stoul(sText.substr(14, 8), nullptr, 16));
            EXPECT_EQ(sText.substr(22), " \"7\"");
        }
    ASSERT_EQ(vecPlaces.size(), 3U);
    EXPECT_EQ((vecPlaces[1] - vecPlaces[0]) & 0xFFFFFFFFU, 128U);
    EXPECT_EQ((vecPlaces[2] - vecPlaces[1]) & 0xFFFFFFFFU, 128U);
}

TEST_F(ProxyReceiveTest, AListUnderAnotherNameIsToldAndDropped)
{
    bytes(std::string("3;abc;200;") + std::string(200, 'x') + '\0');
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::xpServerRequestThreadFunc, bogus receive buffer \"3\""),
              1U);
    EXPECT_TRUE(CFakeChannels::answers().empty());
    EXPECT_FALSE(CFakeLog::contains("WT_OP_SERVER_RECEIVEREQUEST"));
}

TEST_F(ProxyReceiveTest, ABufferWithoutTerminatorIsRefused) // and read no further: the address checker looks
{
    bytes("18;NETREQ_CLIENT_PING");
    EXPECT_TRUE(CFakeLog::contains("bogus receive buffer at 0, "));
    EXPECT_TRUE(CFakeChannels::answers().empty());
}

TEST_F(ProxyReceiveTest, ABufferWithBytesBehindItsTerminatorIsRefused)
{
    bytes(std::string("18;NETREQ_CLIENT_PING\0more\0", 27));
    EXPECT_TRUE(CFakeLog::contains("bogus receive buffer at 0, "));
    EXPECT_TRUE(CFakeChannels::answers().empty());
}

TEST_F(ProxyReceiveTest, AnEmptyBufferIsRefused)
{
    bytes("");
    bytes(std::string(1, '\0'));
    EXPECT_TRUE(CFakeChannels::answers().empty());
    EXPECT_FALSE(CFakeLog::contains("WT_OP_SERVER_RECEIVEREQUEST"));
}

TEST_F(ProxyReceiveTest, ReceivingWaitsWhileTooMuchWaitsForTheWorker)
{
    CReceiveBudget budget;
    budget.take(CReceiveBudget::cMost + 1);
    bool bPassed = false;
    std::thread receiver([&] {
        budget.awaitRoom();
        bPassed = true;
    });
    budget.give(CReceiveBudget::cMost + 1 - CReceiveBudget::cEnough);
    receiver.join();
    EXPECT_TRUE(bPassed);
}

TEST_F(ProxyReceiveTest, AClosedBudgetLetsEverybodyPass)
{
    CReceiveBudget budget;
    budget.take(CReceiveBudget::cMost + 1);
    budget.open(false);
    budget.awaitRoom();
}

TEST_F(ProxyReceiveTest, WhatWasHandledNoLongerCounts)
{
    const std::string sBig =
        "18;NETREQ_CLIENT_PING;" + std::to_string(1024 * 1024) + ";" + std::string(1024 * 1024, 'x');
    for (int nRound = 0; nRound < 70; ++nRound) // more than may wait at once
        CFakeChannels::request("10.0.0.2", sBig);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeChannels::answers().size(), 70U);
}

} // namespace
