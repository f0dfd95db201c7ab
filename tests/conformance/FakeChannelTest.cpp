// What the fake network does beyond the channels' contract: links that fall silent, deliveries that are held up.
#include "ChannelServer.h"
#include "Fakes.h"

#include <gmock/gmock.h>

namespace {
constexpr const char* cOne = "10.0.0.1";
constexpr const char* cTwo = "10.0.0.2";
constexpr unsigned long cLongestExchangeMs = 30'000;

std::uint32_t codeOf(const std::optional<CReceived>& optReceived)
{
    return optReceived ? optReceived->code() : 1U;
}

class FakeChannelTest : public testing::Test
{
protected:
    /// Connects the two, and takes what the first hears of it.
    void connect(CChannelServer& one, CChannelServer& two)
    {
        ASSERT_GE(one.send(100, two, "hello"), 0);
        ASSERT_EQ(one.changes.nextCode(), CMLIB_CLIENT_CONNECTED);
        ASSERT_EQ(one.requests.nextCode(), CMLIB_SERVER_CONNECTED);
        ASSERT_EQ(two.requests.nextCode(), CMLIB_SERVER_CONNECTED);
        const auto optRequest = two.requests.next();
        ASSERT_TRUE(optRequest && optRequest->isRequest());
        ASSERT_GE(two.answer(*optRequest, "welcome"), 0);
        ASSERT_TRUE(one.responses.next());
    }

    CChannelWorld m_world;
};

TEST_F(FakeChannelTest, ASilenceIsNoticedWhenAnAnswerIsOverdue)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    CFakeChannels::silenceLink(cOne, cTwo);
    ASSERT_GE(one.send(1, two, "swallowed", 60), 0); // longer than an exchange may take
    m_world.passTime(cLongestExchangeMs - 1);
    ASSERT_TRUE(CFakeChannels::awaitReceivers());
    EXPECT_TRUE(one.responses.empty());
    EXPECT_TRUE(one.changes.empty());
    m_world.passTime(1);
    EXPECT_EQ(codeOf(one.responses.next()), CFakeChannels::cTimedOut);
    EXPECT_EQ(one.changes.nextCode(), CMLIB_CLIENT_DISCONNECTED);
    EXPECT_EQ(one.requests.nextCode(), CMLIB_SERVER_DISCONNECTED);
    EXPECT_EQ(two.requests.nextCode(), CMLIB_SERVER_DISCONNECTED) << "and no request before";
    EXPECT_EQ(static_cast<std::uint32_t>(one.send(2, two, "refused")), CFakeChannels::cPeerDown);

    CFakeChannels::restoreLink(cOne, cTwo);
    EXPECT_EQ(one.changes.nextCode(), CMLIB_CLIENT_CONNECTED);
    EXPECT_EQ(two.requests.nextCode(), CMLIB_SERVER_CONNECTED);
}

TEST_F(FakeChannelTest, ARequestIntoASilenceWithoutAConnectionWaitsAndConnectsNobody)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    CFakeChannels::silenceLink(cOne, cTwo);
    ASSERT_GE(one.send(1, two, "swallowed"), 0);
    CFakeChannels::cutLink(cOne, cTwo);
    EXPECT_EQ(codeOf(one.responses.next()), CFakeChannels::cConnectionLost);
    ASSERT_TRUE(CFakeChannels::awaitReceivers());
    EXPECT_TRUE(one.changes.empty()) << "what never was up does not go down";
    EXPECT_TRUE(two.requests.empty());
}

TEST_F(FakeChannelTest, AnOverdueAnswerOnASoundLinkIsFollowedByANewConnection)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    ASSERT_GE(one.send(1, two, "no time given", 0), 0);
    const auto optRequest = two.requests.next();
    ASSERT_TRUE(optRequest && optRequest->isRequest());
    m_world.passTime(cLongestExchangeMs - 1);
    ASSERT_TRUE(CFakeChannels::awaitReceivers());
    EXPECT_TRUE(one.responses.empty());
    m_world.passTime(1);
    EXPECT_EQ(codeOf(one.responses.next()), CFakeChannels::cTimedOut);
    EXPECT_EQ(two.requests.nextCode(), CMLIB_SERVER_DISCONNECTED);
    EXPECT_EQ(two.requests.nextCode(), CMLIB_SERVER_CONNECTED);
    EXPECT_LT(two.answer(*optRequest, "late"), 0);
    EXPECT_GE(one.send(2, two, "next"), 0);
    EXPECT_EQ(two.requests.nextCode(), 0U);
}

TEST_F(FakeChannelTest, AChannelThatStartsLaterHearsOfTheConnectionThatStands)
{
    CChannelServer one(&m_world, 1);
    const auto pServer = m_world.make(cmlib_mode_server);
    ASSERT_EQ(m_world.initialize(pServer.get(), 2), 0);
    ASSERT_GE(one.send(1, m_world.address(2), "early"), 0);
    const auto pClient = m_world.make(cmlib_mode_client);
    ASSERT_EQ(m_world.initialize(pClient.get(), 2), 0);
    unsigned long ulPeer = 0;
    unsigned long ulOne = 0;
    unsigned long ulTwo = 0;
    char* pBuffer = nullptr;
    unsigned long ulSize = 0;
    EXPECT_EQ(static_cast<std::uint32_t>(pClient->receiveRequest(&ulPeer, &ulOne, &ulTwo, &pBuffer, &ulSize)),
              CMLIB_CLIENT_CONNECTED);
    EXPECT_EQ(ulPeer, one.address());
    EXPECT_EQ(one.changes.nextCode(), CMLIB_CLIENT_CONNECTED);
}

TEST_F(FakeChannelTest, WhatIsHeldUpForAServerThatStopsIsDropped)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    CFakeChannels::holdRequests(cTwo, true);
    ASSERT_GE(one.send(1, two, "held up"), 0);
    two.stop();
    EXPECT_EQ(codeOf(one.responses.next()), CFakeChannels::cConnectionLost);
    two.start();
    CFakeChannels::holdRequests(cTwo, false);
    EXPECT_EQ(two.requests.nextCode(), CMLIB_SERVER_CONNECTED) << "nothing of the life before";
}

TEST_F(FakeChannelTest, AStoppedChannelRefusesAlsoWithoutTheNetworkAndForgetsWhatWasNotTaken)
{
    CFakeChannels::setNetwork(false);
    const auto pServer = m_world.make(cmlib_mode_server);
    ASSERT_EQ(m_world.initialize(pServer.get(), 1), 0);
    const auto send = [&] { return pServer->sendRequest(1, m_world.address(2), 0, "x", 1, 0, 30); };
    const auto answer = [&] { return pServer->sendResponse(m_world.address(2), 1, 2, "x", 1, 0); };
    EXPECT_GE(send(), 0);
    EXPECT_GE(answer(), 0);
    CFakeChannels::request(cTwo, "before");
    EXPECT_EQ(pServer->uninitialize(), 0);
    EXPECT_EQ(static_cast<std::uint32_t>(send()), CFakeChannels::cStopped);
    EXPECT_EQ(static_cast<std::uint32_t>(answer()), CFakeChannels::cStopped);

    ASSERT_EQ(pServer->initialize(), 0);
    CFakeChannels::request(cTwo, "after");
    unsigned long ulPeer = 0;
    unsigned long ulOne = 0;
    unsigned long ulTwo = 0;
    char* pBuffer = nullptr;
    unsigned long ulSize = 0;
    ASSERT_EQ(pServer->receiveRequest(&ulPeer, &ulOne, &ulTwo, &pBuffer, &ulSize), 0);
    const std::unique_ptr<char[]> pOwned(pBuffer);
    EXPECT_STREQ(pBuffer, "after");
}

} // namespace
