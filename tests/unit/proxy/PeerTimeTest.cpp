// Questions about the clocks of servers, and about the times of calls that other servers own.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t cNoAnswer = 0xC1200D11U;

class PeerTimeTest : public testing::Test
{
protected:
    PeerTimeTest() { m_server.starts(); }

    /// What the proxy tells the store; tells is the store's own view of it.
    CDSNetProxyCallbackImpl& times() { return m_times; }
    /// A call that 10.0.0.2 owns. Registering asks for the call's times twice.
    void watches(const std::string& sCallID = "sip:1")
    {
        (void)m_server.registers("ann", sCallID, "10.0.0.2");
        CProxyWorld::settle();
    }
    static void peerShows(unsigned long long ullTime) { CFakeChannels::setPeerTime("10.0.0.2", ullTime); }
    static void peerIsSilent() { CFakeChannels::failPeerTime("10.0.0.2", cNoAnswer); }
    std::string counts()
    {
        std::string sText;
        m_server.store().GetTickCountFromOtherServers(sText);
        return sText;
    }
    void knows(const std::string& sPeer, std::int32_t lState = 1)
    {
        m_server.proxy().serverStates().set(static_cast<std::uint32_t>(CFakeChannels::address(sPeer)), lState);
    }

    CProxyWorld m_world;
    CServer m_server;
    CDSNetProxyCallbackImpl m_times{&m_server.proxy()};
};

TEST_F(PeerTimeTest, AServersClockIsAskedOnTheServerChannel)
{
    peerShows(4711);
    unsigned long long ullTime = 0;
    EXPECT_THAT(times().getServerTimestamp(0x0A000002UL, 1, &ullTime), IsOk());
    EXPECT_EQ(ullTime, 4711U);
    CFakeClock::setTicks(0x1'0000'0011ULL);
    unsigned long ulTicks = 0;
    EXPECT_THAT(times().getServerTickCount(0x0A000002UL, 1, &ulTicks), IsOk());
    EXPECT_EQ(ulTicks, 0x11U);
    peerIsSilent();
    EXPECT_EQ(static_cast<std::uint32_t>(times().getServerTimestamp(0x0A000002UL, 0, &ullTime)), cNoAnswer);
}

TEST_F(PeerTimeTest, ACallOfThisServerHasThisServersTime)
{
    CFakeChannels::setPeerTime("10.0.0.1", 5000);
    unsigned long long ullTime = 17;
    EXPECT_THAT(times().getCallIDTimestamp("sip:1", 1, &ullTime), IsOk());
    EXPECT_EQ(ullTime, 5000U);
    CFakeChannels::setPeerTime("10.0.0.1", 4000);
    EXPECT_THAT(times().getCallIDTimestamp("sip:1", 1, &ullTime), IsOk());
    EXPECT_EQ(ullTime, 4000U); // nothing is remembered of it
    CCDSTimestamp tsStamp(0, 0);
    EXPECT_THAT(times().getCallIDCDSTimestamp("sip:1", &tsStamp), IsOk());
    EXPECT_EQ(tsStamp.value(), CFakeClock::fileTime());
}

TEST_F(PeerTimeTest, TheTimeOfACallNeverGoesBack)
{
    peerShows(100);
    watches();
    unsigned long long ullTime = 0;
    for (const auto& [ullShown, ullAnswer] : {std::pair(100U, 100U), std::pair(90U, 100U), std::pair(110U, 110U)})
    {
        peerShows(ullShown);
        EXPECT_THAT(times().getCallIDTimestamp("sip:1", 1, &ullTime), IsOk());
        EXPECT_EQ(ullTime, ullAnswer);
    }
}

TEST_F(PeerTimeTest, WithoutAnAnswerTheTimeIsTheLocalOneOrNone)
{
    peerIsSilent();
    watches();
    unsigned long long ullTime = 17;
    EXPECT_EQ(static_cast<std::uint32_t>(times().getCallIDTimestamp("sip:1", 1, &ullTime)), cNoAnswer);
    EXPECT_EQ(ullTime, 0U);
    CFakeChannels::setPeerTime("10.0.0.1", CFakeClock::fileTime() + 5);
    EXPECT_THAT(times().getCallIDTimestamp("sip:1", 0, &ullTime), IsOk());
    EXPECT_EQ(ullTime, CFakeClock::fileTime() + 5);
}

TEST_F(PeerTimeTest, ATimeOfZeroIsReturnedAndNotRemembered)
{
    peerShows(100);
    watches();
    peerShows(0);
    unsigned long long ullTime = 17;
    EXPECT_THAT(times().getCallIDTimestamp("sip:1", 1, &ullTime), IsOk());
    EXPECT_EQ(ullTime, 0U);
    peerShows(50);
    EXPECT_THAT(times().getCallIDTimestamp("sip:1", 1, &ullTime), IsOk());
    EXPECT_EQ(ullTime, 100U);
}

TEST_F(PeerTimeTest, StampsOfACallFollowTheOwnersClockAndNeverGoBack)
{
    peerShows(100);
    watches(); // takes (100,0)
    const auto stamp = [&] {
        CCDSTimestamp tsStamp(0, 0);
        EXPECT_THAT(times().getCallIDCDSTimestamp("sip:1", &tsStamp), IsOk());
        return tsStamp;
    };
    EXPECT_EQ(stamp(), CCDSTimestamp(100, 1));
    EXPECT_EQ(stamp(), CCDSTimestamp(100, 2));
    peerShows(90);
    EXPECT_EQ(stamp(), CCDSTimestamp(100, 3));
    peerShows(101);
    EXPECT_EQ(stamp(), CCDSTimestamp(101, 0));
}

TEST_F(PeerTimeTest, WithoutAnAnswerTheLastStampIsCountedOn)
{
    peerShows(100);
    watches();
    peerIsSilent();
    CCDSTimestamp tsStamp(0, 0);
    EXPECT_EQ(static_cast<std::uint32_t>(times().getCallIDCDSTimestamp("sip:1", &tsStamp)), cNoAnswer);
    EXPECT_EQ(tsStamp, CCDSTimestamp(100, 1));
    EXPECT_THAT(m_server.store().GetCallIDCDSTimestamp("sip:1", &tsStamp), IsOk()); // the store says nothing of it
    EXPECT_EQ(tsStamp, CCDSTimestamp(100, 2));
}

TEST_F(PeerTimeTest, ManyThreadsGetDifferentStamps)
{
    peerShows(100);
    watches();
    constexpr int cThreads = 4;
    constexpr int cEach = 200;
    std::vector<std::vector<CCDSTimestamp>> vecStamps(cThreads);
    {
        std::vector<std::jthread> vecThreads;
        for (auto& vecOwn : vecStamps)
            vecThreads.emplace_back([&] {
                for (int nStamp = 0; nStamp < cEach; ++nStamp)
                {
                    CCDSTimestamp tsStamp(0, 0);
                    (void)times().getCallIDCDSTimestamp("sip:1", &tsStamp); // the peer answers
                    vecOwn.push_back(tsStamp);
                }
            });
    }
    std::vector<CCDSTimestamp> vecAll;
    for (const auto& vecOwn : vecStamps)
    {
        EXPECT_TRUE(std::is_sorted(vecOwn.begin(), vecOwn.end()));
        vecAll.insert(vecAll.end(), vecOwn.begin(), vecOwn.end());
    }
    std::sort(vecAll.begin(), vecAll.end());
    EXPECT_EQ(std::adjacent_find(vecAll.begin(), vecAll.end()), vecAll.end());
    EXPECT_EQ(vecAll.back(), CCDSTimestamp(100, cThreads * cEach));
}

TEST_F(PeerTimeTest, NobodyIsKnownAtFirst)
{
    EXPECT_EQ(counts(), "");
}

TEST_F(PeerTimeTest, ServersAreListedByAddressWithClockAndState)
{
    knows("10.0.0.2", 0);
    knows("10.0.0.1", 1);
    CFakeChannels::setPeerTime("10.0.0.1", 7);
    peerIsSilent();
    CFakeClock::setTicks(5);
    EXPECT_EQ(counts(), "10.0.0.1=5,7,1;10.0.0.2=0,0,0;");
    std::string sText = "before ";
    m_server.store().GetTickCountFromOtherServers(sText);
    EXPECT_EQ(sText, "before 10.0.0.1=5,7,1;10.0.0.2=0,0,0;");
}

TEST_F(PeerTimeTest, AnyStateButZeroIsReachable)
{
    knows("10.0.0.2", -3);
    peerShows(~0ULL);
    CFakeClock::setTicks(0xFFFFFFFFULL);
    EXPECT_EQ(counts(), "10.0.0.2=4294967295,18446744073709551615,1;");
}

TEST_F(PeerTimeTest, ServersAreKnownOnceTheyConnect)
{
    CFakeChannels::serverReceives(CMLIB_SERVER_CONNECTED, "10.0.0.3");
    CProxyWorld::settle();
    EXPECT_EQ(counts(), "");
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    peerShows(7);
    CFakeClock::setTicks(5);
    EXPECT_EQ(counts(), "10.0.0.2=5,7,1;");
}

TEST_F(PeerTimeTest, WhileTheProxyIsStoppedNobodyIsAsked)
{
    knows("10.0.0.2");
    m_server.stops();
    EXPECT_EQ(counts(), "");
    unsigned long long ullTime = 17;
    EXPECT_THAT(times().getServerTimestamp(0x0A000002UL, 0, &ullTime), FailsWith(E_CDS_NOCHANNEL));
    unsigned long ulTicks = 17;
    EXPECT_THAT(times().getServerTickCount(0x0A000002UL, 0, &ulTicks), FailsWith(E_CDS_NOCHANNEL));
    EXPECT_EQ(ullTime, 17U);
    EXPECT_EQ(ulTicks, 17U);
}

} // namespace
