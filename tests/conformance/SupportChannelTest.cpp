// The support library's channels on real sockets, against peers that do what they should not.
#include "SupportChannel.h"
#include "CDSSupport.h"
#include "CPortable.h"
#include "ChannelServer.h"
#include "RawPeer.h"
#include "SystemLogSpy.h"
#include "TemporaryDirectory.h"

#include <algorithm>
#include <atomic>
#include <sstream>

#include <gmock/gmock.h>

namespace {
using CClock = std::chrono::steady_clock;

/// A server whose channels nobody reads from.
struct CBareServer
{
    CBareServer(CSupportChannels* pChannels, int nServer, const std::string& sSettings = "")
        : pServer(CSupportChannels::make(cmlib_mode_server)), pClient(CSupportChannels::make(cmlib_mode_client))
    {
        pChannels->configure(nServer, sSettings);
        lStarted = pServer->initialize();
        if (lStarted >= 0)
            lStarted = pClient->initialize();
    }

    long send(unsigned long ulRequestID, int nTo, const std::string& sBody)
    {
        return pClient->sendRequest(ulRequestID, CSupportChannels::address(nTo), 0, sBody.data(), sBody.size(), 0, 30);
    }
    CReceived receive(CCMLibraryX* pChannel)
    {
        CReceived received;
        char* pBuffer = nullptr;
        unsigned long ulSize = 0;
        received.lResult =
            pChannel->receiveRequest(&received.ulPeer, &received.ulContext1, &received.ulContext2, &pBuffer, &ulSize);
        received.sBody = take(pBuffer, ulSize);
        return received;
    }
    CReceived receive() { return receive(pServer.get()); }
    CReceived receiveResponse()
    {
        CReceived received;
        char* pBuffer = nullptr;
        unsigned long ulSize = 0;
        received.lResult = pClient->receiveResponse(&received.ulPeer, &received.ulContext1, &pBuffer, &ulSize);
        received.sBody = take(pBuffer, ulSize);
        return received;
    }
    static std::string take(char* pBuffer, unsigned long ulSize)
    {
        const std::unique_ptr<char[]> pOwned(pBuffer);
        return pBuffer ? std::string(pBuffer, ulSize) : std::string();
    }

    const std::unique_ptr<CCMLibraryX> pServer;
    const std::unique_ptr<CCMLibraryX> pClient;
    long lStarted = -1;
};
} // namespace

class SupportChannelTest : public testing::Test
{
protected:
    SupportChannelTest()
    {
        CSystemLogSpy::clear();
        CDSSupport::setLogDirectory(m_directory.path());
    }
    ~SupportChannelTest() override { (void)CDSSupport::setConfigurationFile("", nullptr); }

    CRawPeer connect(int nPeer, int nTo = 1) { return CRawPeer::connect(nPeer, nTo, m_channels.port()); }

    /// A connection of server 2 that waits until server 1's own attempt to reach server 2 has ended.
    CRawPeer connectWhileCalled()
    {
        CRawPeer replaced = connect(2);
        EXPECT_TRUE(replaced.send(CRawPeer::hello(1)));
        EXPECT_FALSE(replaced.receive(std::chrono::milliseconds(50))) << "the greeting was answered";
        CRawPeer waiting = connect(2);
        EXPECT_TRUE(waiting.send(CRawPeer::hello(2)));
        EXPECT_TRUE(replaced.isEnded()) << "the later greeting takes its place";
        return waiting;
    }

    /// What initialize says of the settings.
    std::string complaint(const std::string& sSettings)
    {
        CSystemLogSpy::clear();
        const CBareServer server(&m_channels, 1, sSettings);
        const auto vecMessages = CSystemLogSpy::messages();
        return server.lStarted >= 0 ? "started" : vecMessages.empty() ? "silent" : vecMessages.front().second;
    }

    CTemporaryDirectory m_directory;
    CSupportChannels m_channels{m_directory};
};

TEST_F(SupportChannelTest, TheGreetingIsWhatThePagesSay)
{
    const CRawListener listener(2, m_channels.port());
    CBareServer one(&m_channels, 1);
    ASSERT_GE(one.send(1, 2, "body"), 0);
    CRawPeer peer = listener.accept();
    const auto optHello = peer.receive();
    ASSERT_TRUE(optHello);
    ASSERT_EQ(optHello->size(), 35U);
    EXPECT_EQ(optHello->substr(0, 15),
              '\1' + ("CDSM" + CRawPeer::number(1, 2)) + CRawPeer::number(CRawPeer::serviceOfStore(), 8));
    EXPECT_FALSE(peer.receive(std::chrono::milliseconds(50))) << "something was sent before the answer";

    // The answer has the greeting's form with another type.
    std::string sWelcome = CRawPeer::hello(0);
    sWelcome[4] = 2;
    ASSERT_TRUE(peer.send(sWelcome));
    const auto optRequest = peer.receive('\3');
    ASSERT_TRUE(optRequest);
    EXPECT_EQ(*optRequest, '\3' + CRawPeer::number(1, 4) + "body");
    ASSERT_TRUE(peer.send(CRawPeer::response(1, "answer")));
    const CReceived response = one.receiveResponse();
    EXPECT_EQ(response.ulContext1, 1U);
    EXPECT_EQ(response.sBody, "answer");
}

TEST_F(SupportChannelTest, NoConnectionIsAnnouncedBeforeTheGreetingIsAnswered)
{
    const CRawListener listener(2, m_channels.port());
    m_channels.setSettings("GreetingLimitMs = 100\n");
    CBareServer one(&m_channels, 1);
    ASSERT_GE(one.send(1, 2, "body"), 0);
    CRawPeer silent = listener.accept();
    const CReceived response = one.receiveResponse();
    EXPECT_LT(response.lResult, 0);
    EXPECT_EQ(response.ulContext1, 1U);

    // The first thing announced is a real peer.
    CRawPeer peer = connect(3);
    ASSERT_TRUE(peer.greet());
    const CReceived event = one.receive(one.pClient.get());
    EXPECT_EQ(event.code(), CMLIB_CLIENT_CONNECTED);
    EXPECT_EQ(event.ulPeer, CSupportChannels::address(3));
}

TEST_F(SupportChannelTest, ASilentPeerIsDropped)
{
    CBareServer one(&m_channels, 1, "HeartbeatMs = 50\nSilenceLimitMs = 300\n");
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    const auto tpBefore = CClock::now();
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_DISCONNECTED);
    EXPECT_GE(CClock::now() - tpBefore, std::chrono::milliseconds(250));
    EXPECT_TRUE(peer.isEnded());
}

TEST_F(SupportChannelTest, EveryByteCountsAsASignOfLife)
{
    CBareServer one(&m_channels, 1, "HeartbeatMs = 50\nSilenceLimitMs = 300\n");
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    // A byte for each heartbeat takes three times the limit, and nothing else is said.
    const std::string sRequest = CRawPeer::request(1, std::string(9, 'x'));
    for (const char c : sRequest)
    {
        ASSERT_TRUE(peer.receive('\6'));
        ASSERT_TRUE(peer.send(std::string(1, c)));
    }
    const CReceived request = one.receive();
    EXPECT_TRUE(request.isRequest());
    EXPECT_EQ(request.sBody, "xxxxxxxxx");
}

TEST_F(SupportChannelTest, AKilledPeerIsNoticedAtOnce)
{
    CBareServer one(&m_channels, 1);
    {
        CRawPeer peer = connect(2);
        ASSERT_TRUE(peer.greet());
        EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    }
    const auto tpBefore = CClock::now();
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_DISCONNECTED);
    EXPECT_LT(CClock::now() - tpBefore, std::chrono::seconds(1)) << "long before its heartbeat was missed";
}

TEST_F(SupportChannelTest, HalfAFrameEndsWithTheGreetingLimit)
{
    CBareServer one(&m_channels, 1, "GreetingLimitMs = 100\n");
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.send(CRawPeer::hello().substr(0, 20)));
    EXPECT_TRUE(peer.isEnded());
}

TEST_F(SupportChannelTest, StrangersAreSentAway)
{
    CBareServer one(&m_channels, 1);
    std::string sOtherService = CRawPeer::hello();
    sOtherService[12] ^= 1;
    std::string sNoMagic = CRawPeer::hello();
    sNoMagic[5] = 'X';
    std::string sVersionZero = CRawPeer::hello();
    sVersionZero[10] = 0;
    for (const std::string& sBytes :
         {sOtherService, sNoMagic, sVersionZero, std::string("GET / HTTP/1.1\r\nHost: here\r\n\r\n"),
          std::string("\x16\x03\x01\x02\x00\x01", 6), CRawPeer::number(0, 4), CRawPeer::number(65, 4),
          CRawPeer::number(0xFFFFFFFF, 4), CRawPeer::request(1, "too soon"), CRawPeer::frame(6, std::string(8, 'p')),
          CRawPeer::frame(99, "")})
    {
        CRawPeer peer = connect(2);
        ASSERT_TRUE(peer.send(sBytes));
        EXPECT_TRUE(peer.isEnded());
    }
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED) << "none before was announced";
}

TEST_F(SupportChannelTest, BytesThatAreNoMessageEndTheConnection)
{
    CBareServer one(&m_channels, 1);
    for (const std::string& sBytes :
         {CRawPeer::number(0, 4), CRawPeer::number((4U << 20) + 6, 4), CRawPeer::number(0xFFFFFFFF, 4),
          CRawPeer::frame(99, "unknown"), CRawPeer::frame(3, "abc"), CRawPeer::frame(6, "short"),
          CRawPeer::frame(7, "short"), CRawPeer::hello(2)})
    {
        CRawPeer peer = connect(2);
        ASSERT_TRUE(peer.greet());
        EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
        ASSERT_TRUE(peer.send(sBytes));
        EXPECT_TRUE(peer.isEnded());
        EXPECT_EQ(one.receive().code(), CMLIB_SERVER_DISCONNECTED);
    }
}

TEST_F(SupportChannelTest, AnswersToNothingAreIgnored)
{
    CBareServer one(&m_channels, 1);
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    for (const std::uint32_t dwExchange : {0U, 1U, 7U, 0xFFFFFFFFU})
        ASSERT_TRUE(peer.send(CRawPeer::response(dwExchange, "what?")));
    ASSERT_TRUE(peer.send(CRawPeer::frame(5, CRawPeer::number(3, 4))));
    ASSERT_TRUE(peer.send(CRawPeer::frame(6, std::string(8, 'p'))));
    ASSERT_TRUE(peer.receive('\7')); // all of it was read
    ASSERT_GE(one.send(77, 2, "question"), 0);
    const auto optRequest = peer.receive('\3');
    ASSERT_TRUE(optRequest);
    ASSERT_TRUE(peer.send(CRawPeer::frame(4, optRequest->substr(1, 4) + "the answer")));
    const CReceived response = one.receiveResponse();
    EXPECT_EQ(response.ulContext1, 77U);
    EXPECT_EQ(response.sBody, "the answer");
}

TEST_F(SupportChannelTest, ARefusedRequestEndsNegative)
{
    CBareServer one(&m_channels, 1);
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    ASSERT_GE(one.send(5, 2, "question"), 0);
    const auto optRequest = peer.receive('\3');
    ASSERT_TRUE(optRequest);
    ASSERT_TRUE(peer.send(CRawPeer::frame(5, optRequest->substr(1, 4))));
    const CReceived response = one.receiveResponse();
    EXPECT_EQ(response.ulContext1, 5U);
    EXPECT_LT(response.lResult, 0);
}

TEST_F(SupportChannelTest, ARequestForAServerWithoutServerChannelIsRefused)
{
    CBareServer one(&m_channels, 1);
    (void)one.pServer->uninitialize(); // always 0
    const CRawListener listener(2, m_channels.port());
    ASSERT_GE(one.send(1, 2, "hello"), 0);
    CRawPeer peer = listener.accept();
    ASSERT_TRUE(peer.receive());
    std::string sWelcome = CRawPeer::hello(0);
    sWelcome[4] = 2;
    ASSERT_TRUE(peer.send(sWelcome + CRawPeer::request(9, "anybody?")));
    const auto optRefusal = peer.receive('\5');
    ASSERT_TRUE(optRefusal);
    EXPECT_EQ(optRefusal->substr(1), CRawPeer::number(9, 4));
}

TEST_F(SupportChannelTest, APeerThatComesBackEndsItsOldSessionFirst)
{
    CBareServer one(&m_channels, 1);
    CRawPeer old = connect(2);
    ASSERT_TRUE(old.greet(1, 'a'));
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    ASSERT_TRUE(old.send(CRawPeer::request(1, "old")));
    const CReceived request = one.receive();
    EXPECT_EQ(request.sBody, "old");

    CRawPeer fresh = connect(2);
    ASSERT_TRUE(fresh.greet(1, 'b'));
    ASSERT_TRUE(fresh.send(CRawPeer::request(1, "new")));
    EXPECT_TRUE(old.isEnded());
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_DISCONNECTED);
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    EXPECT_EQ(one.receive().sBody, "new");
    EXPECT_LT(one.pServer->sendResponse(request.ulPeer, request.ulContext1, request.ulContext2, "late", 4, 0), 0);
}

TEST_F(SupportChannelTest, AGreetingThatWasGivenUpChangesNothing)
{
    CBareServer one(&m_channels, 1);
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet(7));
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    CRawPeer late = connect(2);
    ASSERT_TRUE(late.send(CRawPeer::hello(6)));
    EXPECT_TRUE(late.isEnded());
    ASSERT_TRUE(peer.send(CRawPeer::request(1, "still here")));
    EXPECT_EQ(one.receive().sBody, "still here");
}

TEST_F(SupportChannelTest, AConnectionThatDiedWhileItWaitedIsLostAndMadeAgain)
{
    const CRawListener listener(2, m_channels.port());
    CBareServer one(&m_channels, 1);
    ASSERT_GE(one.send(1, 2, "body"), 0);
    CRawPeer called = listener.accept();
    CRawPeer calling = connectWhileCalled();
    // The peer is killed. Nobody reads from the connection that waits, so that its end is not noticed yet.
    calling.close();
    called.close();
    CRawPeer again = listener.accept();
    const CReceived end = one.receiveResponse();
    EXPECT_EQ(end.ulContext1, 1U);
    EXPECT_LT(end.lResult, 0);
    CDSSupport::flushLogs();
    EXPECT_THAT(m_directory.read("CDSMessaging.log"),
                testing::ContainsRegex("disconnected, session [0-9]+: .*, 1 requests unanswered"));

    ASSERT_TRUE(again.receive());
    std::string sWelcome = CRawPeer::hello(0);
    sWelcome[4] = 2;
    ASSERT_TRUE(again.send(sWelcome));
    ASSERT_GE(one.send(2, 2, "body"), 0);
    EXPECT_TRUE(again.receive('\3'));
}

TEST_F(SupportChannelTest, ARequestAheadOfTheAnswerToTheGreetingComesAfterTheConnection)
{
    const CRawListener listener(2, m_channels.port());
    CBareServer one(&m_channels, 1);
    ASSERT_GE(one.send(1, 2, "body"), 0);
    CRawPeer called = listener.accept();
    CRawPeer calling = connectWhileCalled();
    ASSERT_TRUE(calling.send(CRawPeer::request(1, "early")));
    called.close();
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    EXPECT_EQ(one.receive().sBody, "early");
    EXPECT_TRUE(calling.receive('\2'));
}

TEST_F(SupportChannelTest, WhatNobodyFetchedOfAnEndedSessionIsDropped)
{
    CBareServer one(&m_channels, 1);
    for (std::uint32_t dw = 1; dw <= 50; ++dw)
    {
        CRawPeer peer = connect(2);
        ASSERT_TRUE(peer.greet(dw));
        ASSERT_TRUE(peer.send(CRawPeer::request(1, "nobody reads this") + CRawPeer::number(0, 4)));
        ASSERT_TRUE(peer.isEnded());
    }
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet(51));
    ASSERT_TRUE(peer.send(CRawPeer::request(1, "the first to be read")));
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    EXPECT_EQ(one.receive().sBody, "the first to be read");
}

TEST_F(SupportChannelTest, AFloodIsHeldBackAndDoesNotDisturbOthers)
{
    CBareServer one(&m_channels, 1, "ReceiveQueueBytes = 65536\n");
    CRawPeer flooder = connect(2);
    ASSERT_TRUE(flooder.greet());
    std::string sFlood;
    for (std::uint32_t dw = 1; dw <= 20'000; ++dw)
        sFlood += CRawPeer::request(dw, std::string(1000, 'f'));
    std::size_t uSent = 0;
    for (;;) // until what the system buffers is full too
    {
        const std::size_t uNow = flooder.sendWhatFits(sFlood.substr(uSent, 65'536));
        if (uNow != 0)
        {
            uSent += uNow;
            continue;
        }
        CRawPeer other = connect(3);
        ASSERT_TRUE(other.greet()) << "another peer gets its turn";
        ASSERT_TRUE(other.send(CRawPeer::frame(6, std::string(8, 'p'))));
        ASSERT_TRUE(other.receive('\7'));
        if (flooder.sendWhatFits(sFlood.substr(uSent, 1)) == 0)
            break;
        ++uSent;
    }
    ASSERT_LT(uSent, sFlood.size()) << "everything was taken";

    // Once somebody fetches, all of it comes.
    std::thread rest([&] { EXPECT_TRUE(flooder.send(sFlood.substr(uSent))); });
    std::uint32_t dwExpected = 1;
    while (dwExpected <= 20'000)
    {
        const CReceived received = one.receive();
        if (!received.isRequest())
            continue;
        ASSERT_EQ(received.ulContext2, dwExpected);
        ++dwExpected;
    }
    rest.join();
}

TEST_F(SupportChannelTest, AFullQueueMovesAgainAfterAFewMessages)
{
    CBareServer one(&m_channels, 1);
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    std::string sBytes;
    for (std::uint32_t dw = 1; dw <= 800; ++dw)
        sBytes += CRawPeer::request(dw, std::string(100'000, 'f'));
    std::size_t uSent = 0;
    const auto sendUntilFull = [&] {
        const std::size_t uBefore = uSent;
        for (auto tpMoved = CClock::now(); CClock::now() - tpMoved < std::chrono::milliseconds(300);)
        {
            const std::size_t uNow = peer.sendWhatFits(std::string_view(sBytes).substr(uSent, 65'536));
            uSent += uNow;
            if (uNow != 0)
                tpMoved = CClock::now();
            else
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return uSent - uBefore;
    };
    ASSERT_GT(sendUntilFull(), 16U << 20);
    ASSERT_LT(uSent, sBytes.size()) << "everything was taken";
    for (int n = 0; n < 40; ++n) // a quarter of what waits
        EXPECT_TRUE(one.receive().isRequest());
    EXPECT_GT(sendUntilFull(), 0U);
}

TEST_F(SupportChannelTest, AnOverdueAnswerEndsTheConnection)
{
    CBareServer one(&m_channels, 1);
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    ASSERT_GE(one.pClient->sendRequest(5, CSupportChannels::address(2), 0, "x", 1, 0, 1), 0);
    const CReceived end = one.receiveResponse();
    EXPECT_EQ(end.ulContext1, 5U);
    EXPECT_LT(end.lResult, 0);
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_DISCONNECTED) << "nobody knows what became of the request";
    CDSSupport::flushLogs();
    EXPECT_THAT(m_directory.read("CDSMessaging.log"), testing::HasSubstr("an answer is overdue"));
    EXPECT_TRUE(peer.isEnded());
}

TEST_F(SupportChannelTest, APeerThatStopsReadingIsDisconnectedBeforeTheSenderGivesUp)
{
    CBareServer one(&m_channels, 1, "MessageBytes = 1100000\nSendQueueBytes = 1100000\n");
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    unsigned long ulAccepted = 0;
    long lResult = 0;
    auto tpFull = CClock::time_point::max();
    for (;;)
    {
        lResult = one.send(ulAccepted + 1, 2, std::string(4000, 'x'));
        if (lResult >= 0)
        {
            ++ulAccepted;
            continue;
        }
        tpFull = std::min(tpFull, CClock::now());
        if (static_cast<std::uint32_t>(lResult) != CMLIB_NOTHING)
            break;
        std::this_thread::yield();
    }
    EXPECT_LT(CClock::now() - tpFull, std::chrono::milliseconds(800)) << "the proxy gives up after a second";
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_DISCONNECTED);
    for (unsigned long ul = 1; ul <= ulAccepted; ++ul)
    {
        const CReceived end = one.receiveResponse();
        EXPECT_LT(end.lResult, 0);
        EXPECT_EQ(end.ulContext1, ul);
    }
}

TEST_F(SupportChannelTest, AFullQueueThatIsStuckEndsItsSessionWithoutAnotherTry)
{
    // A queue of which the system's buffers are a small part: what they take does not count as draining.
    CBareServer one(&m_channels, 1, "SendQueueBytes = 67108864\n");
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    unsigned long ulAccepted = 0;
    while (one.send(ulAccepted + 1, 2, std::string(4'000'000, 'x')) >= 0)
        ++ulAccepted;
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_DISCONNECTED);
    for (unsigned long ul = 1; ul <= ulAccepted; ++ul)
        EXPECT_LT(one.receiveResponse().lResult, 0);
    CDSSupport::flushLogs();
    EXPECT_THAT(m_directory.read("CDSMessaging.log"), testing::HasSubstr("the peer does not keep up"));
}

TEST_F(SupportChannelTest, AFullQueueThatDrainsIsWorthAnotherTry)
{
    CBareServer one(&m_channels, 1, "MessageBytes = 1100000\nSendQueueBytes = 1100000\n");
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    std::uint32_t dwAccepted = 0;
    long lResult = 0;
    while ((lResult = one.send(dwAccepted + 1, 2, std::string(4000, 'x'))) >= 0)
        ++dwAccepted;
    EXPECT_EQ(static_cast<std::uint32_t>(lResult), CMLIB_NOTHING);
    std::uint32_t dwReceived = 0;
    std::thread reading([&] {
        while (dwReceived < dwAccepted + 1 && peer.receive('\3'))
            ++dwReceived;
    });
    while (static_cast<std::uint32_t>(lResult = one.send(dwAccepted + 1, 2, "last")) == CMLIB_NOTHING)
        std::this_thread::yield();
    EXPECT_GE(lResult, 0);
    reading.join();
    EXPECT_EQ(dwReceived, dwAccepted + 1) << "and all on the same connection";
}

TEST_F(SupportChannelTest, APeerThatTakesItsTimeWithEachMessageKeepsItsConnection)
{
    // More than the queues and the system's buffers hold, so that the sender waits for each message to be dealt with.
    constexpr unsigned long cMessages = 1200;
    const std::string sSettings = "MessageBytes = 1100000\nSendQueueBytes = 1100000\nReceiveQueueBytes = 1100000\n";
    CBareServer one(&m_channels, 1, sSettings);
    CBareServer two(&m_channels, 2, sSettings);
    std::vector<std::uint32_t> vecEvents;
    std::thread working([&] {
        for (unsigned long ulHandled = 0; ulHandled < cMessages;)
        {
            const CReceived received = two.receive();
            if (!received.isRequest())
            {
                vecEvents.push_back(received.code());
                if (received.code() != CMLIB_SERVER_CONNECTED)
                    return;
                continue;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2)); // its work
            EXPECT_GE(
                two.pServer->sendResponse(received.ulPeer, received.ulContext1, received.ulContext2, "done", 4, 0), 0);
            ++ulHandled;
        }
    });
    long lResult = one.send(1, 2, "first");
    ASSERT_GE(one.receiveResponse().lResult, 0); // the connection stands
    unsigned long ulAnswered = 0;
    for (unsigned long ul = 2; ul <= cMessages && lResult >= 0; ++ul)
        while (static_cast<std::uint32_t>(lResult = one.send(ul, 2, std::string(12'000, 'x'))) == CMLIB_NOTHING)
            ulAnswered += one.receiveResponse().lResult >= 0 ? 1 : 0;
    EXPECT_GE(lResult, 0);
    if (lResult < 0)
        (void)one.pClient->uninitialize(); // always 0; ends the other's work
    working.join();
    EXPECT_THAT(vecEvents, testing::ElementsAre(CMLIB_SERVER_CONNECTED));
    EXPECT_GT(ulAnswered, 0U) << "the queue was never full";
}

TEST_F(SupportChannelTest, TooMuchForAConnectionThatIsBeingMadeIsRefusedForGood)
{
    const CRawListener listener(2, m_channels.port());
    CBareServer one(&m_channels, 1, "MessageBytes = 1100000\nSendQueueBytes = 1100000\n");
    std::uint32_t dwAccepted = 0;
    long lResult = 0;
    while ((lResult = one.send(dwAccepted + 1, 2, std::string(4000, 'x'))) >= 0)
        ++dwAccepted;
    EXPECT_GT(dwAccepted, 200U);
    EXPECT_NE(static_cast<std::uint32_t>(lResult), CMLIB_NOTHING);
    EXPECT_NE(static_cast<std::uint32_t>(lResult), CMLIB_TRANSIENT_FAILURE);

    // What was taken before goes out when the connection stands.
    CRawPeer peer = listener.accept();
    ASSERT_TRUE(peer.receive());
    std::string sWelcome = CRawPeer::hello(0);
    sWelcome[4] = 2;
    ASSERT_TRUE(peer.send(sWelcome));
    for (std::uint32_t dw = 1; dw <= dwAccepted; ++dw)
        ASSERT_TRUE(peer.receive('\3')) << dw;
    EXPECT_EQ(one.receive(one.pClient.get()).code(), CMLIB_CLIENT_CONNECTED);
    EXPECT_GE(one.send(dwAccepted + 1, 2, "and on it goes"), 0);
}

TEST_F(SupportChannelTest, APeerThatTakesNothingOfWhatWaitsIsDisconnected)
{
    CBareServer one(&m_channels, 1, "HeartbeatMs = 50\nSilenceLimitMs = 2000\nSendQueueBytes = 33554432\n");
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_CONNECTED);
    for (unsigned long ul = 1; ul <= 4; ++ul)
        ASSERT_GE(one.send(ul, 2, std::string(4U << 20, 'x')), 0); // more than the system buffers
    // It gives signs of life until it is disconnected, so that they cannot be the reason.
    std::thread alive([&peer] {
        while (peer.send(CRawPeer::frame(7, std::string(24, 'p'))))
            std::this_thread::yield();
    });
    EXPECT_EQ(one.receive().code(), CMLIB_SERVER_DISCONNECTED);
    alive.join();
    CDSSupport::flushLogs();
    EXPECT_THAT(m_directory.read("CDSMessaging.log"), testing::HasSubstr("the peer does not read"));
}

TEST_F(SupportChannelTest, StrangersAtTheDoorDoNotKeepPeersOut)
{
    CBareServer one(&m_channels, 1);
    std::vector<CRawPeer> vecStrangers;
    for (int n = 0; n < 8; ++n)
        vecStrangers.push_back(connect(3));
    CRawPeer ninth = connect(3);
    EXPECT_TRUE(ninth.isEnded());
    CRawPeer peer = connect(2);
    EXPECT_TRUE(peer.greet());
}

TEST_F(SupportChannelTest, TheClockOfAServerThatDoesNotAnswerHoldsACallerOnce)
{
    const CRawListener listener(2, m_channels.port());
    CBareServer one(&m_channels, 1);
    unsigned long long ullStamp = 42;
    const auto tpBefore = CClock::now();
    EXPECT_LT(one.pServer->getServerTimestamp(CSupportChannels::address(2), &ullStamp), 0);
    const auto tpFirst = CClock::now();
    EXPECT_GE(tpFirst - tpBefore, std::chrono::milliseconds(240));
    EXPECT_LT(tpFirst - tpBefore, std::chrono::milliseconds(1000));
    for (int n = 0; n < 100; ++n)
        EXPECT_LT(one.pServer->getServerTimestamp(CSupportChannels::address(2), &ullStamp), 0);
    EXPECT_LT(CClock::now() - tpFirst, std::chrono::milliseconds(200));
    EXPECT_EQ(ullStamp, 42U);
}

TEST_F(SupportChannelTest, APeerThatComesBackAgainAndAgainHoldsNoCallerLonger)
{
    CBareServer one(&m_channels, 1);
    std::vector<CRawPeer> vecPeers;
    vecPeers.push_back(connect(2));
    ASSERT_TRUE(vecPeers.back().greet(1));
    std::atomic<bool> bDone = false;
    std::thread comingBack([&] {
        // Each connection is asked anew what time it is, and none answers.
        for (std::uint32_t dw = 2; dw <= 30 && !bDone; ++dw)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            vecPeers.push_back(connect(2));
            EXPECT_TRUE(vecPeers.back().greet(dw));
        }
    });
    unsigned long long ullStamp = 0;
    const auto tpBefore = CClock::now();
    EXPECT_LT(one.pServer->getServerTimestamp(CSupportChannels::address(2), &ullStamp), 0);
    EXPECT_LT(CClock::now() - tpBefore, std::chrono::milliseconds(1000));
    bDone = true;
    comingBack.join();
}

TEST_F(SupportChannelTest, AfterAWaitInVainForTheTimeNobodyWaitsForASecond)
{
    CBareServer one(&m_channels, 1);
    unsigned long long ullStamp = 0;
    CClock::duration waited{};
    for (std::uint32_t dw = 1; dw <= 5; ++dw)
    {
        CRawPeer peer = connect(2); // and is asked anew, but does not answer
        ASSERT_TRUE(peer.greet(dw));
        const auto tpBefore = CClock::now();
        EXPECT_LT(one.pServer->getServerTimestamp(CSupportChannels::address(2), &ullStamp), 0);
        waited += CClock::now() - tpBefore;
    }
    EXPECT_LT(waited, std::chrono::milliseconds(800)) << "five times a quarter of a second";
}

TEST_F(SupportChannelTest, APeersOwnTimeIsPassedOn)
{
    CBareServer one(&m_channels, 1);
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    const auto optPing = peer.receive('\6');
    ASSERT_TRUE(optPing);
    ASSERT_TRUE(peer.send(CRawPeer::frame(7, optPing->substr(1) + CRawPeer::number(1'000'000'000'000, 8) +
                                                 CRawPeer::number(0x1'0000'0005, 8))));
    ASSERT_TRUE(peer.send(CRawPeer::frame(6, std::string(8, 'p')))); // its answer says that the pong was read
    ASSERT_TRUE(peer.receive('\7'));
    unsigned long long ullStamp = 0;
    ASSERT_GE(one.pServer->getServerTimestamp(CSupportChannels::address(2), &ullStamp), 0);
    EXPECT_NEAR(static_cast<double>(ullStamp), 1e12, 1e8);
    unsigned long ulTicks = 0;
    ASSERT_GE(one.pServer->getServerTickCount(CSupportChannels::address(2), &ulTicks), 0);
    EXPECT_LT(ulTicks, 10'000U) << "32 bits";
}

TEST_F(SupportChannelTest, APeersClockMayBeAheadOrBehindOrBeSetBack)
{
    CBareServer one(&m_channels, 1, "HeartbeatMs = 50\nSilenceLimitMs = 10000\n");
    CRawPeer peer = connect(2);
    ASSERT_TRUE(peer.greet());
    constexpr unsigned long long cHour = 36'000'000'000ULL;
    unsigned long long ullHere = 0;
    CPortable::GetCurrentULLFileTimeUTC(&ullHere);
    for (const unsigned long long ullShown : {ullHere + cHour, ullHere - cHour, ullHere - 24 * cHour, 1ULL})
    {
        const auto optPing = peer.receive('\6');
        ASSERT_TRUE(optPing);
        ASSERT_TRUE(
            peer.send(CRawPeer::frame(7, optPing->substr(1) + CRawPeer::number(ullShown, 8) + CRawPeer::number(5, 8))));
        ASSERT_TRUE(peer.send(CRawPeer::frame(6, std::string(8, 'p')))); // its answer says that the pong was read
        ASSERT_TRUE(peer.receive('\7'));
        unsigned long long ullStamp = 0;
        ASSERT_GE(one.pServer->getServerTimestamp(CSupportChannels::address(2), &ullStamp), 0);
        EXPECT_NEAR(static_cast<double>(ullStamp), static_cast<double>(ullShown), 1e8) << "ten seconds";
    }
}

TEST_F(SupportChannelTest, SettingsThatCannotBeUsedAreNamed)
{
    using testing::HasSubstr;
    EXPECT_THAT(complaint("HeartbeatMs = 1\n"), HasSubstr("HeartbeatMs: is 1, but must be from 20 to 60000"));
    EXPECT_THAT(complaint("HeartbeatMs = \"often\"\n"), HasSubstr("HeartbeatMs: is a text"));
    EXPECT_THAT(complaint("SilenceLimitMs = 3000\n"), HasSubstr("SilenceLimitMs: must be at least twice HeartbeatMs"));
    EXPECT_THAT(complaint("CertificateFile = \"a\"\n"), HasSubstr("CertificateFile: goes with"));
    EXPECT_THAT(complaint("MessageBytes = 1099999\n"), HasSubstr("MessageBytes: is 1099999, but must be from 1100000"))
        << "a record's text may be that long";
    EXPECT_THAT(complaint("SendQueueBytes = 4096\n"), HasSubstr("SendQueueBytes: must not be less"));
    EXPECT_THAT(complaint("CertificateFile = \"/no/c\"\nPrivateKeyFile = \"/no/k\"\nAuthorityFile = \"/no/a\"\n"),
                HasSubstr("CertificateFile /no/c: "));
    EXPECT_EQ(complaint(""), "started");
}

TEST_F(SupportChannelTest, TheNetworkIsNotServedInTheClearUnlessAsked)
{
    using testing::HasSubstr;
    const auto complaintAt = [&](const std::string& sAddress, const std::string& sMore) {
        CSystemLogSpy::clear();
        m_directory.write("cds.toml", "[Orvane.CDS.Messaging]\nLocalAddress = \"" + sAddress + "\"\n" + sMore);
        EXPECT_GE(CDSSupport::setConfigurationFile(m_directory.file("cds.toml"), nullptr), 0);
        const auto pChannel = CSupportChannels::make(cmlib_mode_server);
        EXPECT_LT(pChannel->initialize(), 0);
        const auto vecMessages = CSystemLogSpy::messages();
        return vecMessages.empty() ? "" : vecMessages.front().second;
    };
    EXPECT_THAT(complaintAt("192.0.2.1", ""), HasSubstr("192.0.2.1 is open to the network"));
    EXPECT_THAT(complaintAt("192.0.2.1", "AllowUnencrypted = 1\n"), HasSubstr("cannot listen on 192.0.2.1:27350"));
    EXPECT_THAT(complaintAt("somewhere", ""), HasSubstr("\"somewhere\" is no IPv4 address"));
}

TEST_F(SupportChannelTest, AnAddressInUseIsAnError)
{
    const CRawListener listener(1, m_channels.port());
    EXPECT_THAT(complaint(""), testing::HasSubstr("cannot listen on 127.0.0.1:"));
}

TEST_F(SupportChannelTest, AServerHasOneChannelOfAKind)
{
    const CBareServer one(&m_channels, 1);
    ASSERT_GE(one.lStarted, 0);
    EXPECT_THAT(complaint(""), testing::HasSubstr("there is such a channel already"));
}

TEST_F(SupportChannelTest, WhatStrangersDoFillsNoLog)
{
    {
        CBareServer one(&m_channels, 1);
        for (int n = 0; n < 400; ++n)
        {
            CRawPeer stranger = connect(2);
            ASSERT_TRUE(stranger.send("GET / HTTP/1.1\r\n\r\n"));
            ASSERT_TRUE(stranger.isEnded());
        }
        one.pServer->dump();
    }
    std::istringstream stream(m_directory.read("CDSMessaging.log"));
    const auto nLines = std::count(std::istreambuf_iterator<char>(stream), {}, '\n');
    EXPECT_GE(nLines, 50) << "the first ones are logged";
    EXPECT_LE(nLines, 250);
    EXPECT_LE(CSystemLogSpy::messages().size(), 20U);
    EXPECT_THAT(m_directory.read("CDSMessaging.log"), testing::HasSubstr("channels of 127.0.0.1:"));
}
