// Channels between servers: order, epochs, the end of every exchange, refusals, stopping, limits, time queries.
#include "CPortable.h"
#include "ChannelServer.h"

#include <algorithm>
#include <set>
#include <string>

#include <gmock/gmock.h>

namespace {
/// The answer that proves who answered what.
std::optional<std::string> echo(const CReceived& request)
{
    return "re: " + request.sBody;
}

bool isRetryable(long lResult)
{
    const auto dwCode = static_cast<std::uint32_t>(lResult);
    return dwCode == CMLIB_NOTHING || dwCode == CMLIB_TRANSIENT_FAILURE;
}
} // namespace

class ChannelTest : public testing::Test
{
protected:
    /// Waits until the two servers are connected and all four channels have said so.
    static void connect(CChannelServer& from, CChannelServer& to)
    {
        ASSERT_GE(from.send(9999, to, "hello"), 0);
        ASSERT_EQ(from.changes.nextCode(), CMLIB_CLIENT_CONNECTED);
        ASSERT_EQ(from.requests.nextCode(), CMLIB_SERVER_CONNECTED);
        ASSERT_EQ(to.changes.nextCode(), CMLIB_CLIENT_CONNECTED);
        ASSERT_EQ(to.requests.nextCode(), CMLIB_SERVER_CONNECTED);
        std::optional<CReceived> optRequest = to.requests.next();
        ASSERT_TRUE(optRequest);
        (void)to.answer(*optRequest, "welcome"); // a server that answers by itself has done so
        ASSERT_TRUE(from.responses.next());
    }

    CChannelWorld m_world;
};

TEST_F(ChannelTest, ARequestArrivesAndItsResponseComesBack)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    ASSERT_GE(one.lStarted, 0);
    ASSERT_GE(two.lStarted, 0);
    ASSERT_GE(one.send(7, two, "request"), 0);
    ASSERT_EQ(two.requests.nextCode(), CMLIB_SERVER_CONNECTED);
    const auto optRequest = two.requests.next();
    ASSERT_TRUE(optRequest && optRequest->isRequest());
    EXPECT_EQ(optRequest->sBody, "request");
    EXPECT_EQ(optRequest->ulPeer, one.address());

    EXPECT_GE(two.answer(*optRequest, "response"), 0);
    const auto optResponse = one.responses.next();
    ASSERT_TRUE(optResponse);
    EXPECT_GE(optResponse->lResult, 0);
    EXPECT_EQ(optResponse->sBody, "response");
    EXPECT_EQ(optResponse->ulPeer, two.address());
    EXPECT_EQ(optResponse->ulContext1, 7U);
}

TEST_F(ChannelTest, BothChannelsOfBothServersHearOfAConnection)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    ASSERT_GE(one.send(1, two, "request"), 0);
    for (CChannelServer* const pServer : {&one, &two})
    {
        const unsigned long ulOther = pServer == &one ? two.address() : one.address();
        const auto optAsServer = pServer->requests.next();
        ASSERT_TRUE(optAsServer);
        EXPECT_EQ(optAsServer->code(), CMLIB_SERVER_CONNECTED);
        EXPECT_EQ(optAsServer->ulPeer, ulOther);
        const auto optAsClient = pServer->changes.next();
        ASSERT_TRUE(optAsClient);
        EXPECT_EQ(optAsClient->code(), CMLIB_CLIENT_CONNECTED);
        EXPECT_EQ(optAsClient->ulPeer, ulOther);
    }
}

TEST_F(ChannelTest, RequestsArriveInTheOrderSent)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2, echo);
    constexpr unsigned long cRequests = 2000;
    for (unsigned long ul = 1; ul <= cRequests; ++ul)
        ASSERT_GE(one.send(ul, two, std::to_string(ul)), 0);
    ASSERT_EQ(two.requests.nextCode(), CMLIB_SERVER_CONNECTED);
    for (unsigned long ul = 1; ul <= cRequests; ++ul)
    {
        const auto optRequest = two.requests.next();
        ASSERT_TRUE(optRequest && optRequest->isRequest());
        ASSERT_EQ(optRequest->sBody, std::to_string(ul));
    }
    for (unsigned long ul = 1; ul <= cRequests; ++ul)
    {
        const auto optResponse = one.responses.next();
        ASSERT_TRUE(optResponse);
        ASSERT_EQ(optResponse->sBody, "re: " + std::to_string(optResponse->ulContext1));
    }
}

TEST_F(ChannelTest, ServersThatSendToOneAnotherAtOnceFindTogether)
{
    for (int n = 0; n < 30; ++n) // which side is first is chance
    {
        CChannelServer one(&m_world, 1, echo);
        CChannelServer two(&m_world, 2, echo);
        std::thread other([&] { EXPECT_GE(two.send(2, one, "from two"), 0); });
        EXPECT_GE(one.send(1, two, "from one"), 0);
        other.join();
        const auto optFirst = one.responses.next();
        ASSERT_TRUE(optFirst);
        ASSERT_EQ(optFirst->sBody, "re: from one");
        const auto optSecond = two.responses.next();
        ASSERT_TRUE(optSecond);
        ASSERT_EQ(optSecond->sBody, "re: from two");
    }
}

TEST_F(ChannelTest, EveryAcceptedRequestEndsOnceWhileConnectionsBreak)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2, echo);
    connect(one, two);
    std::set<unsigned long> setAccepted;
    for (unsigned long ul = 1; ul <= 3000; ++ul)
    {
        if (one.send(ul, two, std::string(200, 'x')) >= 0)
            setAccepted.insert(ul);
        if (ul % 500 == 0)
            m_world.breakConnection(1, 2);
    }
    std::set<unsigned long> setEnded;
    while (setEnded.size() < setAccepted.size())
    {
        const auto optEnd = one.responses.next();
        ASSERT_TRUE(optEnd) << setAccepted.size() - setEnded.size() << " never ended";
        ASSERT_TRUE(setAccepted.count(optEnd->ulContext1));
        ASSERT_TRUE(setEnded.insert(optEnd->ulContext1).second) << optEnd->ulContext1 << " ended twice";
    }
    one.stop();
    EXPECT_TRUE(one.responses.empty());
}

TEST_F(ChannelTest, ABrokenConnectionEndsWhatIsUnanswered)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    ASSERT_GE(one.send(5, two, "never answered"), 0);
    const auto optRequest = two.requests.next();
    ASSERT_TRUE(optRequest && optRequest->isRequest());
    m_world.breakConnection(1, 2);

    const auto optEnd = one.responses.next();
    ASSERT_TRUE(optEnd);
    EXPECT_LT(optEnd->lResult, 0);
    EXPECT_EQ(optEnd->ulContext1, 5U);
    EXPECT_EQ(optEnd->ulPeer, two.address());
}

TEST_F(ChannelTest, BothServersHearOfABrokenConnectionInBothDirectionsAndOfTheNextOne)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    m_world.breakConnection(1, 2);
    for (CChannelServer* const pServer : {&one, &two})
    {
        EXPECT_EQ(pServer->requests.nextCode(), CMLIB_SERVER_DISCONNECTED);
        EXPECT_EQ(pServer->requests.nextCode(), CMLIB_SERVER_CONNECTED);
        EXPECT_EQ(pServer->changes.nextCode(), CMLIB_CLIENT_DISCONNECTED);
        EXPECT_EQ(pServer->changes.nextCode(), CMLIB_CLIENT_CONNECTED);
    }
}

TEST_F(ChannelTest, AHundredBrokenConnectionsAreEachFollowedByANewOne)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    for (int n = 0; n < 100; ++n)
    {
        m_world.breakConnection(1, 2);
        for (CChannelServer* const pServer : {&one, &two})
        {
            ASSERT_EQ(pServer->requests.nextCode(), CMLIB_SERVER_DISCONNECTED) << n;
            ASSERT_EQ(pServer->requests.nextCode(), CMLIB_SERVER_CONNECTED) << n;
            ASSERT_EQ(pServer->changes.nextCode(), CMLIB_CLIENT_DISCONNECTED) << n;
            ASSERT_EQ(pServer->changes.nextCode(), CMLIB_CLIENT_CONNECTED) << n;
        }
    }
}

TEST_F(ChannelTest, EventsStandBetweenTheRequestsOfTheOldAndTheNewConnection)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    ASSERT_GE(one.send(1, two, "old"), 0);
    const auto optOld = two.requests.next();
    ASSERT_TRUE(optOld && optOld->isRequest());
    m_world.breakConnection(1, 2);
    ASSERT_EQ(one.changes.nextCode(), CMLIB_CLIENT_DISCONNECTED);
    ASSERT_EQ(one.changes.nextCode(), CMLIB_CLIENT_CONNECTED);
    ASSERT_GE(one.send(2, two, "new"), 0);

    EXPECT_EQ(two.requests.nextCode(), CMLIB_SERVER_DISCONNECTED);
    EXPECT_EQ(two.requests.nextCode(), CMLIB_SERVER_CONNECTED);
    const auto optNew = two.requests.next();
    ASSERT_TRUE(optNew && optNew->isRequest());
    EXPECT_EQ(optNew->sBody, "new");

    // The old request's connection is gone, and its number must not name another one's request.
    EXPECT_LT(two.answer(*optOld, "late"), 0);
    EXPECT_GE(two.answer(*optNew, "in time"), 0);
    const auto optEndOfOld = one.responses.next();
    ASSERT_TRUE(optEndOfOld);
    EXPECT_EQ(optEndOfOld->ulContext1, 1U);
    EXPECT_LT(optEndOfOld->lResult, 0);
    const auto optEndOfNew = one.responses.next();
    ASSERT_TRUE(optEndOfNew);
    EXPECT_EQ(optEndOfNew->ulContext1, 2U);
    EXPECT_EQ(optEndOfNew->sBody, "in time");
}

TEST_F(ChannelTest, ASecondResponseIsDropped)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    ASSERT_GE(one.send(1, two, "open meanwhile"), 0);
    ASSERT_GE(one.send(2, two, "answered twice"), 0);
    const auto optOpen = two.requests.next();
    const auto optTwice = two.requests.next();
    ASSERT_TRUE(optOpen && optTwice);
    (void)two.answer(*optTwice, "once");
    (void)two.answer(*optTwice, "twice"); // may be refused or accepted
    (void)two.answer(*optOpen, "at last");
    (void)two.answer(*optOpen, "once more");
    ASSERT_GE(one.send(3, two, "next"), 0);
    const auto optNext = two.requests.next();
    ASSERT_TRUE(optNext);
    (void)two.answer(*optNext, "next");

    for (const auto& [ulRequestID, sBody] : {std::pair(2UL, "once"), std::pair(1UL, "at last"), std::pair(3UL, "next")})
    {
        const auto optEnd = one.responses.next();
        ASSERT_TRUE(optEnd);
        EXPECT_EQ(optEnd->ulContext1, ulRequestID);
        EXPECT_EQ(optEnd->sBody, sBody);
    }
}

TEST_F(ChannelTest, AnUnansweredRequestEndsWhenItsTimeIsOver)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    ASSERT_GE(one.send(3, two, "no answer", 1), 0);
    ASSERT_TRUE(two.requests.next());
    m_world.passTime(2000);
    const auto optEnd = one.responses.next();
    ASSERT_TRUE(optEnd);
    EXPECT_EQ(optEnd->ulContext1, 3U);
    EXPECT_LT(optEnd->lResult, 0);
}

TEST_F(ChannelTest, ARequestToAServerThatIsNotThereEndsNegative)
{
    CChannelServer one(&m_world, 1);
    const long lResult = one.send(4, m_world.address(2), "anybody?");
    if (lResult < 0) // known at once
    {
        EXPECT_FALSE(isRetryable(lResult));
        return;
    }
    m_world.passTime(31'000);
    const auto optEnd = one.responses.next();
    ASSERT_TRUE(optEnd);
    EXPECT_LT(optEnd->lResult, 0);
    EXPECT_EQ(optEnd->ulContext1, 4U);
}

TEST_F(ChannelTest, AServerKnownToBeDownIsRefusedAtOnceAndAnnouncedWhenItComes)
{
    CChannelServer one(&m_world, 1);
    if (one.send(4, m_world.address(2), "anybody?") >= 0)
    {
        m_world.passTime(31'000);
        ASSERT_TRUE(one.responses.next());
    }
    const long lResult = one.send(5, m_world.address(2), "still nobody?");
    EXPECT_LT(lResult, 0);
    EXPECT_FALSE(isRetryable(lResult));
    EXPECT_TRUE(one.changes.empty()) << "what never was up does not go down";

    CChannelServer two(&m_world, 2, echo);
    m_world.passTime(31'000);
    ASSERT_EQ(one.changes.nextCode(), CMLIB_CLIENT_CONNECTED);
    ASSERT_GE(one.send(6, two, "there you are"), 0);
    const auto optEnd = one.responses.next();
    ASSERT_TRUE(optEnd);
    EXPECT_EQ(optEnd->sBody, "re: there you are");
}

TEST_F(ChannelTest, AServerThatStopsAndStartsAgainIsAnnounced)
{
    CChannelServer one(&m_world, 1);
    auto pTwo = std::make_unique<CChannelServer>(&m_world, 2);
    connect(one, *pTwo);
    ASSERT_GE(one.send(1, *pTwo, "unanswered"), 0);
    ASSERT_TRUE(pTwo->requests.next());
    pTwo.reset();
    const auto optEnd = one.responses.next();
    ASSERT_TRUE(optEnd);
    EXPECT_LT(optEnd->lResult, 0);
    EXPECT_EQ(one.changes.nextCode(), CMLIB_CLIENT_DISCONNECTED);
    EXPECT_EQ(one.requests.nextCode(), CMLIB_SERVER_DISCONNECTED);

    pTwo = std::make_unique<CChannelServer>(&m_world, 2);
    ASSERT_GE(pTwo->lStarted, 0);
    m_world.passTime(31'000);
    EXPECT_EQ(one.changes.nextCode(), CMLIB_CLIENT_CONNECTED);
    EXPECT_EQ(one.requests.nextCode(), CMLIB_SERVER_CONNECTED);
}

TEST_F(ChannelTest, ADeadServerDoesNotKeepOthersFromAnswering)
{
    CChannelServer one(&m_world, 1);
    CChannelServer three(&m_world, 3, echo);
    (void)one.send(1, m_world.address(2), "nobody"); // refused or failing later
    ASSERT_GE(one.send(2, three, "somebody"), 0);
    for (;;)
    {
        const auto optEnd = one.responses.next();
        ASSERT_TRUE(optEnd);
        if (optEnd->ulContext1 == 1)
            continue;
        EXPECT_EQ(optEnd->sBody, "re: somebody");
        break;
    }
}

TEST_F(ChannelTest, StoppingReleasesEveryReceiveThatBlocks)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    one.stop(); // joins the threads that receive
    two.stop();
}

TEST_F(ChannelTest, AStoppedChannelRefusesEverything)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    ASSERT_GE(two.send(1, one, "request"), 0);
    const auto optRequest = one.requests.next();
    ASSERT_TRUE(optRequest);
    one.stop();
    EXPECT_LT(one.send(2, two, "request"), 0);
    EXPECT_FALSE(isRetryable(one.send(2, two, "request")));
    EXPECT_LT(one.answer(*optRequest, "response"), 0);
    unsigned long long ullStamp = 42;
    EXPECT_LT(one.pServer->getServerTimestamp(two.address(), &ullStamp), 0);
    EXPECT_EQ(ullStamp, 42U);
    unsigned long ulPeer = 0;
    unsigned long ulOne = 0;
    unsigned long ulTwo = 0;
    char* pBuffer = nullptr;
    unsigned long ulSize = 0;
    EXPECT_EQ(static_cast<std::uint32_t>(one.pServer->receiveRequest(&ulPeer, &ulOne, &ulTwo, &pBuffer, &ulSize)),
              CMLIB_NOTHING);
    EXPECT_EQ(static_cast<std::uint32_t>(one.pClient->receiveResponse(&ulPeer, &ulOne, &pBuffer, &ulSize)),
              CMLIB_NOTHING);
    EXPECT_EQ(pBuffer, nullptr);
}

TEST_F(ChannelTest, AStoppedChannelCanBeStartedAgain)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2, echo);
    connect(one, two);
    one.stop();
    one.start();
    ASSERT_GE(one.lStarted, 0);
    long lResult = one.send(1, two, "again");
    ASSERT_GE(lResult, 0);
    const auto optEnd = one.responses.next();
    ASSERT_TRUE(optEnd);
    EXPECT_EQ(optEnd->sBody, "re: again");
}

TEST_F(ChannelTest, LargeAndEmptyBodiesPassWhole)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2, echo);
    for (const std::size_t uSize : {std::size_t{1} << 20, std::size_t{0}, std::size_t{1}, std::size_t{65'536}})
    {
        std::string sBody(uSize, '\0');
        for (std::size_t u = 0; u < uSize; ++u)
            sBody[u] = static_cast<char>(u * 31 + u / 257);
        ASSERT_GE(one.send(uSize, two, sBody), 0);
        const auto optEnd = one.responses.next();
        ASSERT_TRUE(optEnd);
        EXPECT_GE(optEnd->lResult, 0);
        EXPECT_EQ(optEnd->ulContext1, uSize);
        EXPECT_TRUE(optEnd->sBody == "re: " + sBody) << uSize;
    }
}

TEST_F(ChannelTest, AMessageBeyondTheLimitIsRefusedForGood)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    const std::string sTooLarge(m_world.messageLimit() + 1, 'x');
    const long lResult = one.send(1, two, sTooLarge);
    EXPECT_LT(lResult, 0);
    EXPECT_FALSE(isRetryable(lResult));
    EXPECT_GE(one.send(2, two, std::string(m_world.messageLimit(), 'x')), 0);
    const auto optRequest = two.requests.next();
    ASSERT_TRUE(optRequest);
    EXPECT_EQ(optRequest->sBody.size(), m_world.messageLimit());
    EXPECT_LT(two.answer(*optRequest, sTooLarge), 0);
}

TEST_F(ChannelTest, TheOwnClockIsAnswered)
{
    CChannelServer one(&m_world, 1);
    unsigned long long ullBefore = 0;
    CPortable::GetCurrentULLFileTimeUTC(&ullBefore);
    unsigned long long ullStamp = 0;
    EXPECT_GE(one.pServer->getServerTimestamp(one.address(), &ullStamp), 0);
    EXPECT_GE(ullStamp, ullBefore);
    unsigned long ulTicks = 0;
    const unsigned long ulTicksBefore = CPortable::GetTickCount();
    EXPECT_GE(one.pServer->getServerTickCount(one.address(), &ulTicks), 0);
    EXPECT_GE(ulTicks, ulTicksBefore);
}

TEST_F(ChannelTest, APeersClockIsAnsweredByEitherChannel)
{
    CChannelServer one(&m_world, 1);
    CChannelServer two(&m_world, 2);
    connect(one, two);
    for (CCMLibraryX* const pChannel : {one.pServer.get(), one.pClient.get(), two.pServer.get()})
    {
        const unsigned long ulOther = pChannel == two.pServer.get() ? one.address() : two.address();
        unsigned long long ullStamp = 0;
        unsigned long ulTicks = 0;
        ASSERT_GE(pChannel->getServerTimestamp(ulOther, &ullStamp), 0);
        ASSERT_GE(pChannel->getServerTickCount(ulOther, &ulTicks), 0);
        // All servers of the test live on one machine: the clocks are the same but for the measurement's error.
        unsigned long long ullNow = 0;
        CPortable::GetCurrentULLFileTimeUTC(&ullNow);
        EXPECT_NEAR(static_cast<double>(ullStamp), static_cast<double>(ullNow), 5e6); // half a second
        EXPECT_NEAR(static_cast<double>(ulTicks), static_cast<double>(CPortable::GetTickCount()), 500);
    }
}

TEST_F(ChannelTest, TheClockOfAServerThatIsNotThereFailsSoonAndLeavesTheArgumentAlone)
{
    CChannelServer one(&m_world, 1);
    unsigned long long ullStamp = 42;
    unsigned long ulTicks = 42;
    const auto tpBefore = std::chrono::steady_clock::now();
    EXPECT_LT(one.pServer->getServerTimestamp(m_world.address(2), &ullStamp), 0);
    EXPECT_LT(one.pServer->getServerTickCount(m_world.address(2), &ulTicks), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - tpBefore, std::chrono::milliseconds(2000)) << "250 ms, generously";
    EXPECT_EQ(ullStamp, 42U);
    EXPECT_EQ(ulTicks, 42U);
}

TEST_F(ChannelTest, AddressesHaveTexts)
{
    const auto pChannel = m_world.make(cmlib_mode_server);
    EXPECT_EQ(pChannel->ipAddrToString(0x7F000001), "127.0.0.1");
    EXPECT_EQ(pChannel->ipAddrToString(0xC0A80A01), "192.168.10.1");
    EXPECT_EQ(pChannel->stringToIpAddr("192.168.10.1"), 0xC0A80A01UL);
    EXPECT_EQ(pChannel->stringToIpAddr("255.255.255.255"), 0xFFFFFFFFUL);
    for (const char* const pszNone : {"", "localhost", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", "::1"})
        EXPECT_EQ(pChannel->stringToIpAddr(pszNone), 0UL) << pszNone;
}
